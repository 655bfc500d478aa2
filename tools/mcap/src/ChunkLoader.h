#pragma once
// Opens one chunk record: decodes it, decompresses its records and checks their CRC.
#include "RecordCodec.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vantrel::mcap::detail {

struct LoadedChunk {
    ChunkRecord record;            // `records` is cleared: the compressed bytes are not kept
    std::vector<uint8_t> records;  // uncompressed
    std::string context;           // "<file>: chunk at offset N (uncompressed)": offsets in errors are into `records`
};

// `bytes` is the whole record (opcode and length included) read from `offset` of the file at `path`.
LoadedChunk loadChunk(const uint8_t* bytes, std::size_t size, uint64_t offset, const std::string& path);

}  // namespace vantrel::mcap::detail
