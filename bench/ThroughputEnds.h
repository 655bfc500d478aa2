#pragma once
// The two ends of a throughput measurement, frame or raw, small (CmdRaiseAlarm) or large
// (ReportAlertStatus x300): a writer (Source) and a counting reader (Sink). The throughput part puts them
// in two processes, the profile run in one.
#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "Child.h"
#include "Common.h"

namespace vantrel::bench {

// The writer's side: send(marker, id) writes one message; the marker ends a batch and carries its id.
struct Source {
    virtual ~Source() = default;
    virtual void send(bool marker, int id) = 0;
};

// variant: "frame" or "raw"; size: "small", "large" or "large-all".
std::unique_ptr<Source> makeSource(const std::string& variant, const std::string& size, int domain);

// The reader's side: counts messages and answers each marker with "ack <id> <count>" (a peer says it).
struct Counter {
    std::atomic<long> count{0};
    std::function<void(const std::string&)> ack = say;
    void onMessage(const char* markerId);
};

// The frame's or raw reader of the small or large message, counting into `counter` until destroyed.
class Sink {
public:
    Sink(const std::string& variant, const std::string& size, int domain, Counter& counter);
    ~Sink();
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;

private:
    struct SmallImpl : M_Alert::IService {
        Counter* c = nullptr;
        void CmdRaiseAlarm(const M_Alert::AlarmConditionInfoType& v) override;
    } smallImpl;
    struct LargeImpl : M_Alert::IClient {
        Counter* c = nullptr;
        void ReportAlertStatus(const M_Alert::AlertStatusType& v, bool) override;
    } largeImpl;
    std::shared_ptr<Session> session;
    M_Alert::Service service;  // after the implementations they call
    M_Alert::Client client;
    dds_entity_t participant = 0;
    std::unique_ptr<RawReader> reader;
};

}  // namespace vantrel::bench
