#pragma once
// What a recording whose writer died (no summary, no footer, perhaps a torn last record) still holds,
// and a new, complete and indexed file made of it. Every record up to the first truncated or damaged
// one is kept: complete chunks whole, with the schemas and channels they define; nothing after it.
#include "vantrel/mcap/Records.h"
#include "vantrel/mcap/Writer.h"

#include <cstdint>
#include <string>

namespace vantrel::mcap {

struct Salvage {
    uint64_t fileBytes = 0;
    uint64_t keptBytes = 0;      // from the file's start to the end of the last record kept
    bool closed = false;         // the data section ended properly: nothing was lost
    std::string droppedReason;   // why the bytes after keptBytes were dropped; empty when none were
    uint32_t chunks = 0;         // complete chunks read
    uint64_t messages = 0;
    uint64_t messageStartTime = 0;  // 0 when there are no messages
    uint64_t messageEndTime = 0;
    uint16_t schemas = 0;
    uint32_t channels = 0;
};

// Reads `path` from the start as far as it is whole. Throws McapError only when not even the header
// is there.
Salvage inspect(const std::string& path);

// Writes what inspect() finds into `output` (a complete file, closed). On failure `output` is removed
// and McapError thrown.
Salvage recover(const std::string& path, const std::string& output, WriterOptions options = {});

}  // namespace vantrel::mcap
