#pragma once
// Throughput of one variant: its writer here and its reader in a peer process ("vantrel-bench peer sink
// <frame|raw> <size> <domain>"), timed in batches. The part measures CmdRaiseAlarm, and ReportAlertStatus
// with 300 entries both with every message delivered (keep-all) and with its default keep-last 1 (the
// reader skips replaced messages; for information). The secured and Python parts time the frame with it too.
#include <memory>
#include <string>

#include "Child.h"
#include "ThroughputEnds.h"

namespace vantrel::bench {

// One variant's writer (here) and reader (a peer process), discovered and ready for batches.
class ThroughputSide {
public:
    ThroughputSide(const std::string& variant, const std::string& size, int domain);

    // Messages per second of a batch of `n`, timed from its first write until the reader acknowledged
    // its last. Keep-all topics must deliver every message.
    double batch(int n);

private:
    std::string m_size;
    Child m_peer;
    std::unique_ptr<Source> m_source;
    int m_id = 1;
};

}  // namespace vantrel::bench
