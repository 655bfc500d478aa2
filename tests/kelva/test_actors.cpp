// Actors and sessions: one sender and one observer per actor, actor identity by name and module, release on
// shutdown, and session teardown while a handler is running.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
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

// Made by SimpleActor::createSender with the actor, its write pool and the session's plug-in loader.
class TestSender : public ISender {
public:
    TestSender(SimpleActor& actor, TopicPoolWrite& pool, PluginLoader& loader)
        : actor(&actor), pool(&pool), loader(&loader) {
        ++constructed;
    }
    SimpleActor* actor;
    TopicPoolWrite* pool;
    PluginLoader* loader;
    static inline std::atomic<int> constructed{0};
};

class OtherSender : public ISender {
public:
    OtherSender(SimpleActor&, TopicPoolWrite&, PluginLoader&) {}
};

struct TestImplementation {
    int id = 0;
};

// Made by SimpleActor::createObserver with the actor, its read pool, the methods, the target and the loader.
class TestObserver : public IObserver {
public:
    TestObserver(SimpleActor& actor, TopicPoolRead& pool, const std::vector<std::string>& methods,
                 TestImplementation& target, PluginLoader& loader)
        : actor(&actor), pool(&pool), methods(methods), target(&target), loader(&loader) {
        ++constructed;
    }
    SimpleActor* actor;
    TopicPoolRead* pool;
    std::vector<std::string> methods;
    TestImplementation* target;
    PluginLoader* loader;
    static inline std::atomic<int> constructed{0};
};

// Splits an assertion's exception text "<file>:<line>: <text>" at the text; empty when it does not end so.
std::string placeOf(const std::string& what, const std::string& text) {
    const std::string tail = ": " + text;
    if (what.size() <= tail.size() || what.compare(what.size() - tail.size(), tail.size(), tail) != 0) return {};
    return what.substr(0, what.size() - tail.size());
}

