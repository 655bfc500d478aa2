// M_Alert end to end through real Client and Service facades on loopback: what each kind of service reads
// (overrides, callback maps as applications hold them, read-only and monitoring facades) and who sent the
// call in progress, the first-write wait, entry trace lines, facades misused or invalidated while sending, and
// facade and session lifecycles racing with received operations (destroyed, invalidated or their session's
// last reference let go while or from their own callback).
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <set>
#include <thread>

#include "Recorded.h"
#include "kelva/actors/Session.h"
#include "kelva/config/Config.h"
#include "vantrel/M_Alert.h"
#include "vantrel/test/LogCapture.h"
#include "vantrel/test/Sessions.h"
#include "vantrel/test/Support.h"

using kelva::utils::log::Level;
using vantrel::test::waitUntil;

namespace {

struct AlertServiceImpl : M_Alert::IService {
    M_Alert::Service* self = nullptr;  // when set, what it says about each call in progress is recorded
    Recorded<M_Alert::AlarmConditionInfoType> raised;
    Recorded<kelva::actors::CallbackInfo> infos;
    void CmdRaiseAlarm(const M_Alert::AlarmConditionInfoType& condition) override {
        if (self) infos.add(self->callbackInfo());
        raised.add(condition);
    }
};

using AlertEndToEnd = vantrel::test::TwoSessions;
constexpr auto misuseText = &vantrel::test::thrownText<std::logic_error>;

TEST_F(AlertEndToEnd, EachKindOfServiceReadsWhatItSaysAndReportsWhatItCannotCall) {
    vantrel::test::LogCapture log(Level::warn);
    AlertServiceImpl impl, allImpl;  // override CmdRaiseAlarm only
    auto service = M_Alert::Service::create(serviceSession, "impl", impl);
    impl.self = &service;
    EXPECT_TRUE(service.callbackInfo().operation.empty());
    EXPECT_EQ(service.actorInfo().methodsRead, std::vector<std::string>{"CmdRaiseAlarm"});
    EXPECT_EQ(service.actorInfo().methodsWrite, M_Alert::getMethodsAllIClient());
    // The scripting entry point reads all: an operation without override reaches the default body.
    std::unique_ptr<M_Alert::Service> all(M_Alert::Service::_internalSwigCreate(serviceSession, "all", allImpl));

    Recorded<std::string> got;
    using Raise = kelva::utils::callback::Wrapper<M_Alert::IService, const M_Alert::AlarmConditionInfoType&>;
    auto recorder = [&](const std::string& who) {
        return [&, who](const M_Alert::AlarmConditionInfoType& c) { got.add(who + ":" + c.AlarmDescription); };
    };
    Raise raise(recorder("map")), watch(recorder("read-only")), multiplexWatch(recorder("multiplex")),
        unread(recorder("empty list"));
    // Not const, as an application holds it; one entry of the wrong type and null, one operation without.
    kelva::utils::callback::Wrapper<M_Alert::IService, const std::string&> wrong([](const std::string&) {});
    vantrel::CallbackMap serviceMap{{"CmdRaiseAlarm", {&raise}}, {"CmdClearAlarm", {&wrong, nullptr}}};
    auto mapped = M_Alert::Service::create(serviceSession, "map", serviceMap,
                                           {"CmdRaiseAlarm", "CmdClearAlarm", "CmdAcknowledgeAlarm"});
    vantrel::CallbackMap unreadMap{{"CmdRaiseAlarm", {&unread}}};
    auto nothing = M_Alert::Service::create(serviceSession, "empty-list", unreadMap, {});
    EXPECT_EQ(log.count(Level::warn, "no single overridden method detected."), 1u);
    EXPECT_TRUE(nothing.actorInfo().methodsRead.empty());
    auto monitorSession = std::make_shared<kelva::actors::MonitorSession>(vantrel::test::domainId());
    vantrel::CallbackMap readOnlyMap{{"CmdRaiseAlarm", {&watch}}};
    auto readOnly = M_Alert::Service::createReadOnly(monitorSession, "watcher", readOnlyMap);
    vantrel::CallbackMap multiplexMap{{"CmdRaiseAlarm", {&multiplexWatch}}};
    auto multiplex = M_Alert::Service::createMonitor(monitorSession, multiplexMap, {"CmdRaiseAlarm"});
    // Read-only and monitoring facades have no sender.
    EXPECT_EQ(misuseText([&] { readOnly->ReportAlertSettings({}); }), "Service invalid sender!");
    EXPECT_EQ(misuseText([&] { multiplex->ReportAlertSettings({}); }), "Service invalid sender!");

    auto client = M_Alert::Client::createWriteOnly(clientSession, "console");
    M_Alert::AlarmConditionInfoType condition;
    condition.AlarmDescription = "Battery";
    // Readers match one by one; commands are volatile, so send until all have one.
    EXPECT_TRUE(waitUntil([&] {
        client->CmdRaiseAlarm(condition);
        const auto seen = got.now();
        return impl.raised.size() > 0 &&
               std::set<std::string>(seen.begin(), seen.end()) ==
                   std::set<std::string>{"map:Battery", "read-only:Battery", "multiplex:Battery"};
    }));
    client->CmdClearAlarm({"1"});
    client->CmdAcknowledgeAlarm({"1"});
    EXPECT_TRUE(waitUntil([&] {
        // (the multiplex monitor, reading every operation, says so too)
        return log.count(Level::error, "No callback found for CmdAcknowledgeAlarm") >= 1 &&
               log.count(Level::error, "Callback for CmdClearAlarm has wrong type or is null!") == 2 &&
               log.count(Level::warn, "default implementation called: M_Alert::IService::CmdClearAlarm. Forgot to "
                                      "override this method?") == 1;
    }));
    const auto seen = got.now();
    EXPECT_EQ(std::count(seen.begin(), seen.end(), "empty list:Battery"), 0) << "a service given no methods read one";
    // The service tells who sent the call in progress, and nothing once it returned (reset on the dispatcher).
    EXPECT_TRUE(waitUntil([&] { return service.callbackInfo().senderId.empty(); }));
    const auto infos = impl.infos.now();
    ASSERT_FALSE(infos.empty());
    EXPECT_EQ(infos[0].senderId, client.actorInfo().actorId);
    EXPECT_EQ(infos[0].operation, "CmdRaiseAlarm");
    EXPECT_EQ(infos[0].actorId, service.actorInfo().actorId);
}

TEST(AlertFirstWrite, OnlyTheFirstSendOfAnOperationWaitsForAReader) {
    kelva::config::Config config;
    config.firstWriteTimeoutMs = 2000;  // long beside any scheduling delay: the two sends stay distinguishable
    auto client = M_Alert::Client::createWriteOnly(vantrel::test::newSession(config), "console");
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

using AlertFacadeMisuse = vantrel::test::TwoSessions;

TEST_F(AlertFacadeMisuse, EmptyReassignedAndInvalidatedFacadesSendNothingAndSaySo) {
    vantrel::test::LogCapture capture(Level::trace);
    M_Alert::Client unset;
    M_Alert::Service service;
    EXPECT_EQ(misuseText([&] { unset->CmdRaiseAlarm({}); }), "Client::m_actor not initialised!");
    EXPECT_EQ(misuseText([&] { (void)unset.actorInfo(); }), "Actor not initialised!");
    EXPECT_EQ(misuseText([&] { service->ReportAlertSettings({}); }), "Service::m_actor not initialised!");
    EXPECT_THROW(service.callbackInfo(), std::logic_error);

    AlertServiceImpl serviceImpl;
    auto receiver = M_Alert::Service::create(serviceSession, "alert-service", serviceImpl);
    auto client = M_Alert::Client::createWriteOnly(serviceSession, "first");
    client->CmdRaiseAlarm(M_Alert::AlarmConditionInfoType("1", "", "", "", ""));
    // The first actor goes away with the assignment; the next call must use the second one's sender.
    client = M_Alert::Client::createWriteOnly(serviceSession, "second");
    client->CmdRaiseAlarm(M_Alert::AlarmConditionInfoType("2", "", "", "", ""));
    ASSERT_TRUE(serviceImpl.raised.waitSize(2));
    client.invalidate();
    client.invalidate();
    EXPECT_FALSE(client.isValid());
    EXPECT_EQ(misuseText([&] { client->CmdRaiseAlarm({}); }), "Client::m_actor not initialised!");
    const auto raised = serviceImpl.raised.now();
    ASSERT_EQ(raised.size(), 2u);
    EXPECT_EQ(raised[0].SubsystemName, "1");
    EXPECT_EQ(raised[1].SubsystemName, "2");
    // Entry trace lines name the facade's own functions, never the helpers behind them.
    const auto traces = capture.texts(Level::trace);
    for (const std::string fragment : {"M_Alert::Client M_Alert::Client::createWriteOnly(std::shared_ptr<kelva::actors::Session>",
                                       "bool M_Alert::Client::isValid() const", "void M_Alert::Client::invalidate()",
                                       "M_Alert::Client::~Client()"}) {
        EXPECT_TRUE(std::any_of(traces.begin(), traces.end(), [&](const std::string& line) {
            return line.rfind("(", 0) == 0 && line.find(fragment) != std::string::npos;
        })) << fragment;
    }
    for (const auto& line : traces) {
        EXPECT_EQ(line.find("FacadeAccess::"), std::string::npos) << line;
        EXPECT_EQ(line.find("FacadeCore::"), std::string::npos) << line;
    }
}

TEST_F(AlertFacadeMisuse, SendsRacingAnInvalidateFromAnotherThreadEndCleanly) {
    AlertServiceImpl serviceImpl;
    auto service = M_Alert::Service::create(serviceSession, "alert-service", serviceImpl);
    auto client = M_Alert::Client::createWriteOnly(clientSession, "racer");
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
    EXPECT_TRUE(waitUntil([&] { return serviceImpl.raised.size() > 0; }));
    const auto received = serviceImpl.raised.now();
    EXPECT_LE(received.size(), sent.size());
    for (const auto& raised : received) {
        const int i = std::stoi(raised.SubsystemName);
        EXPECT_EQ(raised, condition(i));
        EXPECT_TRUE(std::find(sent.begin(), sent.end(), i) != sent.end()) << i << " arrived but its send failed";
    }
}

const M_Alert::AlarmConditionInfoType kCondition("Power", "Battery", "Voltage", "Low", "low");

struct BlockingService : M_Alert::IService {
    vantrel::test::Gate entered, release;
    std::atomic<int> calls{0};
    void CmdRaiseAlarm(const M_Alert::AlarmConditionInfoType&) override {
        ++calls;
        entered.open();
        release.wait();
    }
};

using Lifecycle = vantrel::test::TwoSessions;

struct SelfStoppingService : M_Alert::IService {
    M_Alert::Service facade;
    std::atomic<int> calls{0};
    void CmdRaiseAlarm(const M_Alert::AlarmConditionInfoType&) override {
        ++calls;
        facade.invalidate();  // from its own callback, on the dispatcher thread
    }
};

struct SessionDroppingService : M_Alert::IService {
    M_Alert::Service facade;
    std::atomic<bool> dropped{false};
    void CmdRaiseAlarm(const M_Alert::AlarmConditionInfoType&) override {
        facade = M_Alert::Service();  // lets go of the actor and of the last reference to the session
        dropped = true;
    }
};

// One call reaches a service blocking in its callback (in a session of its own), one invalidating itself
// from its callback, and one letting go of the last reference to its own session from its callback.
TEST_F(Lifecycle, AFacadeDestroyedInItsCallbackWaitsForItAndOneStoppedFromItsOwnCallbackStopsCleanly) {
    BlockingService blocking;
    auto service = std::make_unique<M_Alert::Service>(
        M_Alert::Service::create(vantrel::test::newSession(), "blocking", blocking));
    SelfStoppingService impl;
    impl.facade = M_Alert::Service::create(serviceSession, "svc", impl);
    SessionDroppingService dropping;
    std::weak_ptr<kelva::actors::Session> weakSession;
    {
        auto ownSession = vantrel::test::newSession();
        weakSession = ownSession;
        dropping.facade = M_Alert::Service::create(ownSession, "dropping", dropping);
    }
    auto client = M_Alert::Client::createWriteOnly(clientSession, "console");
    client.waitUntilConnected();
    client->CmdRaiseAlarm(kCondition);
    ASSERT_TRUE(blocking.entered.wait());

    std::atomic<bool> destroyed{false};
    std::thread destroyer([&] {
        service.reset();
        destroyed = true;
    });
    // The destruction cannot finish while the callback still runs in the service's objects.
    EXPECT_FALSE(waitUntil([&] { return destroyed.load(); }, std::chrono::milliseconds(200)));
    blocking.release.open();
    destroyer.join();
    EXPECT_EQ(blocking.calls, 1);

    ASSERT_TRUE(waitUntil([&] { return impl.calls == 1 && dropping.dropped; }));
    EXPECT_TRUE(waitUntil([&] { return !impl.facade.isValid() && weakSession.expired(); }));
    EXPECT_FALSE(dropping.facade.isValid());
    client->CmdRaiseAlarm(kCondition);  // nobody reads it any more; the client notices the readers went away
    // The session goes on working for others.
    SelfStoppingService other;
    other.facade = M_Alert::Service::create(serviceSession, "svc2", other);
    client->CmdRaiseAlarm(kCondition);
    EXPECT_TRUE(waitUntil([&] { return other.calls == 1; }));
    EXPECT_EQ(impl.calls, 1);
}

}  // namespace
