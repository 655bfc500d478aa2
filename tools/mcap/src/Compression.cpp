#include "Compression.h"

#include <lz4frame.h>
#include <zstd.h>

#include <algorithm>
#include <cstring>
#include <memory>

namespace vantrel::mcap::detail {

namespace {

// zstd's fastest level: recording must keep up with the bus; the ratio differs little on CDR data.
constexpr int kZstdLevel = 1;

[[noreturn]] void fail(const std::string& context, const std::string& what) {
    throw McapError(context + ": " + what);
}

// The output starts small and doubles, never past `limit` (the size the chunk states): a corrupt size
// claim cannot make the reader allocate much more than the data really decompresses to.
void grow(std::vector<uint8_t>& out, uint64_t limit, std::size_t compressedSize) {
    const uint64_t wanted = std::max<uint64_t>({uint64_t(out.size()) * 2, uint64_t(compressedSize) * 4, 64 * 1024});
    out.resize(static_cast<std::size_t>(std::min<uint64_t>(wanted, limit)));
}

[[noreturn]] void tooLong(const std::string& context, uint64_t expected) {
    fail(context, "decompresses to more than the stated " + std::to_string(expected) + " bytes");
}

void checkSize(std::size_t produced, uint64_t expected, const std::string& context) {
    if (produced != expected) {
        fail(context, "decompresses to " + std::to_string(produced) + " bytes, the chunk states " + std::to_string(expected));
    }
}

// The streaming loop of both codecs. `step(dst, dstSize, src, srcSize)` is one call of the codec: it sets the
// two sizes to what it produced and consumed, and says whether every frame so far is complete.
template <class Step>
std::vector<uint8_t> decompressFrames(const uint8_t* data, std::size_t size, uint64_t expected, const std::string& context,
                                      const char* codec, Step step) {
    std::vector<uint8_t> out;
    grow(out, expected, size);
    std::size_t consumed = 0;
    std::size_t produced = 0;
    for (;;) {
        std::size_t outSize = out.size() - produced;
        std::size_t inSize = size - consumed;
        const bool complete = step(out.data() + produced, outSize, data + consumed, inSize);
        consumed += inSize;
        produced += outSize;
        const bool progress = inSize != 0 || outSize != 0;
        if (complete && consumed == size) {
            break;  // every frame complete and flushed
        }
        if (produced == out.size()) {
            if (out.size() < expected) {
                grow(out, expected, size);
            } else if (!progress) {
                tooLong(context, expected);
            }
        } else if (!progress) {
            fail(context, std::string(codec) + " data ends inside a frame");
        }
    }
    checkSize(produced, expected, context);
    out.resize(produced);
    return out;
}

std::vector<uint8_t> unzstd(const uint8_t* data, std::size_t size, uint64_t expected, const std::string& context) {
    // One context per thread, reset for each chunk: creating one costs more than a small chunk's work.
    thread_local std::unique_ptr<ZSTD_DCtx, decltype(&ZSTD_freeDCtx)> ctx(ZSTD_createDCtx(), ZSTD_freeDCtx);
    if (!ctx) {
        fail(context, "cannot create a zstd decompression context");
    }
    ZSTD_DCtx_reset(ctx.get(), ZSTD_reset_session_only);
    return decompressFrames(data, size, expected, context, "zstd",
                      [&](uint8_t* dst, std::size_t& dstSize, const uint8_t* src, std::size_t& srcSize) {
                          ZSTD_outBuffer o{dst, dstSize, 0};
                          ZSTD_inBuffer in{src, srcSize, 0};
                          const std::size_t ret = ZSTD_decompressStream(ctx.get(), &o, &in);
                          if (ZSTD_isError(ret)) {
                              fail(context, std::string("corrupt zstd data: ") + ZSTD_getErrorName(ret));
                          }
                          dstSize = o.pos;
                          srcSize = in.pos;
                          return ret == 0;
                      });
}

std::vector<uint8_t> unlz4(const uint8_t* data, std::size_t size, uint64_t expected, const std::string& context) {
    LZ4F_dctx* raw = nullptr;
    if (LZ4F_isError(LZ4F_createDecompressionContext(&raw, LZ4F_VERSION))) {
        fail(context, "cannot create an lz4 decompression context");
    }
    std::unique_ptr<LZ4F_dctx, decltype(&LZ4F_freeDecompressionContext)> ctx(raw, LZ4F_freeDecompressionContext);
    return decompressFrames(data, size, expected, context, "lz4",
                      [&](uint8_t* dst, std::size_t& dstSize, const uint8_t* src, std::size_t& srcSize) {
                          const std::size_t hint = LZ4F_decompress(ctx.get(), dst, &dstSize, src, &srcSize, nullptr);
                          if (LZ4F_isError(hint)) {
                              fail(context, std::string("corrupt lz4 data: ") + LZ4F_getErrorName(hint));
                          }
                          return hint == 0;
                      });
}

}  // namespace

Compressor::Compressor(Compression compression) : compression_(compression) {
    if (compression_ == Compression::Zstd) {
        ZSTD_CCtx* ctx = ZSTD_createCCtx();
        if (ctx == nullptr) {
            throw McapError("cannot create a zstd compression context");
        }
        ZSTD_CCtx_setParameter(ctx, ZSTD_c_compressionLevel, kZstdLevel);
        zstd_ = ctx;
    }
}

Compressor::~Compressor() {
    ZSTD_freeCCtx(static_cast<ZSTD_CCtx*>(zstd_));
}

Compressor::Packed Compressor::pack(const uint8_t* data, std::size_t size) {
    if (compression_ == Compression::None) return {data, size, ""};
    if (skip_ > 0) {
        --skip_;
        return {data, size, ""};
    }
    const std::vector<uint8_t>& out = compress(data, size);
    if (out.size() >= size - size / 10) {
        skip_ = kRetryEvery - 1;
        return {data, size, ""};
    }
    return {out.data(), out.size(), compressionName(compression_)};
}

const std::vector<uint8_t>& Compressor::compress(const uint8_t* data, std::size_t size) {
    switch (compression_) {
    case Compression::None:
        break;  // pack() stores such chunks as they are
    case Compression::Zstd: {
        out_.resize(ZSTD_compressBound(size));
        const std::size_t n = ZSTD_compress2(static_cast<ZSTD_CCtx*>(zstd_), out_.data(), out_.size(), data, size);
        if (ZSTD_isError(n)) {
            throw McapError(std::string("zstd compression failed: ") + ZSTD_getErrorName(n));
        }
        out_.resize(n);
        break;
    }
    case Compression::Lz4: {
        LZ4F_preferences_t prefs;
        std::memset(&prefs, 0, sizeof prefs);
        prefs.frameInfo.contentSize = size;
        out_.resize(LZ4F_compressFrameBound(size, &prefs));
        const std::size_t n = LZ4F_compressFrame(out_.data(), out_.size(), data, size, &prefs);
        if (LZ4F_isError(n)) {
            throw McapError(std::string("lz4 compression failed: ") + LZ4F_getErrorName(n));
        }
        out_.resize(n);
        break;
    }
    }
    return out_;
}

std::vector<uint8_t> decompress(const std::string& compression, const uint8_t* data, std::size_t size,
                                uint64_t uncompressedSize, const std::string& context) {
    if (compression.empty()) {
        if (size != uncompressedSize) {
            fail(context, "uncompressed chunk holds " + std::to_string(size) + " bytes, the chunk states " +
                              std::to_string(uncompressedSize));
        }
        return std::vector<uint8_t>(data, data + size);
    }
    if (compression == "zstd") {
        return unzstd(data, size, uncompressedSize, context);
    }
    if (compression == "lz4") {
        return unlz4(data, size, uncompressedSize, context);
    }
    fail(context, "unknown compression \"" + compression + "\"");
}

}  // namespace vantrel::mcap::detail

namespace vantrel::mcap {

const char* compressionName(Compression compression) {
    switch (compression) {
    case Compression::None: return "";
    case Compression::Zstd: return "zstd";
    case Compression::Lz4: return "lz4";
    }
    return "";
}

}  // namespace vantrel::mcap
