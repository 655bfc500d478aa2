#include "RoundTrip.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "Parts.h"
#include "Table.h"

namespace vantrel::bench {

RoundTripSide::RoundTripSide(const std::string& variant, int domain, int warmUp)
    : m_peer(Child::peer({"echo", variant, std::to_string(domain)})) {
    m_peer.waitFor("ready", 20);
    m_replies.p = &m_pingPong;
    if (variant == "frame") {
        m_session = makeSession(domain);
        m_client = M_Alert::Client::create(m_session, "bench-rt", m_replies);
        m_pingPong.send = [this](uint32_t seq) {
            m_condition.Nature = std::to_string(seq);
            m_client->CmdRaiseAlarm(m_condition);
        };
    } else {
        m_participant = dds_create_participant(domain, nullptr, nullptr);
        m_writer = rawWriter(m_participant, &VendorData_M_Alert_IService_CmdRaiseAlarm_desc, kSmallTopic);
        m_reader = std::make_unique<RawReader>(m_participant, &VendorData_M_Alert_IClient_ReportAlarmLog_desc, kLogTopic, [this](const void* s) {
            const auto& m = *static_cast<const VendorData_M_Alert_IClient_ReportAlarmLog*>(s);
            m_pingPong.onReply(static_cast<uint32_t>(std::strtoul(m.Alarm.Condition.Nature, nullptr, 10)));
        });
        m_message = {const_cast<char*>(kRawActor), wireOf(m_condition)};
        m_pingPong.send = [this](uint32_t seq) {
            std::snprintf(m_seqText, sizeof m_seqText, "%u", seq);
            m_message.Condition.Nature = m_seqText;
            check(dds_write(m_writer, &m_message), "dds_write");
        };
        waitMatched(m_writer, 1, 20);
    }
    // Until both sides have discovered each other, a command or its reply may go unheard: retry.
    for (const auto t0 = Clock::now(); m_pingPong.run(1, 100).empty();)
        if (secondsSince(t0) > 20) throw std::runtime_error("round trip: no reply");
    m_pingPong.run(warmUp, 30000);
}

RoundTripSide::~RoundTripSide() {
    m_client.invalidate();
    m_reader.reset();
    if (m_participant) dds_delete(m_participant);
}

std::vector<double> RoundTripSide::run(int count) {
    auto latencies = m_pingPong.run(count, 60000);
    if (static_cast<int>(latencies.size()) != count) throw std::runtime_error("round trip: replies missing");
    return latencies;
}

void RoundTripSide::Replies::ReportAlarmLog(const std::string&, const M_Alert::AlarmLogType& log, bool) {
    p->onReply(static_cast<uint32_t>(std::strtoul(log.Condition.Nature.c_str(), nullptr, 10)));
}

int peerEcho(const std::string& variant, int domain) {
    if (variant == "frame") {
        struct Echo : M_Alert::IService {
            std::atomic<M_Alert::Service*> service{nullptr};
            M_Alert::AlarmLogType log;
            void CmdRaiseAlarm(const M_Alert::AlarmConditionInfoType& c) override {
                log.Condition = c;
                (*service.load())->ReportAlarmLog("A1", log, false);
            }
        } echo;
        auto session = makeSession(domain);
        auto service = M_Alert::Service::create(session, "bench-echo", echo);
        echo.service = &service;
        say("ready");
        waitForStdinEof();
        return 0;
    }
    const dds_entity_t participant = dds_create_participant(domain, nullptr, nullptr);
    {
        const dds_entity_t writer = rawWriter(participant, &VendorData_M_Alert_IClient_ReportAlarmLog_desc, kLogTopic);
        RawReader reader(participant, &VendorData_M_Alert_IService_CmdRaiseAlarm_desc, kSmallTopic, [&](const void* s) {
            VendorData_M_Alert_IClient_ReportAlarmLog reply{};
            reply.kelva_sending_actor = const_cast<char*>(kRawActor);
            reply.KeyAlarmId = const_cast<char*>("A1");
            reply.Alarm.Condition = static_cast<const VendorData_M_Alert_IService_CmdRaiseAlarm*>(s)->Condition;
            check(dds_write(writer, &reply), "dds_write");
        });
        say("ready");
        waitForStdinEof();
    }
    dds_delete(participant);
    return 0;
}

namespace {

struct RoundTrip {
    std::vector<double> frameMedians, frameP99s, rawMedians, rawP99s;
};

// Repetitions of `count` round trips, frame and raw alternating, each with fresh processes (see the
// throughput part).
RoundTrip roundTrip(int frameDomain, int rawDomain, int count, int reps) {
    RoundTrip result;
    for (int rep = 0; rep < reps; ++rep) {
        {
            RoundTripSide frame("frame", frameDomain, count / 4);
            const auto f = frame.run(count);
            result.frameMedians.push_back(quantile(f, 0.5));
            result.frameP99s.push_back(quantile(f, 0.99));
        }
        {
            RoundTripSide raw("raw", rawDomain, count / 4);
            const auto r = raw.run(count);
            result.rawMedians.push_back(quantile(r, 0.5));
            result.rawP99s.push_back(quantile(r, 0.99));
        }
    }
    return result;
}

}  // namespace

void roundTripRows(int base) {
    const RoundTrip rt = roundTrip(base + 4, base + 5, 2000, 7);
    const double ratio = summarize(ratiosOf(rt.frameMedians, rt.rawMedians)).median;
    row("2 round trip median (us)", fmtSummary(rt.frameMedians, 1), fmtSummary(rt.rawMedians, 1),
        pairRatios(rt.frameMedians, rt.rawMedians), "<= 1.15 " + verdict(ratio <= 1.15));
    row("2 round trip p99 (us)", fmtSummary(rt.frameP99s, 1), fmtSummary(rt.rawP99s, 1), pairRatios(rt.frameP99s, rt.rawP99s), "-");
}

}  // namespace vantrel::bench
