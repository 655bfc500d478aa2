// The CRC every chunk and the summary carry must be the standard CRC-32, or other readers reject the file.
#include "Crc32.h"

#include <gtest/gtest.h>

#include <string>

using vantrel::mcap::detail::crc32;

TEST(Crc32, MatchesPublishedCheckValues) {
    const std::string digits = "123456789";
    EXPECT_EQ(crc32(0, digits.data(), digits.size()), 0xCBF43926U);
    const std::string fox = "The quick brown fox jumps over the lazy dog";
    EXPECT_EQ(crc32(0, fox.data(), fox.size()), 0x414FA339U);
    EXPECT_EQ(crc32(0, "", 0), 0U);
}

TEST(Crc32, ChainsOverPiecesOfAnyLengthAndAlignment) {
    std::string text;
    for (int i = 0; i < 1000; ++i) text += static_cast<char>(i * 131 % 256);
    const uint32_t whole = crc32(0, text.data(), text.size());
    for (std::size_t cut : {std::size_t(1), std::size_t(3), std::size_t(8), std::size_t(13), std::size_t(999)}) {
        const uint32_t first = crc32(0, text.data(), cut);
        EXPECT_EQ(crc32(first, text.data() + cut, text.size() - cut), whole) << "cut at " << cut;
    }
}
