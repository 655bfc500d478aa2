// Actors and sessions: one sender and one observer per actor, actor identity by name and module, release on
// shutdown, and session teardown while a handler is running.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "KelvaTestTypes.h"
#include "kelva/actors/Session.h"
#include "kelva/actors/SessionImpl.h"
#include "vantrel/test/LogCapture.h"
#include "vantrel/test/Support.h"

namespace {

using namespace std::chrono_literals;
using kelva::access::TopicPoolRead;
using kelva::access::TopicPoolWrite;
using kelva::actors::IObserver;
using kelva::actors::ISender;
using kelva::actors::Session;
using kelva::actors::SessionImpl;
using kelva::actors::SimpleActor;
using kelva::base::PluginLoader;
using kelva::utils::log::Level;
using vantrel::test::LogCapture;

using Texts = std::vector<std::string>;

class TestSender : public ISender {
public:
    TestSender(SimpleActor&, TopicPoolWrite&, PluginLoader&) { ++constructed; }
    static inline std::atomic<int> constructed{0};
};

struct TestImplementation {};

class TestObserver : public IObserver {
public:
    TestObserver(SimpleActor&, TopicPoolRead&, const std::vector<std::string>&, TestImplementation&, PluginLoader&) {
        ++constructed;
    }
    static inline std::atomic<int> constructed{0};
};

// The exception of a failed toolkit assertion ends "<file>:<line>: <text>", and its fatal line names the same
// place, condition and text.
void expectAssertion(const LogCapture& log, const std::function<void()>& call, const std::string& condition,
                     const std::string& text) {
    std::string what;
    try {
        call();
        ADD_FAILURE() << "no exception";
    } catch (const std::logic_error& e) {
        what = e.what();
    }
    const std::string tail = ": " + text;
    ASSERT_GT(what.size(), tail.size()) << what;
    ASSERT_EQ(what.compare(what.size() - tail.size(), tail.size(), tail), 0) << what;
    const std::string place = what.substr(0, what.size() - tail.size());
    EXPECT_NE(place.find("SimpleActor.h:"), std::string::npos) << place;
    EXPECT_EQ(log.texts(Level::fatal), (Texts{"Assertion \"" + condition + "\" failed in " + place + " :" + text}));
}

class Actors : public ::testing::Test {
protected:
    void SetUp() override {
        m_session = std::make_unique<Session>(vantrel::test::domainId(), kelva::config::Config{});
        m_impl = SessionImpl::getSessionImpl(*m_session);
    }
    void TearDown() override {
        m_impl.reset();
        m_session.reset();
    }

