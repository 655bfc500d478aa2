#pragma once
// A growing byte buffer with the file format's little-endian encodings, for building records.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace vantrel::mcap::detail {

class ByteBuffer {
public:
    void u8(uint8_t v) { bytes_.push_back(v); }
    void u16(uint16_t v) { little(v, 2); }
    void u32(uint32_t v) { little(v, 4); }
    void u64(uint64_t v) { little(v, 8); }
    void raw(const void* data, std::size_t size) {
        if (size > 0) {
            const std::size_t at = bytes_.size();
            bytes_.resize(at + size);
            std::memcpy(bytes_.data() + at, data, size);
        }
    }
    // uint32 byte length, then the bytes.
    void string(const std::string& s) {
        u32(static_cast<uint32_t>(s.size()));
        raw(s.data(), s.size());
    }
    void stringMap(const std::map<std::string, std::string>& m) {
        const std::size_t at = reserveU32();
        for (const auto& [k, v] : m) {
            string(k);
            string(v);
        }
        patchLength32(at);
    }
    void u16u64Map(const std::map<uint16_t, uint64_t>& m) {
        u32(static_cast<uint32_t>(m.size() * 10));
        for (const auto& [k, v] : m) {
            u16(k);
            u64(v);
        }
    }

    // A record: opcode, then a uint64 content length patched by endRecord.
    std::size_t beginRecord(uint8_t opcode) {
        u8(opcode);
        const std::size_t at = bytes_.size();
        u64(0);
        return at;
    }
    void endRecord(std::size_t lengthAt) { patch(lengthAt, bytes_.size() - lengthAt - 8, 8); }

    std::size_t reserveU32() {
        const std::size_t at = bytes_.size();
        u32(0);
        return at;
    }
    void patchLength32(std::size_t at) { patch(at, bytes_.size() - at - 4, 4); }

    const uint8_t* data() const { return bytes_.data(); }
    std::size_t size() const { return bytes_.size(); }
    bool empty() const { return bytes_.empty(); }
    void clear() { bytes_.clear(); }
    void reserve(std::size_t n) { bytes_.reserve(n); }

private:
    void little(uint64_t v, int n) {
        for (int i = 0; i < n; ++i) {
            bytes_.push_back(static_cast<uint8_t>(v >> (8 * i)));
        }
    }
    void patch(std::size_t at, uint64_t v, int n) {
        for (int i = 0; i < n; ++i) {
            bytes_[at + i] = static_cast<uint8_t>(v >> (8 * i));
        }
    }

    std::vector<uint8_t> bytes_;
};

}  // namespace vantrel::mcap::detail
