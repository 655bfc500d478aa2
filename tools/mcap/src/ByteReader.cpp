#include "ByteReader.h"

namespace vantrel::mcap::detail {

void ByteReader::fail(const std::string& what) const {
    throw McapError(context_ + ": " + what + " (at offset " + std::to_string(offset()) + ")");
}

void ByteReader::need(std::size_t n, const char* what) const {
    if (n > size_ - pos_) {
        fail(std::string("truncated ") + what + ": needs " + std::to_string(n) + " bytes, " +
             std::to_string(size_ - pos_) + " left");
    }
}

const uint8_t* ByteReader::take(std::size_t n, const char* what) {
    need(n, what);
    const uint8_t* p = data_ + pos_;
    pos_ += n;
    return p;
}

uint8_t ByteReader::u8(const char* what) {
    return *take(1, what);
}

uint16_t ByteReader::u16(const char* what) {
    const uint8_t* p = take(2, what);
    return static_cast<uint16_t>(p[0] | p[1] << 8);
}

uint32_t ByteReader::u32(const char* what) {
    const uint8_t* p = take(4, what);
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

uint64_t ByteReader::u64(const char* what) {
    const uint8_t* p = take(8, what);
    uint64_t v = 0;
    for (int i = 7; i >= 0; --i) {
        v = v << 8 | p[i];
    }
    return v;
}

std::string ByteReader::string(const char* what) {
    return bytes32(what);
}

std::string ByteReader::bytes32(const char* what) {
    const uint32_t n = u32(what);
    const uint8_t* p = take(n, what);
    return std::string(reinterpret_cast<const char*>(p), n);
}

std::map<std::string, std::string> ByteReader::stringMap(const char* what) {
    const uint32_t n = u32(what);
    ByteReader inner(take(n, what), n, offset() - n, context_);
    std::map<std::string, std::string> out;
    while (inner.remaining() > 0) {
        std::string key = inner.string(what);
        out[std::move(key)] = inner.string(what);
    }
    return out;
}

std::map<uint16_t, uint64_t> ByteReader::u16u64Map(const char* what) {
    const uint32_t n = u32(what);
    ByteReader inner(take(n, what), n, offset() - n, context_);
    std::map<uint16_t, uint64_t> out;
    while (inner.remaining() > 0) {
        const uint16_t key = inner.u16(what);
        out[key] = inner.u64(what);
    }
    return out;
}

}  // namespace vantrel::mcap::detail
