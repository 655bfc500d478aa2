#pragma once
// Captures the toolkit's log lines for the lifetime of the object: sets the level, installs a tap, and
// restores the previous level (and clears the tap) when it goes.
#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "kelva/utils/Log.h"

namespace vantrel::test {

class LogCapture {
public:
    using Level = kelva::utils::log::Level;
    using Logger = kelva::utils::log::Logger;
    struct Line {
        Level level;
        std::string text;
    };

    explicit LogCapture(Level level) : m_previous(Logger::getHighestUsedLevel()) {
        Logger::setTap([this](Level lineLevel, const std::string& text) {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_lines.push_back(Line{lineLevel, text});
        });
        Logger::setLevel(level);
    }
    ~LogCapture() {
        Logger::setTap({});
        Logger::setLevel(m_previous);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<Line> lines() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_lines;
    }
    // The texts of the lines of exactly `level`, in emission order.
    std::vector<std::string> texts(Level level) const {
        std::vector<std::string> out;
        for (const auto& line : lines())
            if (line.level == level) out.push_back(line.text);
        return out;
    }
    // How many lines of `level` read exactly `text`.
    std::size_t count(Level level, const std::string& text) const {
        const auto all = texts(level);
        return static_cast<std::size_t>(std::count(all.begin(), all.end(), text));
    }

private:
    Level m_previous;
    mutable std::mutex m_mutex;
    std::vector<Line> m_lines;
};

}  // namespace vantrel::test
