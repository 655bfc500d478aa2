// M_Alert end to end through real Client and Service facades on loopback: delivery, sender identity,
// keyed dispose, default bodies, callback maps.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <map>
#include <mutex>
#include <thread>

#include "kelva/actors/Session.h"
#include "vantrel/M_Alert.h"
#include "vantrel/test/LogCapture.h"
#include "vantrel/test/Sessions.h"
#include "vantrel/test/Support.h"

using vantrel::test::waitUntil;

namespace {

struct AlertServiceImpl : M_Alert::IService {
    std::mutex mutex;
    std::vector<M_Alert::AlarmConditionInfoType> raised;
    std::string lastSender;
    kelva::actors::SimpleActor* actor = nullptr;

    void CmdRaiseAlarm(const M_Alert::AlarmConditionInfoType& condition) override {
        std::lock_guard<std::mutex> lock(mutex);
        raised.push_back(condition);
    }
};

struct AlertClientImpl : M_Alert::IClient {
    std::mutex mutex;
    std::map<std::string, M_Alert::AlarmLogType> logs;
    std::vector<std::string> disposed;

    void ReportAlarmLog(const std::string& id, const M_Alert::AlarmLogType& log, bool dispose) override {
        std::lock_guard<std::mutex> lock(mutex);
        if (dispose) {
            disposed.push_back(id);
            logs.erase(id);
        } else {
            logs[id] = log;
        }
    }
};

using AlertEndToEnd = vantrel::test::TwoSessions;

TEST_F(AlertEndToEnd, CommandArrivesEqualAndOnlyOverriddenOperationsAreRead) {
    AlertServiceImpl serviceImpl;
    auto service = M_Alert::Service::create(serviceSession, "alert-service", serviceImpl);
    EXPECT_EQ(service.actorInfo().methodsRead, std::vector<std::string>{"CmdRaiseAlarm"});
    EXPECT_EQ(service.actorInfo().methodsWrite, M_Alert::getMethodsAllIClient());

    AlertClientImpl clientImpl;
    auto client = M_Alert::Client::create(clientSession, "console", clientImpl);
    client.waitUntilConnected();
    const M_Alert::AlarmConditionInfoType sent("Power", "Battery", "Voltage", "Low", "battery low");
    client->CmdRaiseAlarm(sent);
    ASSERT_TRUE(waitUntil([&] { std::lock_guard<std::mutex> l(serviceImpl.mutex); return !serviceImpl.raised.empty(); }));
    std::lock_guard<std::mutex> l(serviceImpl.mutex);
    EXPECT_EQ(serviceImpl.raised.front(), sent);
    EXPECT_EQ(serviceImpl.raised.size(), 1u);
}

TEST_F(AlertEndToEnd, DisposeRemovesOnlyTheAddressedKeyedInstance) {
    AlertServiceImpl serviceImpl;
    auto service = M_Alert::Service::create(serviceSession, "alert-service", serviceImpl);
    AlertClientImpl clientImpl;
    auto client = M_Alert::Client::create(clientSession, "console", clientImpl);
    client.waitUntilConnected();

    M_Alert::AlarmLogType a;
    a.Status = M_Alert::AlarmStatusKind::Active;
    a.Condition.ComponentName = "Fan 1";
    M_Alert::AlarmLogType b = a;
    b.Condition.ComponentName = "Fan 2";
    service->ReportAlarmLog("A", a, false);
    service->ReportAlarmLog("B", b, false);
    ASSERT_TRUE(waitUntil([&] { std::lock_guard<std::mutex> l(clientImpl.mutex); return clientImpl.logs.size() == 2; }));

    service->ReportAlarmLog("A", M_Alert::AlarmLogType(), true);
    ASSERT_TRUE(waitUntil([&] { std::lock_guard<std::mutex> l(clientImpl.mutex); return !clientImpl.disposed.empty(); }));
    std::lock_guard<std::mutex> l(clientImpl.mutex);
    EXPECT_EQ(clientImpl.disposed, std::vector<std::string>{"A"});
    ASSERT_EQ(clientImpl.logs.count("B"), 1u);
    EXPECT_EQ(clientImpl.logs["B"], b);
    EXPECT_EQ(clientImpl.logs.count("A"), 0u);
}

TEST_F(AlertEndToEnd, ListedButNotOverriddenOperationLogsTheDefaultBodyWarning) {
    vantrel::test::LogCapture log(kelva::utils::log::Level::warn);
    AlertServiceImpl serviceImpl;  // overrides CmdRaiseAlarm only; the scripting entry point reads all
    std::unique_ptr<M_Alert::Service> service(M_Alert::Service::_internalSwigCreate(serviceSession, "alert-service", serviceImpl));
    AlertClientImpl clientImpl;
    auto client = M_Alert::Client::createWriteOnly(clientSession, "console");
    client->CmdClearAlarm({"X"});
    const std::string text = "default implementation called: M_Alert::IService::CmdClearAlarm. Forgot to override this method?";
    EXPECT_TRUE(waitUntil([&] { return log.count(kelva::utils::log::Level::warn, text) == 1; }));
}

TEST_F(AlertEndToEnd, CallbackMapDispatchesTypedWrappersAndReportsMissingOrWrongOnes) {
    vantrel::test::LogCapture log(kelva::utils::log::Level::warn);
    std::atomic<int> calls{0};
    std::string sender;
    kelva::utils::callback::Wrapper<M_Alert::IService, const M_Alert::AlertIdListType&> ack(
        [&](const M_Alert::AlertIdListType& ids) {
            if (ids == M_Alert::AlertIdListType{"1", "2"}) ++calls;
        });
    kelva::utils::callback::Wrapper<M_Alert::IService, const std::string&> wrong([](const std::string&) {});
    vantrel::CallbackMap callbacks{{"CmdAcknowledgeAlarm", {&ack}}, {"CmdClearAlarm", {&wrong, nullptr}}};
    auto service = M_Alert::Service::create(serviceSession, "alert-service", callbacks,
                                            {"CmdAcknowledgeAlarm", "CmdClearAlarm", "CmdRaiseAlarm"});
    auto client = M_Alert::Client::createWriteOnly(clientSession, "console");
    client->CmdAcknowledgeAlarm({"1", "2"});
    client->CmdClearAlarm({"1"});
    client->CmdRaiseAlarm(M_Alert::AlarmConditionInfoType());
    EXPECT_TRUE(waitUntil([&] { return calls == 1; }));
    EXPECT_TRUE(waitUntil([&] {
        return log.count(kelva::utils::log::Level::error, "No callback found for CmdRaiseAlarm") == 1 &&
               log.count(kelva::utils::log::Level::error, "Callback for CmdClearAlarm has wrong type or is null!") == 2;
    }));
}

TEST_F(AlertEndToEnd, AnEmptyMethodsListReadsNothingAndSaysSo) {
    vantrel::test::LogCapture log(kelva::utils::log::Level::warn);
    std::atomic<int> calls{0};
    kelva::utils::callback::Wrapper<M_Alert::IService, const M_Alert::AlarmConditionInfoType&> raise(
        [&](const M_Alert::AlarmConditionInfoType&) { ++calls; });
    vantrel::CallbackMap callbacks{{"CmdRaiseAlarm", {&raise}}};
    auto service = M_Alert::Service::create(serviceSession, "alert-service", callbacks, {});
    EXPECT_EQ(log.count(kelva::utils::log::Level::warn, "no single overridden method detected."), 1u);
    EXPECT_TRUE(service.actorInfo().methodsRead.empty());
    auto client = M_Alert::Client::createWriteOnly(clientSession, "console");
    client->CmdRaiseAlarm(M_Alert::AlarmConditionInfoType());  // no reader: waits out the first-write timeout
    EXPECT_FALSE(waitUntil([&] { return calls > 0; }, std::chrono::milliseconds(300)));
}

TEST(AlertFirstWrite, OnlyTheFirstSendOfAnOperationWaitsForAReader) {
    kelva::config::Config config;
    config.firstWriteTimeoutMs = 300;
    auto session = std::make_shared<kelva::actors::Session>(vantrel::test::domainId(), config);
    auto client = M_Alert::Client::createWriteOnly(session, "console");
    using Clock = std::chrono::steady_clock;
    auto start = Clock::now();
    client->CmdRaiseAlarm(M_Alert::AlarmConditionInfoType());
    const auto first = Clock::now() - start;
    start = Clock::now();
    client->CmdRaiseAlarm(M_Alert::AlarmConditionInfoType());
    const auto second = Clock::now() - start;
    EXPECT_GE(first, std::chrono::milliseconds(250));
    EXPECT_LT(first, std::chrono::seconds(5));
    EXPECT_LT(second, std::chrono::milliseconds(250));  // a bound, not a measurement: no wait at all
}

TEST(AlertFacadeMisuse, ExactTextsAndIdempotentInvalidate) {
    M_Alert::Client client;
    EXPECT_FALSE(client.isValid());
    try {
        client->CmdRaiseAlarm(M_Alert::AlarmConditionInfoType());
        FAIL() << "no exception";
    } catch (const std::logic_error& e) {
        EXPECT_STREQ(e.what(), "Client::m_actor not initialised!");
    }
    try {
        (void)client.actorInfo();
        FAIL() << "no exception";
    } catch (const std::logic_error& e) {
        EXPECT_STREQ(e.what(), "Actor not initialised!");
    }
    M_Alert::Service service;
    try {
        service->ReportAlertSettings(M_Alert::AlertSettingsType());
        FAIL() << "no exception";
    } catch (const std::logic_error& e) {
        EXPECT_STREQ(e.what(), "Service::m_actor not initialised!");
    }
    client.invalidate();
    client.invalidate();
    EXPECT_FALSE(client.isValid());
}

TEST(AlertFacadeMisuse, AFacadeAssignedOverOrInvalidatedAfterSendingKeepsNoStaleSender) {
    auto session = std::make_shared<kelva::actors::Session>(vantrel::test::domainId());
    AlertServiceImpl serviceImpl;
    auto service = M_Alert::Service::create(session, "alert-service", serviceImpl);
    auto client = M_Alert::Client::createWriteOnly(session, "first");
    client->CmdRaiseAlarm(M_Alert::AlarmConditionInfoType("1", "", "", "", ""));

    // The first actor goes away with the assignment; the next call must use the second one's sender.
    client = M_Alert::Client::createWriteOnly(session, "second");
    client->CmdRaiseAlarm(M_Alert::AlarmConditionInfoType("2", "", "", "", ""));
    ASSERT_TRUE(waitUntil([&] { std::lock_guard<std::mutex> l(serviceImpl.mutex); return serviceImpl.raised.size() >= 2; }));

    client.invalidate();
    try {
        client->CmdRaiseAlarm(M_Alert::AlarmConditionInfoType());
        FAIL() << "an invalidated facade still sent";
    } catch (const std::logic_error& e) {
        EXPECT_STREQ(e.what(), "Client::m_actor not initialised!");
    }
    std::lock_guard<std::mutex> l(serviceImpl.mutex);
    ASSERT_EQ(serviceImpl.raised.size(), 2u);
    EXPECT_EQ(serviceImpl.raised[0].SubsystemName, "1");
    EXPECT_EQ(serviceImpl.raised[1].SubsystemName, "2");
}

TEST(AlertFacadeMisuse, SendsRacingAnInvalidateFromAnotherThreadEndCleanly) {
    auto session = std::make_shared<kelva::actors::Session>(vantrel::test::domainId());
    AlertServiceImpl serviceImpl;
    auto service = M_Alert::Service::create(session, "alert-service", serviceImpl);
    auto client = M_Alert::Client::createWriteOnly(std::make_shared<kelva::actors::Session>(vantrel::test::domainId()), "racer");
    client.waitUntilConnected();
    // Every member tells the send it belongs to: a half-sent or mixed message would not be one of these.
    auto condition = [](int i) {
        const std::string n = std::to_string(i);
        return M_Alert::AlarmConditionInfoType(n, "component " + n, "measure " + n, "nature " + n,
                                               std::string(200 + i % 50, static_cast<char>('a' + i % 26)));
    };
    const std::string invalid = "Client::m_actor not initialised!";
    std::atomic<bool> invalidated{false};
    std::atomic<int> attempts{0};
    std::vector<int> sent;
    std::vector<std::string> thrownBefore, thrownAfter;
    std::thread sender([&] {
        for (int i = 0, afterwards = 0; i < 100000 && afterwards < 20; ++i, ++attempts) {
            const bool wasInvalidated = invalidated.load();
            try {
                client->CmdRaiseAlarm(condition(i));
                if (wasInvalidated) thrownAfter.push_back("no exception");
                else sent.push_back(i);
            } catch (const std::exception& e) {
                (wasInvalidated ? thrownAfter : thrownBefore).push_back(e.what());
            }
            if (wasInvalidated) ++afterwards;
        }
    });
    ASSERT_TRUE(waitUntil([&] { return attempts.load() >= 50; }));
    client.invalidate();
    invalidated = true;
    sender.join();

    EXPECT_EQ(thrownAfter, std::vector<std::string>(20, invalid));
    for (const auto& text : thrownBefore) EXPECT_TRUE(text == invalid || text == "Client invalid sender!") << text;
    ASSERT_FALSE(sent.empty());
    EXPECT_TRUE(waitUntil([&] {
        std::lock_guard<std::mutex> l(serviceImpl.mutex);
        return !serviceImpl.raised.empty();
    }));
    std::lock_guard<std::mutex> l(serviceImpl.mutex);
    EXPECT_LE(serviceImpl.raised.size(), sent.size());
    for (const auto& raised : serviceImpl.raised) {
        const int i = std::stoi(raised.SubsystemName);
        EXPECT_EQ(raised, condition(i));
        EXPECT_TRUE(std::find(sent.begin(), sent.end(), i) != sent.end()) << i << " arrived but its send failed";
    }
}

TEST(AlertFacadeMisuse, ReadOnlyFacadeHasNoSenderAndDuplicateCreationReachesTheToolkitCheck) {
    auto monitor = std::make_shared<kelva::actors::MonitorSession>(vantrel::test::domainId());
    AlertClientImpl impl;
    auto readOnly = M_Alert::Client::createReadOnly(monitor, "watcher", impl);
    EXPECT_TRUE(readOnly.isValid());
    EXPECT_THROW(
        {
            try {
                readOnly->CmdRaiseAlarm(M_Alert::AlarmConditionInfoType());
            } catch (const std::logic_error& e) {
                EXPECT_STREQ(e.what(), "Client invalid sender!");
                throw;
            }
        },
        std::logic_error);
    auto multiplex = M_Alert::Client::createMonitor(monitor, impl);
    EXPECT_THROW(multiplex->CmdRaiseAlarm(M_Alert::AlarmConditionInfoType()), std::logic_error);

    auto session = std::make_shared<kelva::actors::Session>(vantrel::test::domainId());
    auto first = M_Alert::Client::create(session, "twice", impl);
    try {
        auto second = M_Alert::Client::create(session, "twice", impl);
        FAIL() << "no exception";
    } catch (const std::logic_error& e) {
        EXPECT_NE(std::string(e.what()).find("Inserting an observer to an actor already containing one.Called "
                                             "ObsFactory::add() twice? (same serviceName + domain)"),
                  std::string::npos);
    }
    EXPECT_TRUE(first.isValid());
    first.invalidate();
    EXPECT_FALSE(first.isValid());
}

TEST(AlertValues, RefusedBeforeAnythingIsWritten) {
    auto session = std::make_shared<kelva::actors::Session>(vantrel::test::domainId());
    auto service = M_Alert::Service::createWriteOnly(session, "alert-service");
    M_Alert::AlarmLogType log;
    log.TimeAcknowledged = {M_Common::TimeType(1, 2), M_Common::TimeType(3, 4)};
    try {
        service->ReportAlarmLog("A", log, false);
        FAIL() << "no exception";
    } catch (const std::invalid_argument& e) {
        EXPECT_NE(std::string(e.what()).find("M_Alert::AlarmLogType::TimeAcknowledged"), std::string::npos) << e.what();
    }
}

TEST(AlertValues, DefaultsAndEquality) {
    const M_Alert::AlarmLogType log;
    EXPECT_EQ(log.Status, M_Alert::AlarmStatusKind::Unknown);
    EXPECT_EQ(log.Category, M_Alert::AlarmCategoryKind::Critical_Warning);
    EXPECT_FALSE(log.IsAcknowledged);
    EXPECT_TRUE(log.TimeAcknowledged.empty());
    EXPECT_EQ(log, M_Alert::AlarmLogType());
    M_Alert::AudioToneInfoType nan;
    nan.ToneFrequency = std::nan("");
    EXPECT_NE(nan, nan);
    M_Alert::AlarmCategoryInfoType a, b;
    a.RelevantCrewRoles = {"x"};
    b.RelevantCrewRoles = {"x", "y"};
    EXPECT_NE(a, b);
}

}  // namespace
