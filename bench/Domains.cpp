#include "Domains.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>

namespace vantrel::bench {

namespace {

// The range every configuration accepts; domain 0 is left to whatever else runs on the machine.
constexpr int kFirst = 1;
constexpr int kLast = 230;

// Whether a UDP socket of this machine is bound to a port of `domain` (7400 + 250 * domain + 0..249).
bool portsInUse(int domain) {
    const int low = 7400 + 250 * domain, high = low + 249;
    for (const char* table : {"/proc/net/udp", "/proc/net/udp6"}) {
        std::ifstream in(table);
        std::string line;
        std::getline(in, line);  // header
        while (std::getline(in, line)) {
            const auto colon = line.find(':', line.find(':') + 1);  // after the local address
            if (colon == std::string::npos) continue;
            const int port = static_cast<int>(std::strtol(line.c_str() + colon + 1, nullptr, 16));
            if (port >= low && port <= high) return true;
        }
    }
    return false;
}

}  // namespace

Domains::Domains(int count) {
    const std::string dir = "/tmp/vantrel-test-domains";
    ::mkdir(dir.c_str(), 0777);
    const int span = kLast - kFirst + 1;
    const int start = static_cast<int>(::getpid() % span);  // concurrent holders rarely contend
    for (int i = 0; i < span && static_cast<int>(m_ids.size()) < count; ++i) {
        const int domain = kFirst + (start + i) % span;
        const std::string path = dir + "/" + std::to_string(domain) + ".lock";
        const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
        if (fd < 0) continue;
        if (::flock(fd, LOCK_EX | LOCK_NB) != 0 || portsInUse(domain)) {
            ::close(fd);
            continue;
        }
        m_ids.push_back(domain);
        m_fds.push_back(fd);
    }
    if (static_cast<int>(m_ids.size()) < count) {
        for (int fd : m_fds) ::close(fd);
        throw std::runtime_error("fewer than " + std::to_string(count) + " free DDS domain ids (locks under " + dir + ")");
    }
}

Domains::~Domains() {
    for (int fd : m_fds) ::close(fd);
}

}  // namespace vantrel::bench
