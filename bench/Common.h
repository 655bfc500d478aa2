#pragma once
// What the frame/raw parts share: frame sessions with the toolkit's defaults, raw ddsc entities with the
// same QoS, the raw reader thread, and the messages (the API values and their idlc C forms).
#include <dds/dds.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "M_Alert.h"  // the idlc C types
#include "kelva/actors/Session.h"
#include "vantrel/M_Alert.h"

namespace vantrel::bench {

using Clock = std::chrono::steady_clock;
using kelva::actors::Session;

double secondsSince(Clock::time_point t0);

// ---- Sessions and raw entities with the toolkit's default QoS ----

// Set for the throughput of every large message: the state reports' topics become volatile keep-all (the
// rest as by default), on both sides. With the default keep-last 1 the reader skips whatever a newer
// message replaced before its take, so how much it processes depends on scheduling.
void keepAllReports(bool on);

std::shared_ptr<Session> makeSession(int domain, int firstWriteTimeoutMs = 2000);

// Throws unless the DDS layer accepted the call.
void check(dds_return_t rc, const char* what);

// The toolkit's default QoS for the topic, for a topic or reader (forWriter false) or a writer.
dds_qos_t* rawQos(const char* topicName, bool forWriter);
dds_entity_t rawTopic(dds_entity_t participant, const dds_topic_descriptor_t* desc, const char* name);
dds_entity_t rawWriter(dds_entity_t participant, const dds_topic_descriptor_t* desc, const char* name);
dds_entity_t rawReader(dds_entity_t participant, const dds_topic_descriptor_t* desc, const char* name,
                       const dds_listener_t* listener = nullptr);
// Throws unless `readers` readers match `writer` within `seconds`.
void waitMatched(dds_entity_t writer, int readers, double seconds);

// Takes every sample of `reader` (through `condition`, or the reader itself) as loans in batches of 16,
// handing valid data to `onSample`.
void takeEach(dds_entity_t reader, dds_entity_t condition, const std::function<void(const void*)>& onSample);

// A raw reader with its own thread, like the toolkit's dispatcher: a waitset on a read condition, each
// sample as takeEach hands it. Owns `reader` (deleted with the object).
class RawReader {
public:
    RawReader(dds_entity_t participant, dds_entity_t reader, std::function<void(const void*)> onSample);
    // A reader of the topic with the toolkit's default QoS.
    RawReader(dds_entity_t participant, const dds_topic_descriptor_t* desc, const char* name,
              std::function<void(const void*)> onSample)
        : RawReader(participant, rawReader(participant, desc, name), std::move(onSample)) {}
    ~RawReader();
    RawReader(const RawReader&) = delete;
    RawReader& operator=(const RawReader&) = delete;

private:
    void run();

    std::function<void(const void*)> m_onSample;
    dds_entity_t m_reader = 0, m_condition = 0, m_waitset = 0, m_wakeup = 0;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

// ---- The messages ----

M_Alert::AlarmConditionInfoType smallCondition();
M_Alert::AlertStatusType largeStatus();  // 300 entries

// The raw messages point at the API values' strings.
VendorData_M_Alert_AlarmConditionInfoType wireOf(const M_Alert::AlarmConditionInfoType& c);
// The element array lives in `elements`.
VendorData_M_Alert_IClient_ReportAlertStatus wireOf(const M_Alert::AlertStatusType& s, const char* actor,
                                                    std::vector<VendorData_M_Alert_AlarmConditionStatusType>& elements);

inline const char* const kRawActor = "bench-raw-actor";
inline const char* const kSmallTopic = "M_Alert_IService_CmdRaiseAlarm";
inline const char* const kLargeTopic = "M_Alert_IClient_ReportAlertStatus";
inline const char* const kLogTopic = "M_Alert_IClient_ReportAlarmLog";

}  // namespace vantrel::bench
