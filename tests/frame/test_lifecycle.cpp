// Facade and session lifecycles that race with received operations: destroying a facade while its callback
// runs, invalidating a facade or letting go of the last reference to its session from its own callback.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "kelva/actors/Session.h"
#include "vantrel/M_Alert.h"
#include "vantrel/test/Sessions.h"
#include "vantrel/test/Support.h"

using vantrel::test::waitUntil;

namespace {

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
