// The per-thread scratch memory of message conversion: zeroed, disjoint arrays; nested scratches give back
// only their own memory; threads never share it.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

#include "vantrel/frame/Convert.h"

namespace {

struct Element {
    double value;
    char* text;
    uint32_t count;
};

bool allZero(const void* p, std::size_t bytes) {
    const auto* b = static_cast<const unsigned char*>(p);
    for (std::size_t i = 0; i < bytes; ++i)
        if (b[i] != 0) return false;
    return true;
}

bool disjoint(const void* a, std::size_t aBytes, const void* b, std::size_t bBytes) {
    const auto x = reinterpret_cast<std::uintptr_t>(a), y = reinterpret_cast<std::uintptr_t>(b);
    return x + aBytes <= y || y + bBytes <= x;
}

TEST(Scratch, ArraysAreZeroedAlignedAndDisjointAndEmptyOnesAreNull) {
    vantrel::frame::Scratch s;
    EXPECT_EQ(s.array<Element>(0), nullptr);
    std::vector<std::pair<Element*, std::size_t>> taken;
    for (std::size_t n : {1u, 3u, 500u, 7u, 20000u, 2u}) {  // 20000 elements outgrow the first block
        Element* e = s.array<Element>(n);
        ASSERT_NE(e, nullptr);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(e) % alignof(Element), 0u);
        EXPECT_TRUE(allZero(e, n * sizeof(Element)));
        std::memset(e, 0xab, n * sizeof(Element));
        for (const auto& [other, m] : taken) EXPECT_TRUE(disjoint(e, n * sizeof(Element), other, m * sizeof(Element)));
        taken.emplace_back(e, n);
    }
}

TEST(Scratch, ANestedScratchGivesBackOnlyItsOwnMemory) {
    vantrel::frame::Scratch outer;
    Element* kept = outer.array<Element>(100);
    std::memset(kept, 0x5a, 100 * sizeof(Element));
    Element* inner1 = nullptr;
    {
        vantrel::frame::Scratch inner;
        inner1 = inner.array<Element>(100);
        EXPECT_TRUE(disjoint(inner1, 100 * sizeof(Element), kept, 100 * sizeof(Element)));
        std::memset(inner1, 0x77, 100 * sizeof(Element));
    }
    // The inner scratch's memory is free again: taken anew, zeroed, and the outer array untouched.
    Element* again = outer.array<Element>(100);
    EXPECT_EQ(again, inner1);
    EXPECT_TRUE(allZero(again, 100 * sizeof(Element)));
    const auto* bytes = reinterpret_cast<const unsigned char*>(kept);
    for (std::size_t i = 0; i < 100 * sizeof(Element); ++i) ASSERT_EQ(bytes[i], 0x5a) << "outer array overwritten at " << i;
}

TEST(Scratch, ThreadsDoNotShareAndAnOversizedMessageIsServedZeroed) {
    vantrel::frame::Scratch mine;
    Element* here = mine.array<Element>(10);
    std::thread([&] {
        vantrel::frame::Scratch s;
        std::memset(s.array<Element>(10), 1, 10 * sizeof(Element));
        const std::size_t n = 8 * 1024 * 1024 / sizeof(Element);  // far more than a thread keeps
        EXPECT_TRUE(allZero(s.array<Element>(n), n * sizeof(Element)));
    }).join();
    EXPECT_TRUE(allZero(here, 10 * sizeof(Element)));
}

}  // namespace
