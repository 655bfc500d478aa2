#include "Throughput.h"

#include <stdexcept>
#include <vector>

#include "Parts.h"
#include "Table.h"

namespace vantrel::bench {

ThroughputSide::ThroughputSide(const std::string& variant, const std::string& size, int domain)
    : m_size(size), m_peer(Child::peer({"sink", variant, size, std::to_string(domain)})) {
    m_peer.waitFor("ready", 20);
    m_source = makeSource(variant, size, domain);
    // Until both sides have discovered each other, markers may go unheard: repeat one until it is answered.
    for (const auto t0 = Clock::now();; ++m_id) {
        m_source->send(true, m_id);
        if (!m_peer.nextOrEmpty("ack", 0.05).empty()) break;
        if (secondsSince(t0) > 20) throw std::runtime_error("throughput: the reader never answered");
    }
}

double ThroughputSide::batch(int n) {
    ++m_id;
    const auto t0 = Clock::now();
    for (int i = 1; i < n; ++i) m_source->send(false, 0);
    m_source->send(true, m_id);
    const std::string want = "ack " + std::to_string(m_id) + " ";
    std::string ack;
    while ((ack = m_peer.waitFor("ack", 60)).rfind(want, 0) != 0) {
    }
    const double seconds = secondsSince(t0);
    const long received = std::stol(ack.substr(want.size()));
    if (m_size != "large" && received != n)
        throw std::runtime_error("throughput: " + std::to_string(received) + " of " + std::to_string(n) + " received");
    return n / seconds;
}

int peerSink(const std::string& variant, const std::string& size, int domain) {
    keepAllReports(size == "large-all");
    Counter counter;
    Sink sink(variant, size, domain, counter);
    say("ready");
    waitForStdinEof();
    return 0;
}

namespace {

struct Throughput {
    std::vector<double> frame, raw;
};

// Each repetition starts both variants afresh (new processes, new discovery), warms them up and times one
// batch of each, frame and raw alternating: both see the same machine, and how the processes' threads
// happen to share the two CPUs varies between repetitions instead of favouring one variant for a whole run.
Throughput throughput(const std::string& size, int frameDomain, int rawDomain, int n, int reps) {
    keepAllReports(size == "large-all");
    Throughput result;
    for (int rep = 0; rep < reps; ++rep) {
        for (const char* variant : {"frame", "raw"}) {
            const bool frame = std::string(variant) == "frame";
            ThroughputSide side(variant, size, frame ? frameDomain : rawDomain);
            side.batch(n / 5);
            (frame ? result.frame : result.raw).push_back(side.batch(n));
        }
    }
    return result;
}

void throughputRow(const char* size, int base, int n, int offset, const char* label, bool target) {
    const Throughput t = throughput(size, base + offset, base + offset + 1, n, target ? 15 : 7);
    const double ratio = summarize(ratiosOf(t.frame, t.raw)).median;
    row(label, fmtSummary(t.frame), fmtSummary(t.raw), pairRatios(t.frame, t.raw), target ? ">= 0.90 " + verdict(ratio >= 0.9) : "- (skips)");
}

}  // namespace

void smallRows(int base) { throughputRow("small", base, 50000, 0, "1 throughput CmdRaiseAlarm (msg/s)", true); }

void largeRows(int base) {
    throughputRow("large-all", base, 1000, 2, "1 throughput ReportAlertStatus x300 (msg/s)", true);
    throughputRow("large", base, 1000, 12, "1 same, keep-last 1 (msg/s)", false);
    keepAllReports(false);
}

}  // namespace vantrel::bench
