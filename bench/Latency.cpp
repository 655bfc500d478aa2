// The smallest round trip of the interface: M_SignalGenerator ConfigGeneratorState answered by
// ReportGeneratorState from the service's handler, the frame against a raw ping-pong with a waitset thread
// per side (one thread hand-off per hop, as the frame's dispatcher) and one with listeners (delivery on
// the DDS layer's receive thread). The service is a peer ("vantrel-bench peer pong <variant> <domain>").
#include <atomic>
#include <cstring>
#include <functional>
#include <memory>
#include <stdexcept>
#include <vector>

#include "Child.h"
#include "Common.h"
#include "M_SignalGenerator.h"  // the idlc C types
#include "Parts.h"
#include "PingPong.h"
#include "Table.h"
#include "vantrel/M_SignalGenerator.h"

namespace vantrel::bench {

namespace {

const char* const kPingTopic = "M_SignalGenerator_IService_ConfigGeneratorState";
const char* const kPongTopic = "M_SignalGenerator_IClient_ReportGeneratorState";

// A raw reader whose samples are handed to `onSample` on the DDS layer's receive thread (a listener).
class RawListenerReader {
public:
    RawListenerReader(dds_entity_t participant, const dds_topic_descriptor_t* desc, const char* name,
                      std::function<void(const void*)> onSample)
        : m_onSample(std::move(onSample)) {
        dds_listener_t* listener = dds_create_listener(this);
        dds_lset_data_available(listener, &onData);
        try {
            m_reader = rawReader(participant, desc, name, listener);
        } catch (...) {
            dds_delete_listener(listener);
            throw;
        }
        dds_delete_listener(listener);
    }
    ~RawListenerReader() { dds_delete(m_reader); }
    RawListenerReader(const RawListenerReader&) = delete;
    RawListenerReader& operator=(const RawListenerReader&) = delete;

private:
    static void onData(dds_entity_t reader, void* arg) {
        takeEach(reader, reader, static_cast<RawListenerReader*>(arg)->m_onSample);
    }
    std::function<void(const void*)> m_onSample;
    dds_entity_t m_reader = 0;
};

// Raw ping-pong endpoints of one process: a writer of `out` and a reader of `in` (waitset thread or
// listener) calling `onValue` with the uint32 carried.
class RawPingPongEnd {
public:
    RawPingPongEnd(int domain, bool listener, const dds_topic_descriptor_t* outDesc, const char* out,
                   const dds_topic_descriptor_t* inDesc, const char* in, std::function<void(uint32_t)> onValue)
        : m_participant(dds_create_participant(domain, nullptr, nullptr)) {
        check(m_participant, "dds_create_participant");
        m_writer = rawWriter(m_participant, outDesc, out);
        const bool inIsPing = std::strcmp(in, kPingTopic) == 0;
        auto value = [inIsPing](const void* s) {
            return inIsPing ? static_cast<const VendorData_M_SignalGenerator_IService_ConfigGeneratorState*>(s)->State
                            : static_cast<const VendorData_M_SignalGenerator_IClient_ReportGeneratorState*>(s)->GeneratorState;
        };
        auto handler = [value, onValue = std::move(onValue)](const void* s) { onValue(value(s)); };
        if (listener) m_listenerReader = std::make_unique<RawListenerReader>(m_participant, inDesc, in, handler);
        else m_waitsetReader = std::make_unique<RawReader>(m_participant, inDesc, in, handler);
    }
    ~RawPingPongEnd() {
        m_waitsetReader.reset();
        m_listenerReader.reset();
        dds_delete(m_participant);
    }
    RawPingPongEnd(const RawPingPongEnd&) = delete;
    RawPingPongEnd& operator=(const RawPingPongEnd&) = delete;

    void sendPing(uint32_t v) {
        VendorData_M_SignalGenerator_IService_ConfigGeneratorState m{const_cast<char*>(kRawActor), v};
        check(dds_write(m_writer, &m), "dds_write");
    }
    void sendPong(uint32_t v) {
        VendorData_M_SignalGenerator_IClient_ReportGeneratorState m{const_cast<char*>(kRawActor), v};
        check(dds_write(m_writer, &m), "dds_write");
    }
    dds_entity_t writer() const { return m_writer; }

private:
    dds_entity_t m_participant;
    dds_entity_t m_writer = 0;
    std::unique_ptr<RawReader> m_waitsetReader;
    std::unique_ptr<RawListenerReader> m_listenerReader;
};

// One variant's pinging client (here) and its ponging service (a peer process), discovered and warmed up.
class LatencySide {
public:
    LatencySide(const std::string& variant, int domain, int warmUp) : m_peer(Child::peer({"pong", variant, std::to_string(domain)})) {
        m_peer.waitFor("ready", 20);
        m_replies.p = &m_pingPong;
        if (variant == "frame") {
            m_session = makeSession(domain);
            m_client = M_SignalGenerator::Client::create(m_session, "bench-ping", m_replies);
            m_pingPong.send = [this](uint32_t seq) { m_client->ConfigGeneratorState(seq); };
        } else {
            m_raw = std::make_unique<RawPingPongEnd>(domain, variant == "raw-listener",
                                                     &VendorData_M_SignalGenerator_IService_ConfigGeneratorState_desc, kPingTopic,
                                                     &VendorData_M_SignalGenerator_IClient_ReportGeneratorState_desc, kPongTopic,
                                                     [this](uint32_t v) { m_pingPong.onReply(v); });
            m_pingPong.send = [this](uint32_t seq) { m_raw->sendPing(seq); };
            waitMatched(m_raw->writer(), 1, 20);
        }
        for (const auto t0 = Clock::now(); m_pingPong.run(1, 100).empty();)
            if (secondsSince(t0) > 20) throw std::runtime_error("latency: no reply");
        m_pingPong.run(warmUp, 30000);
    }
    ~LatencySide() {
        m_client.invalidate();
        m_raw.reset();
    }
    LatencySide(const LatencySide&) = delete;
    LatencySide& operator=(const LatencySide&) = delete;

