#include "SendPath.h"

#include <unistd.h>

#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <stdexcept>
#include <string>

#include "Common.h"
#include "HeapCounter.h"
#include "Parts.h"
#include "Table.h"
#include "ThroughputEnds.h"

namespace vantrel::bench {

namespace {

// One repetition: `n` calls, their time and allocations per call appended to `cost`.
template <class Call>
void measure(Call&& call, int n, CallCost& cost) {
    const HeapCounts before = heapCounts();
    const auto t0 = Clock::now();
    for (int i = 0; i < n; ++i) call();
    const double seconds = secondsSince(t0);
    const HeapCounts after = heapCounts();
    cost.ns.push_back(seconds * 1e9 / n);
    cost.news.push_back(static_cast<double>(after.news - before.news) / n);
    cost.mallocs.push_back(static_cast<double>(after.mallocs - before.mallocs) / n);
}

}  // namespace

SendCosts sendPath(int frameDomain, int rawDomain, int reps) {
    auto session = makeSession(frameDomain, /*firstWriteTimeoutMs=*/0);
    auto client = M_Alert::Client::createWriteOnly(session, "bench-send");
    auto service = M_Alert::Service::createWriteOnly(session, "bench-send-service");
    const dds_entity_t participant = dds_create_participant(rawDomain, nullptr, nullptr);
    const dds_entity_t small = rawWriter(participant, &VendorData_M_Alert_IService_CmdRaiseAlarm_desc, kSmallTopic);
    const dds_entity_t large = rawWriter(participant, &VendorData_M_Alert_IClient_ReportAlertStatus_desc, kLargeTopic);
    const auto condition = smallCondition();
    const auto status = largeStatus();
    const VendorData_M_Alert_IService_CmdRaiseAlarm smallMessage{const_cast<char*>(kRawActor), wireOf(condition)};
    std::vector<VendorData_M_Alert_AlarmConditionStatusType> elements;
    const auto largeMessage = wireOf(status, kRawActor, elements);

    auto frameSmall = [&] { client->CmdRaiseAlarm(condition); };
    auto rawSmall = [&] { check(dds_write(small, &smallMessage), "dds_write"); };
    auto frameLarge = [&] { service->ReportAlertStatus(status, false); };
    auto rawLarge = [&] { check(dds_write(large, &largeMessage), "dds_write"); };
    SendCosts warmUp, costs;  // the warm-up includes the first call's bounded wait, here 0 ms
    for (int rep = -1; rep < reps; ++rep) {
        SendCosts& into = rep < 0 ? warmUp : costs;
        measure(frameSmall, 20000, into.frameSmall);
        measure(rawSmall, 20000, into.rawSmall);
        measure(frameLarge, 1000, into.frameLarge);
        measure(rawLarge, 1000, into.rawLarge);
    }
    dds_delete(participant);
    return costs;
}

void sendRows(int base, int reps) {
    const SendCosts sc = sendPath(base + 6, base + 7, reps);
    row("3 send CmdRaiseAlarm (ns/call)", fmtSummary(sc.frameSmall.ns), fmtSummary(sc.rawSmall.ns),
        pairRatios(sc.frameSmall.ns, sc.rawSmall.ns), "-");
    const double smallNews = summarize(sc.frameSmall.news).median;
    row("3 send CmdRaiseAlarm (operator new/call)", fmt(smallNews, 2), fmt(summarize(sc.rawSmall.news).median, 2), "-",
        "0 " + verdict(smallNews < 0.01));
    row("3 send CmdRaiseAlarm (malloc/call)", fmt(summarize(sc.frameSmall.mallocs).median, 2),
        fmt(summarize(sc.rawSmall.mallocs).median, 2), "-", "-");
    row("3 send ReportAlertStatus x300 (ns/call)", fmtSummary(sc.frameLarge.ns), fmtSummary(sc.rawLarge.ns),
        pairRatios(sc.frameLarge.ns, sc.rawLarge.ns), "-");
    row("3 send ReportAlertStatus (operator new/call)", fmt(summarize(sc.frameLarge.news).median, 2),
        fmt(summarize(sc.rawLarge.news).median, 2), "-", "0 " + verdict(summarize(sc.frameLarge.news).median < 0.01));
    row("3 send ReportAlertStatus (malloc/call)", fmt(summarize(sc.frameLarge.mallocs).median, 2),
        fmt(summarize(sc.rawLarge.mallocs).median, 2), "-", "-");
}

// Writer and reader in this one process, `n` messages and then markers until the reader has seen one
// (every large message is a marker and is answered before the next).
int profile(const std::string& variant, const std::string& size, int n) {
    keepAllReports(size == "large-all");
    const int domain = 1 + static_cast<int>(getpid() % 190);
    std::mutex mutex;
    std::condition_variable acked;
    std::string last;
    Counter counter;
    counter.ack = [&](const std::string& line) {
        std::lock_guard<std::mutex> lock(mutex);
        last = line;
        acked.notify_all();
    };
    Sink sink(variant, size, domain, counter);
    const std::unique_ptr<Source> source = makeSource(variant, size, domain);
    auto waitAck = [&](int id, int ms) {
        std::unique_lock<std::mutex> lock(mutex);
        return acked.wait_for(lock, std::chrono::milliseconds(ms), [&] { return last.rfind("ack " + std::to_string(id) + " ", 0) == 0; });
    };
    int id = 1;
    while (!waitAck(id, 0)) {  // discovery
        source->send(true, id);
        if (!waitAck(id, 100) && ++id > 600) throw std::runtime_error("profile: the reader never answered");
    }
    const auto t0 = Clock::now();
    if (size == "large") {
        // Keep-last 1 would let the reader skip most messages: here each one waits for its reader.
        for (int i = 0; i < n; ++i) {
            source->send(true, ++id);
            if (!waitAck(id, 5000)) throw std::runtime_error("profile: a large message went unanswered");
        }
    } else {
        for (int i = 0; i < n; ++i) source->send(false, 0);
    }
    source->send(true, ++id);
    while (!waitAck(id, 1000)) source->send(true, ++id);  // keep-last 1 may replace a marker in flight
    std::printf("%s %s: %d messages in %.3f s, %s\n", variant.c_str(), size.c_str(), n, secondsSince(t0), last.c_str());
    return 0;
}

}  // namespace vantrel::bench
