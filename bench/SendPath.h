#pragma once
// The send path in-process: what one call costs the caller without a reader, in time and heap
// allocations, frame against raw. The Python part compares its own send path with the frame's.
#include <vector>

namespace vantrel::bench {

struct CallCost {
    std::vector<double> ns, news, mallocs;  // per call, one value per repetition
};

struct SendCosts {
    CallCost frameSmall, rawSmall, frameLarge, rawLarge;
};

// Frame and raw writers side by side; their repetitions alternate so that both see the same machine.
SendCosts sendPath(int frameDomain, int rawDomain, int reps);

}  // namespace vantrel::bench
