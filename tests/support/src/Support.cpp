#include "vantrel/test/Support.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "vantrel/test/DomainLock.h"

namespace vantrel::test {

namespace detail {
int allocateDomainForCommand() {
    static DomainLock held = DomainLock::take(/*inheritable=*/true);  // kept across the exec
    return held.id();
}
}  // namespace detail

int domainId() {
    static const int id = [] {
        if (const char* text = std::getenv("KELVA_TEST_DOMAIN"); text && *text) {
            char* end = nullptr;
            const long value = std::strtol(text, &end, 10);
            if (*end != '\0' || value < 0 || value > DomainLock::kLastDomain)
                throw std::invalid_argument(std::string("KELVA_TEST_DOMAIN is not a domain id 0..230: ") + text);
            return static_cast<int>(value);
        }
        static DomainLock held = DomainLock::take();  // for the process's life
        return held.id();
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
