#pragma once
// Chunk compression: one compressor per writer (its context and output buffer are reused for every
// chunk), and decompression that never allocates past the size the chunk states.
#include "vantrel/mcap/Records.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vantrel::mcap::detail {

class Compressor {
public:
    explicit Compressor(Compression compression);
    ~Compressor();
    Compressor(const Compressor&) = delete;
    Compressor& operator=(const Compressor&) = delete;

    // The compressed bytes, valid until the next call.
    const std::vector<uint8_t>& compress(const uint8_t* data, std::size_t size);

private:
    Compression compression_;
    void* zstd_ = nullptr;  // ZSTD_CCtx
    std::vector<uint8_t> out_;
};

// Decompresses a chunk's records. `compression` is the chunk's compression name; `context` names the
// chunk in errors. Throws McapError for an unknown compression, corrupt data, or a size other than
// `uncompressedSize`.
std::vector<uint8_t> decompress(const std::string& compression, const uint8_t* data, std::size_t size,
                                uint64_t uncompressedSize, const std::string& context);

}  // namespace vantrel::mcap::detail
