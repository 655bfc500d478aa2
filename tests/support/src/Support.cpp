#include "vantrel/test/Support.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace vantrel::test {

namespace {

// DDS maps domain ids to port numbers; 0..230 is the range every configuration accepts. Domain 0 is
// left to whatever else runs on the machine.
constexpr int kFirstDomain = 1;
constexpr int kLastDomain = 230;

// Whether any UDP socket of this machine is bound to a port of `domain` (7400 + 250 * domain + 0..249):
// a process outside the tests is using that domain.
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

// Takes a domain no other test process holds: an exclusive lock on one file per domain id, held (the file
// stays open) until this process ends, also when it crashes. Tries from a pid-dependent start so that
// concurrent processes rarely contend for the same file.
int allocateDomain(bool inheritable) {
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
        return domain;  // fd stays open: the lock lives as long as the process
    }
    throw std::runtime_error("no free DDS domain id among " + std::to_string(kFirstDomain) + ".." +
                             std::to_string(kLastDomain) + " (locks under " + dir + ")");
}

}  // namespace

namespace detail {
int allocateDomainForCommand() { return allocateDomain(/*inheritable=*/true); }
}  // namespace detail

int domainId() {
    static const int id = [] {
        if (const char* text = std::getenv("KELVA_TEST_DOMAIN"); text && *text) {
            char* end = nullptr;
            const long value = std::strtol(text, &end, 10);
            if (*end != '\0' || value < 0 || value > kLastDomain)
                throw std::invalid_argument(std::string("KELVA_TEST_DOMAIN is not a domain id 0..230: ") + text);
            return static_cast<int>(value);
        }
        return allocateDomain(/*inheritable=*/false);
    }();
    return id;
}

bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds bound) {
    const auto deadline = std::chrono::steady_clock::now() + bound;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) return condition();
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

void Gate::open() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_open = true;
    }
    m_changed.notify_all();
}

bool Gate::isOpen() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_open;
}

bool Gate::wait(std::chrono::milliseconds bound) const {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, bound, [this] { return m_open; });
}

namespace detail {

bool loopbackConfigured(std::string& why) {
    const char* uri = std::getenv("CYCLONEDDS_URI");
    if (!uri || !*uri) {
        why = "CYCLONEDDS_URI is not set; DDS would use every network interface of this machine";
        return false;
    }
    std::string path = uri;
    if (path.find(',') != std::string::npos || path.find('<') != std::string::npos) {
        why = "CYCLONEDDS_URI must name exactly one configuration file, not '" + path + "'";
        return false;
    }
    const std::string scheme = "file://";
    if (path.compare(0, scheme.size(), scheme) == 0) path.erase(0, scheme.size());
    std::ifstream in(path);
    if (!in) {
        why = "CYCLONEDDS_URI names '" + path + "', which cannot be read";
        return false;
    }
    std::ostringstream content;
    content << in.rdbuf();
    if (content.str().find("127.0.0.1") == std::string::npos) {
        why = "the DDS configuration '" + path + "' does not bind to 127.0.0.1";
        return false;
    }
    return true;
}

}  // namespace detail
}  // namespace vantrel::test
