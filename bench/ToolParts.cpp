// The vantrel tool measured beside plain ddsc subscribers, on domain ids held through Domains:
//   record  the recorder against a plain subscriber in the same run (counts and CPU); the recordings
//           compared byte for byte with what was sent, replayed into a fresh domain, recorded again
//           and compared
//   rate    what "vantrel hz" and "vantrel bw" report against the rate and bytes actually sent
// Rows go to the table; a count or byte that differs throws after them, a process that does not answer
// or end in time at once.
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <stdexcept>
#include <thread>
#include <vector>

#include "Child.h"
#include "Domains.h"
#include "Parts.h"
#include "Table.h"
#include "ToolStreams.h"
#include "vantrel/mcap/Reader.h"

namespace vantrel::bench {

namespace {

using Clock = std::chrono::steady_clock;

const char* const kTool = VANTREL_BENCH_TOOL;
const char* const kSelf = "/proc/self/exe";
// After the writer has matched its readers: a reader that has not yet matched the writer in turn would
// drop what it sends first.
constexpr double kSettleSeconds = 0.5;

double seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

// A directory for the recordings, removed with everything in it.
class TempDir {
public:
    TempDir() {
        char name[] = "/tmp/vantrel-bench-XXXXXX";
        if (!mkdtemp(name)) throw std::runtime_error("mkdtemp failed");
        m_path = name;
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    std::string file(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

// Writes messages 1..n at `hz` (absolute deadlines, so late wake-ups do not add up) or, with hz 0, as fast
// as the writer takes them; the time of each write goes to `times` when given.
void send(StreamWriter& writer, long n, double hz, std::vector<Clock::time_point>* times = nullptr) {
    const auto t0 = Clock::now();
    for (long i = 0; i < n; ++i) {
        if (hz > 0)
            std::this_thread::sleep_until(t0 + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(i / hz)));
        if (times) times->push_back(Clock::now());
        writer.write(static_cast<uint32_t>(i + 1));
    }
}

// The number after `prefix` in the last line of `child` that starts with it; -1 when there is none.
long numberAfter(const Child& child, const std::string& prefix) {
    long value = -1;
    for (const auto& l : child.lines())
        if (l.text.rfind(prefix, 0) == 0) value = std::atol(l.text.c_str() + prefix.size());
    return value;
}

// The payloads of a recording's messages in log-time order.
std::vector<std::vector<uint8_t>> payloads(const std::string& path) {
    std::vector<std::vector<uint8_t>> out;
    mcap::Reader reader(path);
    reader.forEachMessage([&](const mcap::MessageView& m) {
        out.emplace_back(m.data, m.data + m.size);
        return true;
    });
    return out;
}

long messageCount(const std::string& path) {
    long n = 0;
    mcap::Reader(path).forEachMessage([&](const mcap::MessageView&) { return ++n > 0; });
    return n;
}

// ---- record: the recorder beside a plain subscriber ----

struct RecordRun {
    long recorded = 0, received = 0;  // in the file; by the plain subscriber
    double rate = 0;                  // messages per second the writer achieved
    double recorderCpu = 0, subscriberCpu = 0, idleRecorderCpu = 0, idleSubscriberCpu = 0;  // seconds
};

// One run: a recorder and a plain subscriber of the stream on `domain`, both started and stopped together,
// and an idle pair of both on `idleDomain` over the same time; `n` messages at `hz` (0: full speed).
RecordRun recordOnce(Stream stream, int domain, int idleDomain, long n, double hz, const std::string& compression,
                     const std::string& file, const std::string& idleFile, std::vector<std::string>& failures) {
    const StreamInfo& s = infoOf(stream);
    const std::string d = std::to_string(domain), di = std::to_string(idleDomain), count = std::to_string(n);
    Child recorder({kTool, "record", "-d", d, "--compression", compression, "-o", file, s.operation});
    Child subscriber({kSelf, "peer", "subscriber", s.name, d, count});
    Child idleRecorder({kTool, "record", "-d", di, "--compression", compression, "-o", idleFile, s.operation});
    Child idleSubscriber({kSelf, "peer", "subscriber", s.name, di, count});
    for (Child* c : {&recorder, &idleRecorder}) c->waitFor("recording", 30);
    for (Child* c : {&subscriber, &idleSubscriber}) c->waitFor("ready", 30);

    RecordRun run;
    {
        StreamWriter writer(stream, domain);
        writer.waitMatched(2, 30);
        std::this_thread::sleep_for(std::chrono::duration<double>(kSettleSeconds));
        std::vector<Clock::time_point> times;
        times.reserve(static_cast<std::size_t>(n));
        send(writer, n, hz, &times);
        run.rate = static_cast<double>(n - 1) / seconds(times.back() - times.front());
        if (!writer.flush(30)) failures.push_back(std::string(s.name) + ": not every message acknowledged within 30 s");
        try {
            subscriber.waitFor("have", 30);
        } catch (const std::exception&) {
            failures.push_back(std::string(s.name) + ": the plain subscriber did not receive all " + count + " within 30 s");
        }
        recorder.interrupt();
        subscriber.closeInput();
        idleRecorder.interrupt();
        idleSubscriber.closeInput();
        const Child::End r = recorder.finish(60), sub = subscriber.finish(30);
        const Child::End ir = idleRecorder.finish(30), is = idleSubscriber.finish(30);
        for (const Child::End& e : {r, sub, ir, is})
            if (e.exitCode != 0) failures.push_back(std::string(s.name) + ": a process ended with " + std::to_string(e.exitCode));
        run.recorderCpu = r.cpuSeconds;
        run.subscriberCpu = sub.cpuSeconds;
        run.idleRecorderCpu = ir.cpuSeconds;
        run.idleSubscriberCpu = is.cpuSeconds;
    }
    run.received = numberAfter(subscriber, "count ");
    run.recorded = messageCount(file);
    const long says = numberAfter(recorder, "recorded ");
    if (says != run.recorded)
        failures.push_back(std::string(s.name) + ": the recorder says " + std::to_string(says) + ", its file holds " +
                           std::to_string(run.recorded));
    if (run.recorded != run.received || run.received != n)
        failures.push_back(std::string(s.name) + ": sent " + count + ", received " + std::to_string(run.received) +
                           ", recorded " + std::to_string(run.recorded));
    return run;
}

struct ReplayCheck {
    long original = 0, copy = 0, identical = 0;
};

// The recording replayed (as fast as possible) into `domain` while a second recorder records that domain;
// the two recordings' messages compared in order, byte for byte.
ReplayCheck replayOnce(Stream stream, int domain, const std::string& original, const std::string& copy,
                       std::vector<std::string>& failures) {
    const StreamInfo& s = infoOf(stream);
    const std::string d = std::to_string(domain);
    Child recorder({kTool, "record", "-d", d, "-o", copy, s.operation});
    recorder.waitFor("recording", 30);
    {
        Child replayer({kTool, "replay", "-d", d, "--rate", "0", "--wait-match", "30", original});
        const Child::End e = replayer.finish(120);
        if (e.exitCode != 0)
            failures.push_back(std::string(s.name) + ": replay ended with " + std::to_string(e.exitCode) + replayer.output());
    }
    recorder.interrupt();
    if (recorder.finish(60).exitCode != 0) failures.push_back(std::string(s.name) + ": the second recorder failed");

    ReplayCheck check;
    const auto before = payloads(original);
    check.original = static_cast<long>(before.size());
    mcap::Reader(copy).forEachMessage([&](const mcap::MessageView& m) {
        const auto i = static_cast<std::size_t>(check.copy++);
        if (i < before.size() && before[i].size() == m.size && std::equal(before[i].begin(), before[i].end(), m.data))
            ++check.identical;
        return true;
    });
    if (check.identical != check.original || check.copy != check.original)
        failures.push_back(std::string(s.name) + " replay: " + std::to_string(check.identical) + " of " +
                           std::to_string(check.original) + " identical, " + std::to_string(check.copy) + " recorded again");
    return check;
}

// The first recording's messages against the bytes the writer serialized for each message it sent.
long identicalToSent(Stream stream, int domain, const std::string& file, long n, std::vector<std::string>& failures) {
    StreamWriter local(stream, domain);
    long i = 0, identical = 0;
    mcap::Reader(file).forEachMessage([&](const mcap::MessageView& m) {
        const auto sent = local.serialized(static_cast<uint32_t>(++i));
        if (sent.size() == m.size && std::equal(sent.begin(), sent.end(), m.data)) ++identical;
        return true;
    });
    if (identical != n || i != n)
        failures.push_back(std::string(infoOf(stream).name) + ": " + std::to_string(identical) + " of " + std::to_string(i) +
                           " recorded messages are the bytes sent");
    return identical;
}

struct RecordCase {
    Stream stream;
    long n;
    double hz;                // 0: full speed
    const char* compression;  // the recorder's
    const char* label;
    bool replay;              // its first recording is replayed
};

void recordCaseRows(const RecordCase& c, const std::vector<RecordRun>& runs) {
    std::vector<double> recorded, received, rate, rec, sub, idleRec, idleSub, netRec, netSub, whole, net, idle;
    for (const RecordRun& r : runs) {
        recorded.push_back(static_cast<double>(r.recorded));
        received.push_back(static_cast<double>(r.received));
        rate.push_back(r.rate);
        rec.push_back(r.recorderCpu * 1e3);
        sub.push_back(r.subscriberCpu * 1e3);
        idleRec.push_back(r.idleRecorderCpu * 1e3);
        idleSub.push_back(r.idleSubscriberCpu * 1e3);
        netRec.push_back((r.recorderCpu - r.idleRecorderCpu) * 1e3);
        netSub.push_back((r.subscriberCpu - r.idleSubscriberCpu) * 1e3);
        whole.push_back(r.recorderCpu / r.subscriberCpu);
        net.push_back(netRec.back() / netSub.back());
        idle.push_back(r.idleRecorderCpu / r.idleSubscriberCpu);
    }
    bool allCounted = true;
    for (const RecordRun& r : runs) allCounted = allCounted && r.recorded == r.received && r.received == c.n;
    row(std::string("5 record ") + c.label + " (msgs)", fmtSummary(recorded), fmtSummary(received),
        "sent " + std::to_string(c.n), "all, equal " + verdict(allCounted));
    row("5 same, writer's rate (msg/s)", fmtSummary(rate, c.hz > 0 ? 2 : 0), "-", "-", c.hz > 0 ? "paced" : "full speed");
    row("5 same, CPU whole run (ms)", fmtSummary(rec), fmtSummary(sub), fmtSummary(whole, 2),
        "<= 1.50 " + verdict(summarize(whole).median <= 1.5));
    row("5 same, CPU of an idle pair meanwhile (ms)", fmtSummary(idleRec), fmtSummary(idleSub), fmtSummary(idle, 2), "-");
    row("5 same, CPU less idle (ms)", fmtSummary(netRec), fmtSummary(netSub), fmtSummary(net, 2),
        "<= 1.50 " + verdict(summarize(net).median <= 1.5));
}

// ---- rate: what hz and bw report against what was sent ----

struct RateCheck {
    std::vector<double> reportedHz, sentHz, hzErrors, reportedBw, sentBw, bwErrors;  // errors in percent
};

// Bytes per second of a bw figure: "12.34 kB/s" -> 12340.
double bytesPerSecond(const std::string& text) {
    double value = 0;
    char unit[8] = {};
    if (std::sscanf(text.c_str(), "%lf %7s", &value, unit) != 2) return -1;
    const std::string u = unit;
    return u == "MB/s" ? value * 1e6 : u == "kB/s" ? value * 1e3 : u == "B/s" ? value : -1;
}

// The writer's rate over the writes in [from, to], the same estimator the tool uses on arrivals:
// (samples - 1) / (last - first).
double sentRate(const std::vector<Clock::time_point>& times, Clock::time_point from, Clock::time_point to) {
    std::size_t first = times.size(), last = 0, k = 0;
    for (std::size_t i = 0; i < times.size(); ++i)
        if (times[i] >= from && times[i] <= to) {
            first = std::min(first, i);
            last = i;
            ++k;
        }
    if (k < 2) return 0;
    return static_cast<double>(k - 1) / seconds(times[last] - times[first]);
}

// `vantrel hz` and `vantrel bw` (default window) on `domain` while the writer sends at `hz` for `duration`
// seconds; every figure they print whose window lies within the stream is compared.
RateCheck rateOnce(Stream stream, int domain, double hz, double duration, std::vector<std::string>& failures) {
    constexpr double kWindow = 5.0;  // the tool's default
    const StreamInfo& s = infoOf(stream);
    const std::string d = std::to_string(domain);
    const std::string prefix = std::string(s.topic) + ": ";
    Child hzTool({kTool, "hz", "-d", d, s.operation});
    Child bwTool({kTool, "bw", "-d", d, s.operation});
    StreamWriter writer(stream, domain);
    const double size = static_cast<double>(writer.serialized(0).size());
    writer.waitMatched(2, 30);
    std::this_thread::sleep_for(std::chrono::duration<double>(kSettleSeconds));
    std::vector<Clock::time_point> times;
    times.reserve(static_cast<std::size_t>(hz * duration));
    send(writer, static_cast<long>(hz * duration), hz, &times);
    const auto end = Clock::now();
    writer.flush(10);
    hzTool.interrupt();
    bwTool.interrupt();
    for (Child* c : {&hzTool, &bwTool})
        if (c->finish(30).exitCode != 0) failures.push_back(std::string(s.name) + ": hz or bw failed" + c->output());

    RateCheck check;
    const auto windowSpan = std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(kWindow));
    auto inStream = [&](Clock::time_point t) { return t - windowSpan >= times.front() + std::chrono::milliseconds(200) && t <= end; };
    for (const auto& l : hzTool.lines()) {
        const auto at = l.text.find("average rate ");
        if (l.text.rfind(prefix, 0) != 0 || at == std::string::npos || !inStream(l.time)) continue;
        const double reported = std::atof(l.text.c_str() + at + 13), sent = sentRate(times, l.time - windowSpan, l.time);
        check.reportedHz.push_back(reported);
        check.sentHz.push_back(sent);
        check.hzErrors.push_back(std::fabs(reported / sent - 1) * 100);
    }
    for (const auto& l : bwTool.lines()) {
        if (l.text.rfind(prefix, 0) != 0 || !inStream(l.time)) continue;
        const double reported = bytesPerSecond(l.text.substr(prefix.size()));
        const double sent = size * sentRate(times, l.time - windowSpan, l.time);
        check.reportedBw.push_back(reported);
        check.sentBw.push_back(sent);
        check.bwErrors.push_back(std::fabs(reported / sent - 1) * 100);
    }
    if (check.hzErrors.empty() || check.bwErrors.empty())
        failures.push_back(std::string(s.name) + ": no full window from hz or bw" + hzTool.output() + bwTool.output());
    return check;
}

std::string worst(const std::vector<double>& errors) {
    return errors.empty() ? "-" : fmt(*std::max_element(errors.begin(), errors.end()), 3) + " %";
}

void failIfAny(const std::vector<std::string>& failures) {
    if (failures.empty()) return;
    std::string all;
    for (const auto& f : failures) all += "\n  " + f;
    throw std::runtime_error("tool part:" + all);
}

}  // namespace

void recordRows() {
    constexpr int kReps = 3;
    const RecordCase cases[] = {{Stream::Small, 100000, 0, "zstd", "CmdRaiseAlarm x100000", true},
                                {Stream::Large, 150, 30, "zstd", "1 MB x150 at 30 Hz", true},
                                {Stream::Large, 150, 30, "none", "1 MB, --compression none", false}};
    TempDir dir;
    std::vector<std::string> failures;
    row("tool part", "vantrel", "plain subscriber", "vantrel/plain", "target");
    // A fresh domain per run (none sees what a process of the run before may still send), one for the idle
    // pairs, one per replay.
    const auto replays = std::count_if(std::begin(cases), std::end(cases), [](const RecordCase& c) { return c.replay; });
    const Domains domains(static_cast<int>(std::size(cases)) * kReps + 1 + static_cast<int>(replays));
    std::size_t next = 0;
    const int idleDomain = domains[next++];
    for (const RecordCase& c : cases) {
        std::vector<RecordRun> runs;
        for (int rep = 0; rep < kReps; ++rep) {
            const std::string name = std::string(infoOf(c.stream).name) + "-" + c.compression + "-" + std::to_string(rep);
            runs.push_back(recordOnce(c.stream, domains[next++], idleDomain, c.n, c.hz, c.compression, dir.file(name + ".mcap"),
                                      dir.file("idle-" + name + ".mcap"), failures));
        }
        recordCaseRows(c, runs);
    }
    row("tool part", "identical", "compared", "-", "target");
    for (const RecordCase& c : cases) {
        if (!c.replay) continue;
        const std::string name = std::string(infoOf(c.stream).name) + "-" + c.compression;
        const std::string first = dir.file(name + "-0.mcap");
        const int domain = domains[next++];
        const long same = identicalToSent(c.stream, domain, first, c.n, failures);
        row(std::string("6 ") + c.label + ": recorded = sent", std::to_string(same), std::to_string(c.n), "-",
            "all " + verdict(same == c.n));
        const ReplayCheck r = replayOnce(c.stream, domain, first, dir.file(name + "-replayed.mcap"), failures);
        row(std::string("6 same, replayed and recorded again"), std::to_string(r.identical),
            std::to_string(std::max(r.original, r.copy)), "-", "all " + verdict(r.identical == r.original && r.copy == r.original));
    }
    failIfAny(failures);
}

void rateRows() {
    const Domains domains(2);
    std::vector<std::string> failures;
    row("tool part", "vantrel reports", "sent by the writer", "max |error|", "target");
    struct Case {
        Stream stream;
        double hz;
        const char* label;
    };
    const Case cases[] = {{Stream::Small, 1000, "CmdRaiseAlarm at 1 kHz"}, {Stream::Large, 30, "1 MB at 30 Hz"}};
    for (const Case& c : cases) {
        const RateCheck r = rateOnce(c.stream, domains[c.stream == Stream::Large ? 1 : 0], c.hz, 8.5, failures);
        const double hzWorst = r.hzErrors.empty() ? 100 : *std::max_element(r.hzErrors.begin(), r.hzErrors.end());
        const double bwWorst = r.bwErrors.empty() ? 100 : *std::max_element(r.bwErrors.begin(), r.bwErrors.end());
        auto kB = [](std::vector<double> v) {
            for (double& x : v) x /= 1e3;
            return v;
        };
        const int decimals = c.hz >= 100 ? 2 : 3;
        row(std::string("7 hz ") + c.label + " (Hz)", fmtSummary(r.reportedHz, decimals), fmtSummary(r.sentHz, decimals),
            worst(r.hzErrors) + " of " + std::to_string(r.hzErrors.size()), "<= 1 % " + verdict(hzWorst <= 1));
        row(std::string("7 bw ") + c.label + " (kB/s)", fmtSummary(kB(r.reportedBw), 1), fmtSummary(kB(r.sentBw), 1),
            worst(r.bwErrors) + " of " + std::to_string(r.bwErrors.size()), "<= 1 % " + verdict(bwWorst <= 1));
    }
    failIfAny(failures);
}

}  // namespace vantrel::bench
