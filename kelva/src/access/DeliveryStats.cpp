#include "kelva/access/DeliveryStats.h"

#include <atomic>

namespace kelva::access {

namespace {
std::atomic<uint64_t> g_lost{0};
std::atomic<uint64_t> g_rejected{0};
std::atomic<uint64_t> g_malformed{0};
}  // namespace

uint64_t DeliveryStats::samplesLost() noexcept { return g_lost.load(std::memory_order_relaxed); }
uint64_t DeliveryStats::samplesRejected() noexcept { return g_rejected.load(std::memory_order_relaxed); }
uint64_t DeliveryStats::samplesMalformed() noexcept { return g_malformed.load(std::memory_order_relaxed); }

void DeliveryStats::addLost(uint64_t n) noexcept { g_lost.fetch_add(n, std::memory_order_relaxed); }
void DeliveryStats::addRejected(uint64_t n) noexcept { g_rejected.fetch_add(n, std::memory_order_relaxed); }
void DeliveryStats::addMalformed(uint64_t n) noexcept { g_malformed.fetch_add(n, std::memory_order_relaxed); }

}  // namespace kelva::access
