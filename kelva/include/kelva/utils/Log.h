#pragma once
// The toolkit's logger: one process-wide logger with the levels trace ... fatal. A LineBuilder collects one
// line and emits it when it goes out of scope; when its level is not in use it builds nothing.
#include <cstdint>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>

#include "kelva/Export.h"
#include "kelva/utils/System.h"

namespace kelva::utils::log {

enum class Level : int { trace = 0, debug = 1, info = 2, warn = 3, error = 4, fatal = 5, off = 6 };

// Parses "trace", "debug", "info", "warn", "error", "fatal" or "off"; false for anything else.
KELVA_EXPORT bool parseLevel(std::string_view text, Level& out);
KELVA_EXPORT const char* levelName(Level level);

class KELVA_EXPORT Logger {
public:
    // The most verbose level in use: a line of a lower level than this is neither built nor written.
    static Level getHighestUsedLevel() noexcept;
    static bool isEnabled(Level level) noexcept { return level >= getHighestUsedLevel() && level != Level::off; }
    static void setLevel(Level level);

    // Where lines go: "stderr" (default), "stdout" or "file:<path>" (appended). Throws std::invalid_argument
    // on anything else.
    static void setSink(const std::string& sink);

    // Observes every emitted line in addition to the sink (tests, monitoring tools). Empty clears it.
    using Tap = std::function<void(Level, const std::string&)>;
    static void setTap(Tap tap);

    static void write(Level level, const std::string& line);
};

class KELVA_EXPORT LineBuilder {
public:
    explicit LineBuilder(Level level) : m_level(level), m_enabled(Logger::isEnabled(level)) {}
    LineBuilder(const LineBuilder&) = delete;
    LineBuilder& operator=(const LineBuilder&) = delete;
    LineBuilder(LineBuilder&& other) noexcept;
    ~LineBuilder();

    bool enabled() const noexcept { return m_enabled; }

    template <class V>
    LineBuilder& operator<<(const V& value) {
        if (m_enabled) stream() << value;
        return *this;
    }

private:
    std::ostringstream& stream();

    Level m_level;
    bool m_enabled;
    std::unique_ptr<std::ostringstream> m_stream;
};

inline LineBuilder trace() { return LineBuilder(Level::trace); }
inline LineBuilder debug() { return LineBuilder(Level::debug); }
inline LineBuilder info() { return LineBuilder(Level::info); }
inline LineBuilder warn() { return LineBuilder(Level::warn); }
inline LineBuilder error() { return LineBuilder(Level::error); }
inline LineBuilder fatal() { return LineBuilder(Level::fatal); }

}  // namespace kelva::utils::log

// The full signature of the enclosing function, as the compiler spells it (GCC and Clang, also MinGW-w64:
// "void M_Alert::SenderIService::CmdRaiseAlarm(const M_Alert::AlarmConditionInfoType&)"; MSVC its own).
#if defined(_MSC_VER) && !defined(__clang__)
#define KELVA_FUNCTION_SIGNATURE __FUNCSIG__
#else
#define KELVA_FUNCTION_SIGNATURE __PRETTY_FUNCTION__
#endif

// Entry trace line "(file:line:signature) ", built only when trace is in use; the file name without its
// directories whichever separator the compiler used.
#define KELVA_TRACE_ENTRY()                                                                         \
    do {                                                                                            \
        if (::kelva::utils::log::Logger::isEnabled(::kelva::utils::log::Level::trace))              \
            ::kelva::utils::log::trace() << "(" << ::kelva::utils::system::filename(__FILE__) << ":" \
                                         << __LINE__ << ":" << KELVA_FUNCTION_SIGNATURE << ") ";    \
    } while (0)
