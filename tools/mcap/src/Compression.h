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

    // A chunk's bytes as they go into the file, and the compression name its record carries.
    struct Packed {
        const uint8_t* data;
        std::size_t size;
        const char* compression;
    };
    // Compressed (valid until the next call), or the input itself: with no compression, and for a chunk
    // that compression shrinks by less than a tenth (payloads already compressed or noise-like, such
    // as images or sampled signals). After such a chunk the next ones are stored as they are without
    // trying, every kRetryEvery-th chunk trying again: compressing megabytes for nothing would cost the
    // recorder more than receiving them.
    Packed pack(const uint8_t* data, std::size_t size);

    static constexpr unsigned kRetryEvery = 16;

private:
    const std::vector<uint8_t>& compress(const uint8_t* data, std::size_t size);

    Compression compression_;
    unsigned skip_ = 0;  // chunks still to be stored without trying
    void* zstd_ = nullptr;  // ZSTD_CCtx
    std::vector<uint8_t> out_;
};

// Decompresses a chunk's records. `compression` is the chunk's compression name; `context` names the
// chunk in errors. Throws McapError for an unknown compression, corrupt data, or a size other than
// `uncompressedSize`.
std::vector<uint8_t> decompress(const std::string& compression, const uint8_t* data, std::size_t size,
                                uint64_t uncompressedSize, const std::string& context);

}  // namespace vantrel::mcap::detail
