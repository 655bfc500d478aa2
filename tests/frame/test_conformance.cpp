// What an application relies on at the facade: a disposal that overtook its data is one disposal, entry
// trace lines name the facade's own functions, callback maps are accepted as applications hold them (their
// missing or wrong entries reported), read-only facades take callback maps, and the call in progress tells
// who sent it.
#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "kelva/actors/Session.h"
#include "vantrel/M_Alert.h"
#include "vantrel/test/LogCapture.h"
#include "vantrel/test/Sessions.h"
#include "vantrel/test/Support.h"

using kelva::utils::log::Level;
using vantrel::test::Gate;
using vantrel::test::waitUntil;

namespace {

using Sessions = vantrel::test::TwoSessions;

M_Alert::AlarmLogType alarmLog(const std::string& what) {
    M_Alert::AlarmLogType log;
    log.Status = M_Alert::AlarmStatusKind::Active;
    log.Condition.AlarmDescription = what;
    return log;
}

// Holds the dispatcher of its session in ReportAlertStatus until released, and records the alarm logs.
struct BusyConsole : M_Alert::IClient {
    Gate entered, release;
    std::mutex mutex;
    std::vector<std::string> calls;  // "<id>/data" or "<id>/dispose"

    void ReportAlertStatus(const M_Alert::AlertStatusType&, bool) override {
        entered.open();
        release.wait();
    }
    void ReportAlarmLog(const std::string& id, const M_Alert::AlarmLogType&, bool dispose) override {
        std::lock_guard<std::mutex> lock(mutex);
        calls.push_back(id + (dispose ? "/dispose" : "/data"));
    }
    std::vector<std::string> seen() {
        std::lock_guard<std::mutex> lock(mutex);
        return calls;
    }
};

TEST_F(Sessions, AReportDisposedBeforeItWasDispatchedArrivesAsTheDisposalOnly) {
    BusyConsole console;
    auto client = M_Alert::Client::create(clientSession, "console", console);
    auto service = M_Alert::Service::createWriteOnly(serviceSession, "alerts");
    ASSERT_TRUE(waitUntil([&] {
        service->ReportAlertStatus({}, false);
        return console.entered.wait(std::chrono::milliseconds(200));
    }));
    // The client's dispatcher is busy: within one process the DDS layer delivers each write and dispose
    // into the reader before the call returns, so both wait there together.
    service->ReportAlarmLog("71", alarmLog("overtaken"), false);
    service->ReportAlarmLog("71", {}, true);
    service->ReportAlarmLog("72", alarmLog("live"), false);
    console.release.open();
    ASSERT_TRUE(waitUntil([&] { return console.seen().size() >= 2; }));
    // Nothing more may come; give a stray duplicate the time to show.
    EXPECT_FALSE(waitUntil([&] { return console.seen().size() > 2; }, std::chrono::milliseconds(300)));
    const auto seen = console.seen();
    EXPECT_NE(std::find(seen.begin(), seen.end(), "71/dispose"), seen.end());
    EXPECT_NE(std::find(seen.begin(), seen.end(), "72/data"), seen.end());
    EXPECT_EQ(std::find(seen.begin(), seen.end(), "71/data"), seen.end()) << "a disposed instance reported as live";
}

TEST_F(Sessions, EntryTraceLinesNameTheFacadesOwnFunctions) {
    vantrel::test::LogCapture capture(Level::trace);
    {
        auto client = M_Alert::Client::createWriteOnly(clientSession, "console");
        EXPECT_TRUE(client.isValid());
        client.invalidate();
    }
    const auto traces = capture.texts(Level::trace);
    auto traced = [&](const std::string& fragment) {
        for (const auto& line : traces)
            if (line.rfind("(", 0) == 0 && line.find(fragment) != std::string::npos) return true;
        return false;
    };
    EXPECT_TRUE(traced("M_Alert::Client M_Alert::Client::createWriteOnly(std::shared_ptr<kelva::actors::Session>"));
    EXPECT_TRUE(traced("bool M_Alert::Client::isValid() const"));
    EXPECT_TRUE(traced("void M_Alert::Client::invalidate()"));
    EXPECT_TRUE(traced("M_Alert::Client::~Client()"));
    for (const auto& line : traces) {
        EXPECT_EQ(line.find("FacadeAccess::"), std::string::npos) << line;
        EXPECT_EQ(line.find("FacadeCore::"), std::string::npos) << line;
    }
}

TEST_F(Sessions, CallbackMapsWorkAsTheApplicationHoldsThemAndReadOnlyFacadesTakeThem) {
    std::mutex mutex;
    std::set<std::string> got;
    using Raise = kelva::utils::callback::Wrapper<M_Alert::IService, const M_Alert::AlarmConditionInfoType&>;
    auto recorder = [&](const std::string& who) {
        return [&, who](const M_Alert::AlarmConditionInfoType& c) {
            std::lock_guard<std::mutex> lock(mutex);
            got.insert(who + ":" + c.AlarmDescription);
        };
    };
    Raise raise(recorder("service")), watch(recorder("read-only")), multiplexWatch(recorder("multiplex"));
    // Not const, as an application holds it; one entry of the wrong type and null, one operation without.
    kelva::utils::callback::Wrapper<M_Alert::IService, const std::string&> wrong([](const std::string&) {});
    vantrel::CallbackMap serviceMap{{"CmdRaiseAlarm", {&raise}}, {"CmdClearAlarm", {&wrong, nullptr}}};
    vantrel::test::LogCapture log(Level::warn);
    auto service = M_Alert::Service::create(serviceSession, "alerts", serviceMap,
                                            {"CmdRaiseAlarm", "CmdClearAlarm", "CmdAcknowledgeAlarm"});
    auto monitorSession = std::make_shared<kelva::actors::MonitorSession>(vantrel::test::domainId());
    vantrel::CallbackMap readOnlyMap{{"CmdRaiseAlarm", {&watch}}};
    auto readOnly = M_Alert::Service::createReadOnly(monitorSession, "watcher", readOnlyMap);
    vantrel::CallbackMap multiplexMap{{"CmdRaiseAlarm", {&multiplexWatch}}};
    auto multiplex = M_Alert::Service::createMonitor(monitorSession, multiplexMap, {"CmdRaiseAlarm"});
    EXPECT_THROW(readOnly->ReportAlertSettings({}), std::logic_error);  // read-only: no sender

    auto client = M_Alert::Client::createWriteOnly(clientSession, "console");
    M_Alert::AlarmConditionInfoType condition;
    condition.AlarmDescription = "Battery";
    // Readers match one by one; commands are volatile, so send until all three have one.
    EXPECT_TRUE(waitUntil([&] {
        client->CmdRaiseAlarm(condition);
        std::lock_guard<std::mutex> lock(mutex);
        return got == std::set<std::string>{"service:Battery", "read-only:Battery", "multiplex:Battery"};
    }));
    client->CmdClearAlarm({"1"});
    client->CmdAcknowledgeAlarm({"1"});
    EXPECT_TRUE(waitUntil([&] {
        // (the multiplex monitor, reading every operation, says so too)
        return log.count(Level::error, "No callback found for CmdAcknowledgeAlarm") >= 1 &&
               log.count(Level::error, "Callback for CmdClearAlarm has wrong type or is null!") == 2;
    }));
}

// Records, during each call, what the facade says about the call in progress.
struct SenderAware : M_Alert::IService {
    M_Alert::Service* self = nullptr;
    Gate ready;
    std::mutex mutex;
    std::vector<kelva::actors::CallbackInfo> infos;
    void CmdClearAlarm(const M_Alert::AlertIdListType&) override {
        ready.wait();
        std::lock_guard<std::mutex> lock(mutex);
        infos.push_back(self->callbackInfo());
    }
};

TEST_F(Sessions, TheServiceTellsWhoSentTheCallInProgressAndNothingOutsideACall) {
    SenderAware impl;
    auto service = M_Alert::Service::create(serviceSession, "alerts", impl);
    impl.self = &service;
    impl.ready.open();
    EXPECT_TRUE(service.callbackInfo().operation.empty());
    auto client = M_Alert::Client::createWriteOnly(clientSession, "console");
    client->CmdClearAlarm({"a1"});
    ASSERT_TRUE(waitUntil([&] {
        std::lock_guard<std::mutex> lock(impl.mutex);
        return !impl.infos.empty();
    }));
    {
        std::lock_guard<std::mutex> lock(impl.mutex);
        EXPECT_EQ(impl.infos[0].senderId, client.actorInfo().actorId);
        EXPECT_EQ(impl.infos[0].operation, "CmdClearAlarm");
        EXPECT_EQ(impl.infos[0].actorId, service.actorInfo().actorId);
    }
    // Reset on the dispatcher thread once the callback returned.
    EXPECT_TRUE(waitUntil([&] { return service.callbackInfo().senderId.empty(); }));
    M_Alert::Service none;
    EXPECT_THROW(none.callbackInfo(), std::logic_error);
}

}  // namespace
