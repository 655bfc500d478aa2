#pragma once
// CRC-32 as zlib and the file format define it (reflected polynomial 0xEDB88320, initial value and
// final xor 0xFFFFFFFF). Chained: crc32(crc32(0, a), b) == crc32(0, a + b).
#include <cstddef>
#include <cstdint>
#include <string>

namespace vantrel::mcap::detail {

uint32_t crc32(uint32_t previous, const void* data, std::size_t size);

// "0x1234abcd", for messages.
std::string crcText(uint32_t crc);

}  // namespace vantrel::mcap::detail
