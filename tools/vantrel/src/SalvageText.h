#pragma once
// How `recover` and `info` word what a broken recording still holds.
#include <cstdio>
#include <string>

#include "vantrel/mcap/Recovery.h"

namespace vantrel::tool {

// "1200 messages in 12 chunks on 1 channel, 11.5 s (bytes 0 to 81234 of 90000)"
inline std::string salvageText(const mcap::Salvage& s) {
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%.3f",
                  s.messages ? static_cast<double>(s.messageEndTime - s.messageStartTime) / 1e9 : 0.0);
    auto count = [](uint64_t n, const char* what) { return std::to_string(n) + " " + what + (n == 1 ? "" : "s"); };
    return count(s.messages, "message") + " in " + count(s.chunks, "chunk") + " on " + count(s.channels, "channel") +
           ", " + seconds + " s (bytes 0 to " + std::to_string(s.keptBytes) +
           " of " + std::to_string(s.fileBytes) + ")";
}

inline std::string droppedText(const mcap::Salvage& s) {
    if (s.droppedReason.empty())
        return s.closed ? "nothing (the file was complete up to its summary)" : "nothing (the file ends after a whole record)";
    return std::to_string(s.fileBytes - s.keptBytes) + " bytes at the end: " + s.droppedReason;
}

}  // namespace vantrel::tool
