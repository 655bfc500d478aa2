#pragma once
// A bounds-checked cursor over bytes in the file format's little-endian encodings. Every read that
// would pass the end throws McapError naming what was being read and where.
#include "vantrel/mcap/Records.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>

namespace vantrel::mcap::detail {

class ByteReader {
public:
    // `base` is the offset of data[0] in what `context` names (the file, or an uncompressed chunk);
    // errors report base + position.
    ByteReader(const uint8_t* data, std::size_t size, uint64_t base, std::string context)
        : data_(data), size_(size), base_(base), context_(std::move(context)) {}

    uint8_t u8(const char* what);
    uint16_t u16(const char* what);
    uint32_t u32(const char* what);
    uint64_t u64(const char* what);
    std::string string(const char* what);
    // A uint32 length and that many bytes, returned as a string of bytes.
    std::string bytes32(const char* what);
    std::map<std::string, std::string> stringMap(const char* what);
    std::map<uint16_t, uint64_t> u16u64Map(const char* what);
    // Advances over n bytes, returning where they start.
    const uint8_t* take(std::size_t n, const char* what);

    std::size_t remaining() const { return size_ - pos_; }
    std::size_t position() const { return pos_; }
    uint64_t offset() const { return base_ + pos_; }
    const std::string& context() const { return context_; }
    [[noreturn]] void fail(const std::string& what) const;

private:
    void need(std::size_t n, const char* what) const;

    const uint8_t* data_;
    std::size_t size_;
    std::size_t pos_ = 0;
    uint64_t base_;
    std::string context_;
};

}  // namespace vantrel::mcap::detail
