// Alert demo: an alert service and a client in two processes on loopback.
//   alert_demo service <domain> <seconds>   answers alarms with logs and a status
//   alert_demo client  <domain>             raises, acknowledges and clears alarms
// Both print what they receive in its text form.
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include "kelva/actors/Session.h"
#include "kelva/utils/Log.h"
#include "vantrel/M_Alert.h"

namespace {

M_Common::TimeType now() {
    const auto ns = std::chrono::system_clock::now().time_since_epoch();
    const auto s = std::chrono::duration_cast<std::chrono::seconds>(ns);
    return M_Common::TimeType(s.count(), static_cast<int32_t>((ns - s).count() % 1000000000));
}

class AlertService : public M_Alert::IService {
public:
    M_Alert::Service facade;

    // Commands can arrive as soon as the service's readers exist, before create() has returned: the
    // handlers wait on the same mutex until the facade is in place.
    void start(std::shared_ptr<kelva::actors::Session> session) {
        std::lock_guard<std::mutex> lock(m_mutex);
        facade = M_Alert::Service::create(std::move(session), "alert-service", *this);
    }

    void CmdRaiseAlarm(const M_Alert::AlarmConditionInfoType& condition) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        const std::string id = "ALM-" + std::to_string(++m_next);
        std::cout << "service: raise " << M_Alert::toText(condition) << " -> " << id << std::endl;
        M_Alert::AlarmLogType log;
        log.Status = M_Alert::AlarmStatusKind::Active;
        log.Condition = condition;
        log.Category = M_Alert::AlarmCategoryKind::Warning;
        log.TimeRaised = now();
        m_logs[id] = log;
        facade->ReportAlarmLog(id, log, false);
        reportStatus();
    }
    void CmdAcknowledgeAlarm(const M_Alert::AlertIdListType& ids) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const auto& id : ids) {
            auto it = m_logs.find(id);
            if (it == m_logs.end()) continue;
            std::cout << "service: acknowledge " << id << std::endl;
            it->second.IsAcknowledged = true;
            it->second.TimeAcknowledged = {now()};
            facade->ReportAlarmLog(id, it->second, false);
        }
    }
    void CmdClearAlarm(const M_Alert::AlertIdListType& ids) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const auto& id : ids) {
            if (!m_logs.erase(id)) continue;
            std::cout << "service: clear " << id << std::endl;
            facade->ReportAlarmLog(id, M_Alert::AlarmLogType(), true);  // the alarm's log no longer exists
        }
        reportStatus();
    }

private:
    void reportStatus() {
        M_Alert::AlertStatusType status;
        status.NumberOfActiveWarningAlarms = static_cast<uint32_t>(m_logs.size());
        facade->ReportAlertStatus(status, false);
    }

    std::mutex m_mutex;  // guards the alarms, and the facade while it is made
    unsigned m_next = 0;
    std::map<std::string, M_Alert::AlarmLogType> m_logs;
};

class AlertClient : public M_Alert::IClient {
public:
    std::mutex mutex;
    std::map<std::string, M_Alert::AlarmLogType> logs;
    std::atomic<unsigned> activeWarnings{0};
    std::atomic<bool> statusSeen{false};

    void ReportAlarmLog(const std::string& id, const M_Alert::AlarmLogType& log, bool dispose) override {
        std::lock_guard<std::mutex> lock(mutex);
        if (dispose) {
            std::cout << "client: alarm " << id << " is gone" << std::endl;
            logs.erase(id);
            return;
        }
        std::cout << "client: alarm " << id << " " << M_Alert::toText(log) << std::endl;
        logs[id] = log;
    }
    void ReportAlertStatus(const M_Alert::AlertStatusType& status, bool) override {
        std::cout << "client: status " << M_Alert::toText(status) << std::endl;
        activeWarnings = status.NumberOfActiveWarningAlarms;
        statusSeen = true;
    }
};

// How long the client waits for each answer of the service: a bound for a lost service, not an expected time
// (answers take milliseconds on a loopback, somewhat more under an emulation layer).
constexpr int kAnswerBoundMs = 20000;

template <class Predicate>
bool waitFor(Predicate done, int ms) {
    for (int waited = 0; waited < ms; waited += 10) {
        if (done()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return done();
}

int runService(int domain, int seconds) {
    auto session = std::make_shared<kelva::actors::Session>(domain);
    AlertService service;
    service.start(session);
    std::cout << "service: running for " << seconds << " s" << std::endl;
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    service.facade.invalidate();
    std::cout << "service: done" << std::endl;
    return 0;
}

int runClient(int domain) {
    auto session = std::make_shared<kelva::actors::Session>(domain);
    AlertClient client;
    auto facade = M_Alert::Client::create(session, "alert-console", client);
    facade.waitUntilConnected();

    facade->CmdRaiseAlarm(M_Alert::AlarmConditionInfoType("Power", "Battery", "Voltage", "Low", "battery voltage low"));
    facade->CmdRaiseAlarm(M_Alert::AlarmConditionInfoType("Cooling", "Fan 2", "Speed", "Stalled", "fan 2 stalled"));
    if (!waitFor([&] { std::lock_guard<std::mutex> l(client.mutex); return client.logs.size() == 2; }, kAnswerBoundMs)) {
        std::cerr << "client: no alarm logs arrived" << std::endl;
        return 1;
    }
    M_Alert::AlertIdListType ids;
    {
        std::lock_guard<std::mutex> l(client.mutex);
        for (const auto& entry : client.logs) ids.push_back(entry.first);
    }
    facade->CmdAcknowledgeAlarm(ids);
    waitFor([&] {
        std::lock_guard<std::mutex> l(client.mutex);
        for (const auto& entry : client.logs)
            if (!entry.second.IsAcknowledged) return false;
        return true;
    }, kAnswerBoundMs);
    facade->CmdClearAlarm(ids);
    const bool cleared = waitFor([&] {
        std::lock_guard<std::mutex> l(client.mutex);
        return client.logs.empty() && client.activeWarnings == 0;
    }, kAnswerBoundMs);
    std::cout << (cleared ? "client: all alarms cleared" : "client: alarms did not clear") << std::endl;
    return cleared ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::cerr << "usage: alert_demo service <domain> [seconds] | alert_demo client <domain>" << std::endl;
        return 2;
    }
    const std::string mode = argv[1];
    const int domain = std::atoi(argv[2]);
    try {
        if (mode == "service") return runService(domain, argc > 3 ? std::atoi(argv[3]) : 8);
        if (mode == "client") return runClient(domain);
    } catch (const std::exception& e) {
        std::cerr << "alert_demo: " << e.what() << std::endl;
        return 1;
    }
    std::cerr << "alert_demo: unknown mode " << mode << std::endl;
    return 2;
}
