#pragma once
// Round trip of CmdRaiseAlarm answered by ReportAlarmLog: the client here, the echoing service in a peer
// process ("vantrel-bench peer echo <frame|raw> <domain>"). The secured part times the frame with it too.
#include <memory>
#include <string>
#include <vector>

#include "Child.h"
#include "Common.h"
#include "PingPong.h"

namespace vantrel::bench {

// One variant's client side (here) and echoing service (a peer process), discovered and warmed up.
class RoundTripSide {
public:
    RoundTripSide(const std::string& variant, int domain, int warmUp);
    ~RoundTripSide();
    RoundTripSide(const RoundTripSide&) = delete;
    RoundTripSide& operator=(const RoundTripSide&) = delete;

    // Latencies in microseconds of `count` round trips.
    std::vector<double> run(int count);

private:
    struct Replies : M_Alert::IClient {
        PingPong* p = nullptr;
        void ReportAlarmLog(const std::string&, const M_Alert::AlarmLogType& log, bool) override;
    };
    Child m_peer;
    PingPong m_pingPong;
    M_Alert::AlarmConditionInfoType m_condition = smallCondition();
    Replies m_replies;
    std::shared_ptr<Session> m_session;
    M_Alert::Client m_client;  // after the replies it calls
    dds_entity_t m_participant = 0, m_writer = 0;
    std::unique_ptr<RawReader> m_reader;
    VendorData_M_Alert_IService_CmdRaiseAlarm m_message{};
    char m_seqText[16] = {};
};

}  // namespace vantrel::bench
