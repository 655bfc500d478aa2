#include "kelva/utils/System.h"

#include <chrono>
#include <thread>

namespace kelva::utils::system {

std::string filename(const std::string& path) {
    const auto pos = path.find_last_of("/\\");
    return pos == std::string::npos ? path : path.substr(pos + 1);
}

void msSleep(int milliseconds) { std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds)); }

}  // namespace kelva::utils::system

namespace kelva::utils::string {

void removePrefixIf(std::string& text, const std::string& prefix) {
    if (!prefix.empty() && text.compare(0, prefix.size(), prefix) == 0) text.erase(0, prefix.size());
}

}  // namespace kelva::utils::string

namespace kelva::utils::time {

long long getCurrentUnixTimestamp() {
    using namespace std::chrono;
    return duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
}

}  // namespace kelva::utils::time
