#pragma once
// How `recover` and `info` word what a broken recording still holds.
#include <cstdio>
#include <string>

#include "vantrel/mcap/Recovery.h"

namespace vantrel::tool {

// "1200 messages in 12 chunks on 3 channels, 11.5 s (bytes 0 to 81234 of 90000)"
inline std::string salvageText(const mcap::Salvage& s) {
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%.3f",
                  s.messages ? static_cast<double>(s.messageEndTime - s.messageStartTime) / 1e9 : 0.0);
    return std::to_string(s.messages) + " messages in " + std::to_string(s.chunks) + " chunks on " +
           std::to_string(s.channels) + " channels, " + seconds + " s (bytes 0 to " + std::to_string(s.keptBytes) +
           " of " + std::to_string(s.fileBytes) + ")";
}

inline std::string droppedText(const mcap::Salvage& s) {
    if (s.droppedReason.empty())
        return s.closed ? "nothing (the file was complete up to its summary)" : "nothing (the file ends after a whole record)";
    return std::to_string(s.fileBytes - s.keptBytes) + " bytes at the end: " + s.droppedReason;
}

}  // namespace vantrel::tool
