#include "Crc32.h"

#include <zlib.h>

#include <cstdio>

namespace vantrel::mcap::detail {
uint32_t crc32(uint32_t previous, const void* data, std::size_t size) {
    // zlib's: several times faster than a table loop, and the recorder runs it over every byte twice.
    return static_cast<uint32_t>(crc32_z(previous, static_cast<const Bytef*>(data), size));
}

std::string crcText(uint32_t crc) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08x", crc);
    return text;
}

}  // namespace vantrel::mcap::detail
