// The per-thread scratch memory of message conversion: zeroed, aligned, disjoint arrays; a nested scratch
// gives back only its own memory; threads never share it.
#include <gtest/gtest.h>

#include <algorithm>
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

bool allBytes(const Element* e, std::size_t n, unsigned char value) {
    const auto* b = reinterpret_cast<const unsigned char*>(e);
    return std::all_of(b, b + n * sizeof(Element), [&](unsigned char c) { return c == value; });
}

bool disjoint(const Element* a, std::size_t aCount, const Element* b, std::size_t bCount) {
    const auto x = reinterpret_cast<std::uintptr_t>(a), y = reinterpret_cast<std::uintptr_t>(b);
    return x + aCount * sizeof(Element) <= y || y + bCount * sizeof(Element) <= x;
}

TEST(Scratch, ArraysAreZeroedAlignedAndDisjointAndGivenBackPerScratchNeverSharedBetweenThreads) {
    vantrel::frame::Scratch outer;
    EXPECT_EQ(outer.array<Element>(0), nullptr);
    std::vector<std::pair<Element*, std::size_t>> taken;
    for (std::size_t n : {1u, 3u, 500u, 7u, 20000u, 2u}) {  // 20000 elements outgrow the first block
        Element* e = outer.array<Element>(n);
        ASSERT_NE(e, nullptr);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(e) % alignof(Element), 0u);
        EXPECT_TRUE(allBytes(e, n, 0));
        std::memset(static_cast<void*>(e), 0xab, n * sizeof(Element));
        for (const auto& [other, m] : taken) EXPECT_TRUE(disjoint(e, n, other, m));
        taken.emplace_back(e, n);
    }
    Element* inner1 = nullptr;
    {
        vantrel::frame::Scratch inner;
        inner1 = inner.array<Element>(100);
        for (const auto& [other, m] : taken) EXPECT_TRUE(disjoint(inner1, 100, other, m));
        std::memset(static_cast<void*>(inner1), 0x77, 100 * sizeof(Element));
    }
    // The inner scratch's memory is free again: taken anew, zeroed, and the outer arrays untouched.
    Element* again = outer.array<Element>(100);
    EXPECT_EQ(again, inner1);
    EXPECT_TRUE(allBytes(again, 100, 0));
    for (const auto& [e, n] : taken) EXPECT_TRUE(allBytes(e, n, 0xab)) << "an outer array was overwritten";

    std::thread([] {
        vantrel::frame::Scratch s;
        std::memset(static_cast<void*>(s.array<Element>(10)), 1, 10 * sizeof(Element));
        const std::size_t n = 8 * 1024 * 1024 / sizeof(Element);  // far more than a thread keeps
        EXPECT_TRUE(allBytes(s.array<Element>(n), n, 0)) << "an oversized array was not served zeroed";
    }).join();
    EXPECT_TRUE(allBytes(again, 100, 0)) << "another thread's scratch wrote here";
}

}  // namespace
