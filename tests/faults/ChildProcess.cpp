#include "ChildProcess.h"

std::string ChildProcess::line(Clock::time_point deadline) {
    for (;;) {
        const auto nl = m_buffer.find('\n');
        if (nl != std::string::npos) {
            std::string s = m_buffer.substr(0, nl);
            m_buffer.erase(0, nl + 1);
            if (!s.empty() && s.back() == '\r') s.pop_back();  // Windows line ends
            return s;
        }
        if (Clock::now() >= deadline || !readSome(m_buffer, deadline)) return "";
    }
}

std::string ChildProcess::lineStarting(const std::string& prefix, int seconds) {
    const auto deadline = Clock::now() + std::chrono::seconds(seconds);
    for (std::string s = line(deadline);; s = line(deadline)) {
        if (s.empty() || s.rfind(prefix, 0) == 0) return s;
    }
}