// The fatal line and the exception of a failed toolkit assertion name the same place and text.
void expectAssertion(const LogCapture& log, const std::string& what, const std::string& condition,
                     const std::string& text) {
    const std::string place = placeOf(what, text);
    ASSERT_FALSE(place.empty()) << "exception text does not end with the assertion text: " << what;
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

TEST_F(Actors, SecondSenderOnOneActorIsRefusedAndTheFirstStays) {
    auto actor = m_impl->createActor("client", false, "M_Test");
    LogCapture log(Level::info);
    const int before = TestSender::constructed.load();

    auto first = actor->createSender<TestSender>({"CmdA", "CmdB"});
    ASSERT_NE(first, nullptr);
    EXPECT_TRUE(actor->hasSender());
    EXPECT_EQ(first->actor, actor.get());
    EXPECT_EQ(first->pool, &actor->writePool());
    EXPECT_EQ(first->loader, &m_impl->pluginLoader());
    EXPECT_EQ(actor->actorInfo().methodsWrite, (Texts{"CmdA", "CmdB"}));
    EXPECT_EQ(log.count(Level::info, "Create sender"), 1u);
    EXPECT_TRUE(log.texts(Level::fatal).empty());

    const std::string text =
        "Inserting a sender to an actor already containing one. Called Factory::create() twice? (same serviceName + domain)";
    std::string what;
    try {
        actor->createSender<TestSender>({"CmdC"});
        ADD_FAILURE() << "a second sender was accepted";
    } catch (const std::logic_error& e) {
        what = e.what();
    }
    EXPECT_NE(what.find(text), std::string::npos) << what;
    expectAssertion(log, what, "!hasSender()", text);

    // The refused sender was never made; the first one and its published methods stay.
    EXPECT_EQ(TestSender::constructed.load(), before + 1);
    EXPECT_EQ(actor->sender<TestSender>().get(), first.get());
    EXPECT_EQ(actor->sender<OtherSender>(), nullptr);
    EXPECT_EQ(actor->actorInfo().methodsWrite, (Texts{"CmdA", "CmdB"}));
}

TEST_F(Actors, SecondObserverOnOneActorIsRefused) {
    auto actor = m_impl->createActor("service", false, "M_Test");
    TestImplementation implementation;
    LogCapture log(Level::info);
    const int before = TestObserver::constructed.load();

    auto first = actor->createObserver<TestObserver>(Texts{"CmdA"}, implementation);
    ASSERT_NE(first, nullptr);
    EXPECT_TRUE(actor->hasObserver());
    EXPECT_FALSE(actor->hasSender());
    EXPECT_EQ(first->actor, actor.get());
    EXPECT_EQ(first->pool, &actor->readPool());
    EXPECT_EQ(first->target, &implementation);
    EXPECT_EQ(first->loader, &m_impl->pluginLoader());
    EXPECT_EQ(first->methods, (Texts{"CmdA"}));
    EXPECT_EQ(actor->actorInfo().methodsRead, (Texts{"CmdA"}));
    EXPECT_EQ(log.count(Level::info, "Create observer"), 1u);

    const std::string text =
        "Inserting an observer to an actor already containing one.Called ObsFactory::add() twice? (same serviceName + domain)";
    std::string what;
    try {
        actor->createObserver<TestObserver>(Texts{"CmdB"}, implementation);
        ADD_FAILURE() << "a second observer was accepted";
    } catch (const std::logic_error& e) {
        what = e.what();
    }
    expectAssertion(log, what, "!hasObserver()", text);
    EXPECT_EQ(TestObserver::constructed.load(), before + 1);
    EXPECT_EQ(actor->actorInfo().methodsRead, (Texts{"CmdA"}));
}

TEST_F(Actors, SameNameAndModuleIsTheSameActor) {
    auto a = m_impl->createActor("name", false, "M_One");
    auto again = m_impl->createActor("name", false, "M_One");
    EXPECT_EQ(a, again);
    EXPECT_EQ(m_impl->actorCount(), 1u);

    auto otherModule = m_impl->createActor("name", false, "M_Two");
    auto otherName = m_impl->createActor("other", false, "M_One");
    EXPECT_NE(otherModule, a);
    EXPECT_NE(otherName, a);
    EXPECT_NE(otherModule->actorId(), a->actorId());
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

TEST_F(Actors, CallbackInfoHoldsTheCallInProgressOnlyAndIsRebuiltAfterAnExplicitOne) {
    auto actor = m_impl->createActor("receiver", false, "M_Test");
    auto expectEmpty = [&](const char* when) {
        const auto info = actor->callbackInfo();
        EXPECT_TRUE(info.actorId.empty() && info.moduleName.empty() && info.senderId.empty() && info.operation.empty() &&
                    info.receptionTime == 0)
            << when;
    };
    // A dispatch sets sender, operation and time; the actor's own fields come with them.
    auto expectDispatched = [&](const char* sender, const char* operation, long long time) {
        actor->setCallbackInfo(sender, operation, time);
        const auto info = actor->callbackInfo();
        EXPECT_EQ(info.actorId, actor->actorId());
        EXPECT_EQ(info.moduleName, "M_Test");
        EXPECT_EQ(info.senderId, sender);
        EXPECT_EQ(info.operation, operation);
        EXPECT_EQ(info.receptionTime, time);
        actor->resetCallbackInfo();
    };
    expectEmpty("before any call");

    expectDispatched("sender-with-a-rather-long-identity", "CmdA", 11);
    expectEmpty("after the call");

    // An explicitly set record replaces everything, base fields included; the next dispatch restores them
    // and leaves nothing of the longer strings before it.
    kelva::actors::CallbackInfo custom = actor->callbackInfoBase();
    EXPECT_EQ(custom.actorId, actor->actorId());
    EXPECT_EQ(custom.moduleName, "M_Test");
    EXPECT_TRUE(custom.senderId.empty());
    custom.actorId = "someone-else";
    custom.moduleName = "M_Other";
    custom.senderId = "plug-in";
    custom.operation = "CmdFromPlugin";
    actor->setCallbackInfo(custom);
    EXPECT_EQ(actor->callbackInfo().actorId, "someone-else");
    actor->resetCallbackInfo();
    expectEmpty("after the explicit call");
    expectDispatched("s", "Cmd", 12);
    expectEmpty("after the last call");
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
