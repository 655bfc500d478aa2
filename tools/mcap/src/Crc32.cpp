#include "Crc32.h"

#include <array>
#include <cstdio>

namespace vantrel::mcap::detail {
namespace {

// Eight tables let the loop take eight bytes per step: the chunk CRC runs over every recorded byte.
using Tables = std::array<std::array<uint32_t, 256>, 8>;

constexpr Tables makeTables() {
    Tables t{};
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t c = i;
        for (int k = 0; k < 8; ++k) {
            c = (c & 1U) ? (c >> 1) ^ 0xEDB88320U : c >> 1;
        }
        t[0][i] = c;
    }
    for (std::size_t s = 1; s < 8; ++s) {
        for (std::size_t i = 0; i < 256; ++i) {
            const uint32_t prev = t[s - 1][i];
            t[s][i] = (prev >> 8) ^ t[0][prev & 0xFFU];
        }
    }
    return t;
}

constexpr Tables kTables = makeTables();

}  // namespace

uint32_t crc32(uint32_t previous, const void* data, std::size_t size) {
    const auto* p = static_cast<const uint8_t*>(data);
    uint32_t c = ~previous;
    while (size >= 8) {
        const uint32_t lo = c ^ (uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24);
        const uint32_t hi = uint32_t(p[4]) | uint32_t(p[5]) << 8 | uint32_t(p[6]) << 16 | uint32_t(p[7]) << 24;
        c = kTables[7][lo & 0xFFU] ^ kTables[6][(lo >> 8) & 0xFFU] ^ kTables[5][(lo >> 16) & 0xFFU] ^
            kTables[4][lo >> 24] ^ kTables[3][hi & 0xFFU] ^ kTables[2][(hi >> 8) & 0xFFU] ^
            kTables[1][(hi >> 16) & 0xFFU] ^ kTables[0][hi >> 24];
        p += 8;
        size -= 8;
    }
    while (size-- > 0) {
        c = (c >> 8) ^ kTables[0][(c ^ *p++) & 0xFFU];
    }
    return ~c;
}

std::string crcText(uint32_t crc) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08x", crc);
    return text;
}

}  // namespace vantrel::mcap::detail
