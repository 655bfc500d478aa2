#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>

#include "vantrel/test/DomainLock.h"

namespace vantrel::test {

namespace {

// Whether any UDP socket of this machine is bound to a port of `domain` (7400 + 250 * domain + 0..249): a
// process outside the tests is using that domain.
bool domainPortsInUse(int domain) {
    const int low = 7400 + 250 * domain, high = low + 249;
    for (const char* table : {"/proc/net/udp", "/proc/net/udp6"}) {
        std::ifstream in(table);
        std::string line;
        std::getline(in, line);  // header
        while (std::getline(in, line)) {
            // "  sl  local_address:port(hex) ..."
            const auto colon = line.find(':', line.find(':') + 1);
            if (colon == std::string::npos) continue;
            const int port = static_cast<int>(std::strtol(line.c_str() + colon + 1, nullptr, 16));
            if (port >= low && port <= high) return true;
        }
    }
    return false;
}

}  // namespace

// Tries from a pid-dependent start so that concurrent processes rarely contend for the same file.
DomainLock DomainLock::take(bool inheritable) {
    const std::string dir = "/tmp/vantrel-test-domains";
    ::mkdir(dir.c_str(), 0777);
    const int span = kLastDomain - kFirstDomain + 1;
    const int start = static_cast<int>(::getpid() % span);
    for (int i = 0; i < span; ++i) {
        const int domain = kFirstDomain + (start + i) % span;
        const std::string path = dir + "/" + std::to_string(domain) + ".lock";
        const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | (inheritable ? 0 : O_CLOEXEC), 0666);
        if (fd < 0) continue;
        if (::flock(fd, LOCK_EX | LOCK_NB) != 0 || domainPortsInUse(domain)) {
            ::close(fd);
            continue;
        }
        return DomainLock(domain, fd);
    }
    throw std::runtime_error("no free DDS domain id among " + std::to_string(kFirstDomain) + ".." +
                             std::to_string(kLastDomain) + " (locks under " + dir + ")");
}

DomainLock::~DomainLock() {
    if (m_handle != kNone) ::close(static_cast<int>(m_handle));
}

}  // namespace vantrel::test
