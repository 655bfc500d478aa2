#include "ThroughputEnds.h"

#include <cstring>

namespace vantrel::bench {

namespace {

struct FrameSmallSource final : Source {
    std::shared_ptr<Session> session;
    M_Alert::Client client;
    M_Alert::AlarmConditionInfoType value = smallCondition(), marker = smallCondition();
    explicit FrameSmallSource(int domain) : session(makeSession(domain)), client(M_Alert::Client::createWriteOnly(session, "bench-writer")) {
        marker.Measure = "end";
    }
    void send(bool isMarker, int id) override {
        if (!isMarker) return client->CmdRaiseAlarm(value);
        marker.Nature = std::to_string(id);
        client->CmdRaiseAlarm(marker);
    }
};

struct RawSmallSource final : Source {
    dds_entity_t participant, writer;
    M_Alert::AlarmConditionInfoType value = smallCondition(), marker = smallCondition();
    VendorData_M_Alert_IService_CmdRaiseAlarm message{}, markerMessage{};
    explicit RawSmallSource(int domain)
        : participant(dds_create_participant(domain, nullptr, nullptr)),
          writer(rawWriter(participant, &VendorData_M_Alert_IService_CmdRaiseAlarm_desc, kSmallTopic)) {
        marker.Measure = "end";
        message = {const_cast<char*>(kRawActor), wireOf(value)};
    }
    ~RawSmallSource() override { dds_delete(participant); }
    void send(bool isMarker, int id) override {
        if (!isMarker) {
            check(dds_write(writer, &message), "dds_write");
            return;
        }
        marker.Nature = std::to_string(id);
        markerMessage = {const_cast<char*>(kRawActor), wireOf(marker)};
        check(dds_write(writer, &markerMessage), "dds_write");
    }
};

struct FrameLargeSource final : Source {
    std::shared_ptr<Session> session;
    M_Alert::Service service;
    M_Alert::AlertStatusType value = largeStatus(), marker = largeStatus();
    explicit FrameLargeSource(int domain) : session(makeSession(domain)), service(M_Alert::Service::createWriteOnly(session, "bench-writer")) {}
    void send(bool isMarker, int id) override {
        if (!isMarker) return service->ReportAlertStatus(value, false);
        marker.NumberOfActiveThreatAlerts = static_cast<uint32_t>(id);
        service->ReportAlertStatus(marker, false);
    }
};

struct RawLargeSource final : Source {
    dds_entity_t participant, writer;
    M_Alert::AlertStatusType value = largeStatus();
    std::vector<VendorData_M_Alert_AlarmConditionStatusType> elements;
    VendorData_M_Alert_IClient_ReportAlertStatus message{};
    explicit RawLargeSource(int domain)
        : participant(dds_create_participant(domain, nullptr, nullptr)),
          writer(rawWriter(participant, &VendorData_M_Alert_IClient_ReportAlertStatus_desc, kLargeTopic)) {
        message = wireOf(value, kRawActor, elements);
    }
    ~RawLargeSource() override { dds_delete(participant); }
    void send(bool isMarker, int id) override {
        message.Status.NumberOfActiveThreatAlerts = isMarker ? static_cast<uint32_t>(id) : 0;
        check(dds_write(writer, &message), "dds_write");
    }
};

}  // namespace

std::unique_ptr<Source> makeSource(const std::string& variant, const std::string& size, int domain) {
    if (variant == "frame")
        return size == "small" ? std::unique_ptr<Source>(new FrameSmallSource(domain)) : std::unique_ptr<Source>(new FrameLargeSource(domain));
    return size == "small" ? std::unique_ptr<Source>(new RawSmallSource(domain)) : std::unique_ptr<Source>(new RawLargeSource(domain));
}

void Counter::onMessage(const char* markerId) {
    const long n = ++count;
    if (markerId) {
        count -= n;
        ack("ack " + std::string(markerId) + " " + std::to_string(n));
    }
}

Sink::Sink(const std::string& variant, const std::string& size, int domain, Counter& counter) {
    smallImpl.c = largeImpl.c = &counter;
    if (variant == "frame") {
        session = makeSession(domain);
        if (size == "small") service = M_Alert::Service::create(session, "bench-reader", smallImpl);
        else client = M_Alert::Client::create(session, "bench-reader", largeImpl);
        return;
    }
    participant = dds_create_participant(domain, nullptr, nullptr);
    if (size == "small") {
        reader = std::make_unique<RawReader>(participant, &VendorData_M_Alert_IService_CmdRaiseAlarm_desc, kSmallTopic, [&counter](const void* s) {
            const auto& m = *static_cast<const VendorData_M_Alert_IService_CmdRaiseAlarm*>(s);
            counter.onMessage(std::strcmp(m.Condition.Measure, "end") == 0 ? m.Condition.Nature : nullptr);
        });
    } else {
        reader = std::make_unique<RawReader>(participant, &VendorData_M_Alert_IClient_ReportAlertStatus_desc, kLargeTopic, [&counter](const void* s) {
            const auto& m = *static_cast<const VendorData_M_Alert_IClient_ReportAlertStatus*>(s);
            const std::string id = std::to_string(m.Status.NumberOfActiveThreatAlerts);
            counter.onMessage(m.Status.NumberOfActiveThreatAlerts ? id.c_str() : nullptr);
        });
    }
}

Sink::~Sink() {
    reader.reset();
    if (participant) dds_delete(participant);
}

void Sink::SmallImpl::CmdRaiseAlarm(const M_Alert::AlarmConditionInfoType& v) {
    c->onMessage(v.Measure == "end" ? v.Nature.c_str() : nullptr);
}

void Sink::LargeImpl::ReportAlertStatus(const M_Alert::AlertStatusType& v, bool) {
    const std::string id = std::to_string(v.NumberOfActiveThreatAlerts);
    c->onMessage(v.NumberOfActiveThreatAlerts ? id.c_str() : nullptr);
}

}  // namespace vantrel::bench
