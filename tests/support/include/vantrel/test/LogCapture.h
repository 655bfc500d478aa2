#pragma once
// Captures the toolkit's log lines for the lifetime of the object: sets the level, installs a tap, and
// restores the previous level (and clears the tap) when it goes.
#include <mutex>
#include <string>
#include <vector>

#include "kelva/utils/Log.h"

namespace vantrel::test {

class LogCapture {
public:
    struct Line {
        kelva::utils::log::Level level;
        std::string text;
    };

    explicit LogCapture(kelva::utils::log::Level level);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<Line> lines() const;
    // The texts of the lines of exactly `level`, in emission order.
    std::vector<std::string> texts(kelva::utils::log::Level level) const;
    // How many lines of `level` read exactly `text`.
    std::size_t count(kelva::utils::log::Level level, const std::string& text) const;
    void clear();

private:
    kelva::utils::log::Level m_previous;
    mutable std::mutex m_mutex;
    std::vector<Line> m_lines;
};

}  // namespace vantrel::test
