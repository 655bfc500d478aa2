#include "kelva/utils/Log.h"

#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <atomic>
#include <mutex>
#include <stdexcept>

namespace kelva::utils::log {
namespace {

spdlog::level::level_enum toSpd(Level level) {
    switch (level) {
        case Level::trace: return spdlog::level::trace;
        case Level::debug: return spdlog::level::debug;
        case Level::info: return spdlog::level::info;
        case Level::warn: return spdlog::level::warn;
        case Level::error: return spdlog::level::err;
        case Level::fatal: return spdlog::level::critical;
        case Level::off: break;
    }
    return spdlog::level::off;
}

// The level is read on every log call site, so it lives in an atomic outside the spdlog logger.
std::atomic<Level> g_level{Level::warn};

struct State {
    std::mutex mutex;
    std::shared_ptr<spdlog::logger> logger;
    Logger::Tap tap;
};

State& state() {
    static State s;
    return s;
}

std::shared_ptr<spdlog::logger> makeLogger(spdlog::sink_ptr sink) {
    auto logger = std::make_shared<spdlog::logger>("kelva", std::move(sink));
    logger->set_pattern("%Y-%m-%d %H:%M:%S.%e [%l] [%t] %v");
    logger->set_level(spdlog::level::trace);  // filtering is ours (g_level)
    logger->flush_on(spdlog::level::warn);
    return logger;
}

std::shared_ptr<spdlog::logger> logger() {
    State& s = state();
    if (!s.logger) s.logger = makeLogger(std::make_shared<spdlog::sinks::stderr_sink_mt>());
    return s.logger;
}

}  // namespace

bool parseLevel(std::string_view text, Level& out) {
    static const std::pair<std::string_view, Level> names[] = {
        {"trace", Level::trace}, {"debug", Level::debug}, {"info", Level::info}, {"warn", Level::warn},
        {"error", Level::error}, {"fatal", Level::fatal}, {"off", Level::off}};
    for (const auto& [name, level] : names) {
        if (name == text) {
            out = level;
            return true;
        }
    }
    return false;
}

const char* levelName(Level level) {
    switch (level) {
        case Level::trace: return "trace";
        case Level::debug: return "debug";
        case Level::info: return "info";
        case Level::warn: return "warn";
        case Level::error: return "error";
        case Level::fatal: return "fatal";
        case Level::off: break;
    }
    return "off";
}

Level Logger::getHighestUsedLevel() noexcept { return g_level.load(std::memory_order_relaxed); }

void Logger::setLevel(Level level) { g_level.store(level, std::memory_order_relaxed); }

void Logger::setSink(const std::string& sink) {
    spdlog::sink_ptr made;
    if (sink == "stderr") {
        made = std::make_shared<spdlog::sinks::stderr_sink_mt>();
    } else if (sink == "stdout") {
        made = std::make_shared<spdlog::sinks::stdout_sink_mt>();
    } else if (sink.rfind("file:", 0) == 0 && sink.size() > 5) {
        made = std::make_shared<spdlog::sinks::basic_file_sink_mt>(sink.substr(5));
    } else {
        throw std::invalid_argument("unknown log sink '" + sink + "' (stderr, stdout or file:<path>)");
    }
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.logger = makeLogger(std::move(made));
}

void Logger::setTap(Tap tap) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.tap = std::move(tap);
}

void Logger::write(Level level, const std::string& line) {
    if (!isEnabled(level)) return;
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    logger()->log(toSpd(level), line);
    if (s.tap) s.tap(level, line);
}

LineBuilder::LineBuilder(LineBuilder&& other) noexcept
    : m_level(other.m_level), m_enabled(other.m_enabled), m_stream(std::move(other.m_stream)) {
    other.m_enabled = false;
}

std::ostringstream& LineBuilder::stream() {
    if (!m_stream) m_stream = std::make_unique<std::ostringstream>();
    return *m_stream;
}

LineBuilder::~LineBuilder() {
    if (!m_enabled) return;
    try {
        Logger::write(m_level, m_stream ? m_stream->str() : std::string());
    } catch (...) {
        // A logger that fails must not take the caller down.
    }
}

}  // namespace kelva::utils::log
