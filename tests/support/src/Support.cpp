#include "vantrel/test/Support.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "vantrel/test/DomainLock.h"

namespace vantrel::test {

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

namespace detail {

int allocateDomainForCommand() {
    static DomainLock held = DomainLock::take(/*inheritable=*/true);  // kept across the exec
    return held.id();
}

bool loopbackConfigured(std::string& why) {
    const char* uri = std::getenv("CYCLONEDDS_URI");
    std::string path = uri ? uri : "";
    why.clear();
    if (path.empty()) {
        why = "CYCLONEDDS_URI is not set; DDS would use every network interface of this machine";
    } else if (path.find(',') != std::string::npos || path.find('<') != std::string::npos) {
        why = "CYCLONEDDS_URI must name exactly one configuration file, not '" + path + "'";
    } else {
        if (path.rfind("file://", 0) == 0) path.erase(0, 7);
        std::ifstream in(path);
        std::ostringstream content;
        if (in) content << in.rdbuf();
        if (!in) why = "CYCLONEDDS_URI names '" + path + "', which cannot be read";
        else if (content.str().find("127.0.0.1") == std::string::npos)
            why = "the DDS configuration '" + path + "' does not bind to 127.0.0.1";
    }
    return why.empty();
}

}  // namespace detail
}  // namespace vantrel::test
