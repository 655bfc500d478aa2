// M_Alert end to end through real Client and Service facades on loopback: what is read, default bodies,
// callback maps, the first-write wait, and facades misused or invalidated while sending.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <thread>

#include "kelva/actors/Session.h"
#include "kelva/config/Config.h"
#include "vantrel/M_Alert.h"
#include "vantrel/test/LogCapture.h"
#include "vantrel/test/Sessions.h"
#include "vantrel/test/Support.h"

using vantrel::test::waitUntil;

namespace {

struct AlertServiceImpl : M_Alert::IService {
    std::mutex mutex;
    std::vector<M_Alert::AlarmConditionInfoType> raised;

    void CmdRaiseAlarm(const M_Alert::AlarmConditionInfoType& condition) override {
        std::lock_guard<std::mutex> lock(mutex);
        raised.push_back(condition);
    }
};

struct AlertClientImpl : M_Alert::IClient {
    void ReportAlarmLog(const std::string&, const M_Alert::AlarmLogType&, bool) override {}
};

using AlertEndToEnd = vantrel::test::TwoSessions;

TEST_F(AlertEndToEnd, OnlyOverriddenOperationsAreReadAndAListedDefaultBodyWarns) {
    vantrel::test::LogCapture log(kelva::utils::log::Level::warn);
    AlertServiceImpl serviceImpl;  // overrides CmdRaiseAlarm only
    auto service = M_Alert::Service::create(serviceSession, "alert-service", serviceImpl);
    EXPECT_EQ(service.actorInfo().methodsRead, std::vector<std::string>{"CmdRaiseAlarm"});
    EXPECT_EQ(service.actorInfo().methodsWrite, M_Alert::getMethodsAllIClient());
    // The scripting entry point reads all: an operation without override reaches the default body.
    std::unique_ptr<M_Alert::Service> all(M_Alert::Service::_internalSwigCreate(serviceSession, "all-service", serviceImpl));
    auto client = M_Alert::Client::createWriteOnly(clientSession, "console");
    client->CmdClearAlarm({"X"});
    const std::string text = "default implementation called: M_Alert::IService::CmdClearAlarm. Forgot to override this method?";
    EXPECT_TRUE(waitUntil([&] { return log.count(kelva::utils::log::Level::warn, text) == 1; }));
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
    config.firstWriteTimeoutMs = 2000;  // long beside any scheduling delay: the two sends stay distinguishable
    auto session = std::make_shared<kelva::actors::Session>(vantrel::test::domainId(), config);
    auto client = M_Alert::Client::createWriteOnly(session, "console");
    using Clock = std::chrono::steady_clock;
    auto start = Clock::now();
    client->CmdRaiseAlarm(M_Alert::AlarmConditionInfoType());
    const auto first = Clock::now() - start;
    start = Clock::now();
    client->CmdRaiseAlarm(M_Alert::AlarmConditionInfoType());
    const auto second = Clock::now() - start;
    EXPECT_GE(first, std::chrono::milliseconds(1900));  // waited out the timeout (a wait is never shorter)
    EXPECT_LT(first, std::chrono::seconds(60));
    EXPECT_LT(second, std::chrono::milliseconds(1000));  // did not wait again: far below the timeout
}

// The exact text of the logic_error that `call` throws.
std::string misuseText(const std::function<void()>& call) {
    try {
        call();
    } catch (const std::logic_error& e) {
        return e.what();
    }
    return "no exception";
}

TEST(AlertFacadeMisuse, ExactTextsAndIdempotentInvalidate) {
    M_Alert::Client client;
    M_Alert::Service service;
    EXPECT_EQ(misuseText([&] { client->CmdRaiseAlarm({}); }), "Client::m_actor not initialised!");
    EXPECT_EQ(misuseText([&] { (void)client.actorInfo(); }), "Actor not initialised!");
    EXPECT_EQ(misuseText([&] { service->ReportAlertSettings({}); }), "Service::m_actor not initialised!");
    client.invalidate();
    client.invalidate();
    EXPECT_FALSE(client.isValid());
    // Read-only and monitoring facades have no sender.
    auto monitor = std::make_shared<kelva::actors::MonitorSession>(vantrel::test::domainId());
    AlertClientImpl impl;
    auto readOnly = M_Alert::Client::createReadOnly(monitor, "watcher", impl);
    EXPECT_EQ(misuseText([&] { readOnly->CmdRaiseAlarm({}); }), "Client invalid sender!");
    auto multiplex = M_Alert::Client::createMonitor(monitor, impl);
    EXPECT_EQ(misuseText([&] { multiplex->CmdRaiseAlarm({}); }), "Client invalid sender!");
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

}  // namespace
