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

bool globMatch(const std::string& pattern, const std::string& text) {
    // Left to right with one backtracking point, the last '*': on a mismatch it takes one more character.
    std::size_t p = 0, t = 0, star = std::string::npos, resume = 0;
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            resume = t;
        } else if (p < pattern.size() && (pattern[p] == '?' || pattern[p] == text[t])) {
            ++p;
            ++t;
        } else if (star != std::string::npos) {
            p = star + 1;
            t = ++resume;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*') ++p;
    return p == pattern.size();
}

}  // namespace kelva::utils::string

namespace kelva::utils::time {

long long getCurrentUnixTimestamp() {
    using namespace std::chrono;
    return duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
}

}  // namespace kelva::utils::time
