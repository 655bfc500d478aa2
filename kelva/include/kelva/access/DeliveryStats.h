#pragma once
// Process-wide counts of what was not delivered to this process's readers: samples lost (a writer no longer
// had them when this reader asked, e.g. a writer's bounded history overtook a reader that fell behind),
// samples rejected (a reader's resource limits) and malformed samples (received bytes that the sample
// guard or the DDS layer's validation refused; see GuardedTopic.h). Lost and rejected samples are also
// logged at warn level by the reader's listener, malformed ones once per writer by the guard; the counts
// let an application or a test see them without parsing logs.
// The counters live in the library (DeliveryStats.cpp), so every module of a process shares them.
#include <cstdint>

#include "kelva/Export.h"

namespace kelva::access {

class KELVA_EXPORT DeliveryStats {
public:
    static uint64_t samplesLost() noexcept;
    static uint64_t samplesRejected() noexcept;
    static uint64_t samplesMalformed() noexcept;

    static void addLost(uint64_t n) noexcept;
    static void addRejected(uint64_t n) noexcept;
    static void addMalformed(uint64_t n) noexcept;
};

}  // namespace kelva::access