    std::unique_ptr<Session> m_session;
    std::shared_ptr<SessionImpl> m_impl;
};

TEST_F(Actors, SecondSenderOrObserverOnOneActorIsRefusedAndTheFirstStays) {
    auto actor = m_impl->createActor("client", false, "M_Test");
    TestImplementation implementation;
    const int senders = TestSender::constructed.load(), observers = TestObserver::constructed.load();
    auto first = actor->createSender<TestSender>({"CmdA", "CmdB"});
    actor->createObserver<TestObserver>(Texts{"CmdR"}, implementation);
    {
        LogCapture log(Level::info);
        expectAssertion(log, [&] { actor->createSender<TestSender>({"CmdC"}); }, "!hasSender()",
                        "Inserting a sender to an actor already containing one. Called Factory::create() twice? "
                        "(same serviceName + domain)");
    }
    LogCapture log(Level::info);
    expectAssertion(log, [&] { actor->createObserver<TestObserver>(Texts{"CmdS"}, implementation); }, "!hasObserver()",
                    "Inserting an observer to an actor already containing one.Called ObsFactory::add() twice? (same "
                    "serviceName + domain)");
    // The refused ones were never made; the first ones and their published methods stay.
    EXPECT_EQ(TestSender::constructed.load(), senders + 1);
    EXPECT_EQ(TestObserver::constructed.load(), observers + 1);
    EXPECT_EQ(actor->sender<TestSender>().get(), first.get());
    EXPECT_EQ(actor->actorInfo().methodsWrite, (Texts{"CmdA", "CmdB"}));
    EXPECT_EQ(actor->actorInfo().methodsRead, (Texts{"CmdR"}));
}

TEST_F(Actors, SameNameAndModuleIsTheSameActor) {
    auto a = m_impl->createActor("name", false, "M_One");
    auto again = m_impl->createActor("name", false, "M_One");
    EXPECT_EQ(a, again);
    EXPECT_EQ(m_impl->actorCount(), 1u);

    EXPECT_NE(m_impl->createActor("name", false, "M_Two"), a);
    EXPECT_NE(m_impl->createActor("other", false, "M_One"), a);
    EXPECT_EQ(m_impl->actorCount(), 3u);

    // Once shut down, the name makes a new actor.
    a->shutdown();
    auto fresh = m_impl->createActor("name", false, "M_One");
    EXPECT_NE(fresh, a);
    EXPECT_TRUE(fresh->isValid());
    EXPECT_FALSE(a->isValid());
}

TEST_F(Actors, ShutdownReleasesTheActor) {
    std::weak_ptr<SimpleActor> weak;
    {
        auto actor = m_impl->createActor("leaving", false, "M_Test");
        actor->createSender<TestSender>({"CmdA"});
        actor->readPool().createTopicRead<kelva_test_Plain>([](const kelva_test_Plain&, const dds_sample_info_t&) {});
        actor->writePool().createTopicWrite<kelva_test_Plain>();
        weak = actor;
        ASSERT_EQ(m_impl->actorCount(), 1u);
        actor->shutdown();
        EXPECT_FALSE(actor->isValid());
        EXPECT_FALSE(actor->readPool().hasReaders());
        EXPECT_FALSE(actor->writePool().hasWriters());
        EXPECT_EQ(actor->sender<TestSender>(), nullptr) << "a shut-down actor still hands out its sender";
        actor->shutdown();  // a second shut-down is harmless
    }
    EXPECT_TRUE(vantrel::test::waitUntil([&] { return weak.expired(); })) << "the session kept the actor";
    EXPECT_EQ(m_impl->actorCount(), 0u);
}

TEST_F(Actors, CallbackInfoAfterAnExplicitOneIsRebuiltFromTheActor) {
    // An explicitly set record (a plug-in's injected call) replaces every field; the next dispatch must
    // restore the actor's own and leave nothing of the longer strings before it.
    auto actor = m_impl->createActor("receiver", false, "M_Test");
    kelva::actors::CallbackInfo custom = actor->callbackInfoBase();
    custom.actorId = "someone-else-with-a-rather-long-identity";
    custom.moduleName = "M_Other";
    custom.operation = "CmdFromPlugin";
    actor->setCallbackInfo(custom);
    actor->resetCallbackInfo();
    EXPECT_TRUE(actor->callbackInfo().actorId.empty());
    actor->setCallbackInfo("s", "Cmd", 12);
    const auto info = actor->callbackInfo();
    EXPECT_EQ(info.actorId, actor->actorId());
    EXPECT_EQ(info.moduleName, "M_Test");
    EXPECT_EQ(info.senderId, "s");
    EXPECT_EQ(info.operation, "Cmd");
    EXPECT_EQ(info.receptionTime, 12);
}

TEST_F(Actors, ActorOutlivingItsSessionIsInvalid) {
    auto actor = m_impl->createActor("orphan", false, "M_Test");
    m_impl.reset();
    m_session.reset();
    EXPECT_FALSE(actor->isValid());
    EXPECT_FALSE(actor->hasSession());
    EXPECT_EQ(actor->sessionImpl(), nullptr);
    try {
        actor->createSender<TestSender>({"CmdA"});
        ADD_FAILURE() << "a sender was made without a session";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Failure locking std::weak_ptr<SessionImpl> in ActorImpl");
    }
}

TEST(SessionTeardown, DestroyingASessionWaitsForItsRunningHandler) {
    auto writerSession = std::make_unique<Session>(vantrel::test::domainId(), kelva::config::Config{});
    auto readerSession = std::make_unique<Session>(vantrel::test::domainId(), kelva::config::Config{});
    vantrel::test::Gate entered;
    vantrel::test::Gate release;
    std::atomic<bool> handlerReturned{false};
    std::atomic<int> calls{0};
    {
        auto reader = SessionImpl::getSessionImpl(*readerSession)->createActor("blocked", false, "M_Test");
        reader->readPool().createTopicRead<kelva_test_Plain>([&](const kelva_test_Plain&, const dds_sample_info_t&) {
            if (calls++ != 0) return;
            entered.open();
            release.wait();
            handlerReturned = true;
        });
    }
    auto writer = SessionImpl::getSessionImpl(*writerSession)->createActor("writer", false, "M_Test");
    auto& w = writer->writePool().createTopicWrite<kelva_test_Plain>();
    ASSERT_TRUE(w.waitForMatch(10000));
    writer->writePool().write(kelva_test_support::plain(1), true, false);
    ASSERT_TRUE(entered.wait()) << "the handler never ran";

    std::atomic<bool> destroyed{false};
    std::atomic<bool> handlerDoneAtDestruction{false};
    std::thread destroyer([&] {
        readerSession.reset();
        handlerDoneAtDestruction = handlerReturned.load();
        destroyed = true;
    });
    std::this_thread::sleep_for(50ms);  // lets the destruction start while the handler is held
    EXPECT_FALSE(destroyed.load()) << "the session was gone while its handler still ran";
    release.open();

    if (!vantrel::test::waitUntil([&] { return destroyed.load(); })) {
        destroyer.detach();
        FAIL() << "destroying the session hangs after its handler returned";
    }
    destroyer.join();
    EXPECT_TRUE(handlerDoneAtDestruction.load());
    EXPECT_EQ(calls.load(), 1);
    // The writer's side is unaffected and notices the reader leaving.
    EXPECT_TRUE(vantrel::test::waitUntil([&] { return !w.connectState().isConnected(); }));
    writer.reset();
    writerSession.reset();
}

}  // namespace
