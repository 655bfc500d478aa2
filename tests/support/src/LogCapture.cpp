#include "vantrel/test/LogCapture.h"

#include <algorithm>

namespace vantrel::test {

using kelva::utils::log::Level;
using kelva::utils::log::Logger;

LogCapture::LogCapture(Level level) : m_previous(Logger::getHighestUsedLevel()) {
    Logger::setTap([this](Level lineLevel, const std::string& text) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_lines.push_back(Line{lineLevel, text});
    });
    Logger::setLevel(level);
}

LogCapture::~LogCapture() {
    Logger::setTap({});
    Logger::setLevel(m_previous);
}

std::vector<LogCapture::Line> LogCapture::lines() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

std::vector<std::string> LogCapture::texts(Level level) const {
    std::vector<std::string> out;
    for (const auto& line : lines())
        if (line.level == level) out.push_back(line.text);
    return out;
}

std::size_t LogCapture::count(Level level, const std::string& text) const {
    const auto all = texts(level);
    return static_cast<std::size_t>(std::count(all.begin(), all.end(), text));
}

void LogCapture::clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
}

}  // namespace vantrel::test
