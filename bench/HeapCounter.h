#pragma once
// Heap allocations of the calling thread so far: every operator new, and every malloc/calloc/realloc (C
// and C++). HeapCounter.cpp replaces the allocator's entry points of the whole executable to count them.
#include <cstdint>

namespace vantrel::bench {

struct HeapCounts {
    std::uint64_t news = 0;     // operator new and new[]
    std::uint64_t mallocs = 0;  // malloc, calloc, realloc; operator new counts here too
};

HeapCounts heapCounts();

}  // namespace vantrel::bench
