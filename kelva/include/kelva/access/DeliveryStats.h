#pragma once
// Process-wide counts of what the DDS layer reported as not delivered to this process's readers: samples
// lost (a writer no longer had them when this reader asked, e.g. a writer's bounded history overtook a
// reader that fell behind) and samples rejected (a reader's resource limits). Each event is also logged at
// warn level by the reader's listener; the counts let an application or a test see them without parsing logs.
#include <atomic>
#include <cstdint>

#include "kelva/Export.h"

namespace kelva::access {

class KELVA_EXPORT DeliveryStats {
public:
    static uint64_t samplesLost() noexcept { return lost().load(std::memory_order_relaxed); }
    static uint64_t samplesRejected() noexcept { return rejected().load(std::memory_order_relaxed); }

    static void addLost(uint64_t n) noexcept { lost().fetch_add(n, std::memory_order_relaxed); }
    static void addRejected(uint64_t n) noexcept { rejected().fetch_add(n, std::memory_order_relaxed); }

private:
    static std::atomic<uint64_t>& lost() noexcept {
        static std::atomic<uint64_t> count{0};
        return count;
    }
    static std::atomic<uint64_t>& rejected() noexcept {
        static std::atomic<uint64_t> count{0};
        return count;
    }
};

}  // namespace kelva::access
