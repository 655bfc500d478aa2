#include "HeapCounter.h"

#include <cstdlib>
#include <new>

// Per thread: a measuring thread counts its own calls, whatever the DDS layer's threads do meanwhile.
namespace {
thread_local std::uint64_t t_news = 0;
thread_local std::uint64_t t_mallocs = 0;
}  // namespace

// The C allocator, replaced in this executable (the sanitizers bring their own, which must stay).
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void __libc_free(void*);
void* malloc(std::size_t n) noexcept {
    ++t_mallocs;
    return __libc_malloc(n);
}
void* calloc(std::size_t n, std::size_t size) noexcept {
    ++t_mallocs;
    return __libc_calloc(n, size);
}
void* realloc(void* p, std::size_t n) noexcept {
    ++t_mallocs;
    return __libc_realloc(p, n);
}
void free(void* p) noexcept { __libc_free(p); }
}
#endif

void* operator new(std::size_t n) {
    ++t_news;
    if (void* p = std::malloc(n ? n : 1)) return p;
    throw std::bad_alloc();
}
void* operator new[](std::size_t n) { return ::operator new(n); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }

namespace vantrel::bench {

HeapCounts heapCounts() { return {t_news, t_mallocs}; }

}  // namespace vantrel::bench