    std::vector<double> run(int count) {
        auto latencies = m_pingPong.run(count, 60000);
        if (static_cast<int>(latencies.size()) != count) throw std::runtime_error("latency: replies missing");
        return latencies;
    }

private:
    struct Replies : M_SignalGenerator::IClient {
        PingPong* p = nullptr;
        void ReportGeneratorState(uint32_t state) override { p->onReply(state); }
    };
    Child m_peer;
    PingPong m_pingPong;
    Replies m_replies;
    std::shared_ptr<Session> m_session;
    M_SignalGenerator::Client m_client;  // after the replies it calls
    std::unique_ptr<RawPingPongEnd> m_raw;
};

struct Latency {
    std::vector<double> frameMedians, frameP99s, waitsetMedians, waitsetP99s, listenerMedians, listenerP99s;
};

// Repetitions of `count` round trips after `count / 10` to warm up, the three variants alternating, each
// with fresh processes.
Latency latency(int domain, int count, int reps) {
    Latency result;
    for (int rep = 0; rep < reps; ++rep) {
        for (const char* variant : {"frame", "raw-waitset", "raw-listener"}) {
            LatencySide side(variant, domain + rep % 2, count / 10);
            const auto l = side.run(count);
            const std::string v = variant;
            auto& medians = v == "frame" ? result.frameMedians : v == "raw-waitset" ? result.waitsetMedians : result.listenerMedians;
            auto& p99s = v == "frame" ? result.frameP99s : v == "raw-waitset" ? result.waitsetP99s : result.listenerP99s;
            medians.push_back(quantile(l, 0.5));
            p99s.push_back(quantile(l, 0.99));
        }
    }
    return result;
}

}  // namespace

// The service's side (peer): answers each ConfigGeneratorState with ReportGeneratorState of its value.
int peerPong(const std::string& variant, int domain) {
    if (variant == "frame") {
        struct Pong : M_SignalGenerator::IService {
            std::atomic<M_SignalGenerator::Service*> service{nullptr};
            void ConfigGeneratorState(uint32_t state) override { (*service.load())->ReportGeneratorState(state); }
        } pong;
        auto session = makeSession(domain);
        auto service = M_SignalGenerator::Service::create(session, "bench-pong", pong);
        pong.service = &service;
        say("ready");
        waitForStdinEof();
        return 0;
    }
    std::unique_ptr<RawPingPongEnd> end;
    std::atomic<RawPingPongEnd*> self{nullptr};
    end = std::make_unique<RawPingPongEnd>(domain, variant == "raw-listener", &VendorData_M_SignalGenerator_IClient_ReportGeneratorState_desc,
                                           kPongTopic, &VendorData_M_SignalGenerator_IService_ConfigGeneratorState_desc, kPingTopic,
                                           [&self](uint32_t v) {
                                               if (auto* e = self.load()) e->sendPong(v);
                                           });
    self = end.get();
    say("ready");
    waitForStdinEof();
    self = nullptr;
    end.reset();
    return 0;
}

void latencyRows(int base) {
    const Latency l = latency(base + 10, 10000, 5);
    const double median = summarize(ratiosOf(l.frameMedians, l.waitsetMedians)).median;
    const double p99 = summarize(ratiosOf(l.frameP99s, l.waitsetP99s)).median;
    row("2b latency median (us), raw = waitset", fmtSummary(l.frameMedians, 1), fmtSummary(l.waitsetMedians, 1),
        pairRatios(l.frameMedians, l.waitsetMedians), "<= 1.30 " + verdict(median <= 1.3));
    row("2b latency p99 (us), raw = waitset", fmtSummary(l.frameP99s, 1), fmtSummary(l.waitsetP99s, 1),
        pairRatios(l.frameP99s, l.waitsetP99s), "<= 1.50 " + verdict(p99 <= 1.5));
    row("2b latency median (us), raw = listener", fmtSummary(l.frameMedians, 1), fmtSummary(l.listenerMedians, 1),
        pairRatios(l.frameMedians, l.listenerMedians), "-");
    row("2b latency p99 (us), raw = listener", fmtSummary(l.frameP99s, 1), fmtSummary(l.listenerP99s, 1),
        pairRatios(l.frameP99s, l.listenerP99s), "-");
}

}  // namespace vantrel::bench
