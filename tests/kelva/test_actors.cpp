// Actors of a session and their topic pools from creation to outliving the session; the plug-in loader and
// the plug-ins and topic prefix a session takes from its configuration.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "KelvaTestTypes.h"
#include "kelva/access/TopicStrategyMapChars.h"
#include "kelva/actors/SessionImpl.h"
#include "kelva/base/PluginLoader.h"
#include "vantrel/test/LogCapture.h"
#include "vantrel/test/Sessions.h"

namespace {

using kelva::access::TopicPoolRead;
using kelva::access::TopicPoolWrite;
using kelva::actors::SessionImpl;
using kelva::actors::SimpleActor;
using kelva::base::PluginLoader;
using kelva::utils::log::Level;
using vantrel::test::LogCapture;
using vantrel::test::thrownText;
using Texts = std::vector<std::string>;

struct TestSender : kelva::actors::ISender {
    TestSender(SimpleActor&, TopicPoolWrite&, PluginLoader&) { ++constructed; }
    static inline std::atomic<int> constructed{0};
};

struct TestImplementation {};

struct TestObserver : kelva::actors::IObserver {
    TestObserver(SimpleActor&, TopicPoolRead&, const Texts&, TestImplementation&, PluginLoader&) { ++constructed; }
    static inline std::atomic<int> constructed{0};
};

// A failed toolkit assertion throws "<file>:<line>: <text>" and logs a fatal line naming the same place,
// condition and text.
void expectAssertion(const std::function<void()>& call, const std::string& condition, const std::string& text) {
    LogCapture log(Level::info);
    const std::string what = thrownText<std::logic_error>(call), tail = ": " + text;
    ASSERT_GT(what.size(), tail.size()) << what;
    ASSERT_EQ(what.substr(what.size() - tail.size()), tail) << what;
    const std::string place = what.substr(0, what.size() - tail.size());
    EXPECT_NE(place.find("SimpleActor.h:"), std::string::npos) << place;
    EXPECT_EQ(log.texts(Level::fatal), (Texts{"Assertion \"" + condition + "\" failed in " + place + " :" + text}));
}

// The error lines of a write that finds no writer: it neither throws nor reaches the DDS layer.
Texts errorsOf(const std::function<void()>& call) {
    LogCapture log(Level::info);
    EXPECT_NO_THROW(call());
    EXPECT_TRUE(log.texts(Level::info).empty()) << "a write without writer reached one";
    return log.texts(Level::error);
}

TEST(Actors, OneActorFromCreationThroughShutdownToOutlivingItsSession) {
    auto session = vantrel::test::newSession(kelva::config::Config{});
    auto impl = SessionImpl::getSessionImpl(*session);
    auto actor = impl->createActor("name", false, "M_Test");
    EXPECT_EQ(impl->createActor("name", false, "M_Test"), actor);
    EXPECT_EQ(impl->actorCount(), 1u);
    EXPECT_NE(impl->createActor("name", false, "M_Two"), actor);
    EXPECT_NE(impl->createActor("other", false, "M_Test"), actor);
    EXPECT_EQ(impl->actorCount(), 3u);

    TestImplementation implementation;
    const int senders = TestSender::constructed, observers = TestObserver::constructed;
    auto first = actor->createSender<TestSender>({"CmdA", "CmdB"});
    actor->createObserver<TestObserver>(Texts{"CmdR"}, implementation);
    expectAssertion([&] { actor->createSender<TestSender>({"CmdC"}); }, "!hasSender()",
                    "Inserting a sender to an actor already containing one. Called Factory::create() twice? "
                    "(same serviceName + domain)");
    expectAssertion([&] { actor->createObserver<TestObserver>(Texts{"CmdS"}, implementation); }, "!hasObserver()",
                    "Inserting an observer to an actor already containing one.Called ObsFactory::add() twice? (same "
                    "serviceName + domain)");
    // The refused ones were never made; the first ones and their published methods stay.
    EXPECT_EQ(TestSender::constructed, senders + 1);
    EXPECT_EQ(TestObserver::constructed, observers + 1);
    EXPECT_EQ(actor->sender<TestSender>().get(), first.get());
    EXPECT_EQ(actor->actorInfo().methodsWrite, (Texts{"CmdA", "CmdB"}));
    EXPECT_EQ(actor->actorInfo().methodsRead, (Texts{"CmdR"}));

    // An explicitly set record (a plug-in's injected call) replaces every field; the next dispatch must
    // restore the actor's own and leave nothing of the longer strings before it.
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

    // Writing or disposing without a writer logs and returns.
    auto& pool = actor->writePool();
    const kelva_test_support::Keyed keyHolder{"k", 0, ""};
    const auto key = kelva_test_support::view(keyHolder);
    const std::string noTopic = "TopicPoolWrite::writer: no topic in topic pool";
    const std::string noWriter = "TopicPoolWrite::writer: no writer in topic";
    const std::string noWrite = "TopicPoolWrite::writeIntern: no writer in topic pool";
    const std::string noDispose = "TopicPoolWrite::dispose: no writer in topic pool";
    EXPECT_EQ(errorsOf([&] { pool.write(key, true, false); }), (Texts{noTopic, noWrite}));
    EXPECT_EQ(errorsOf([&] { pool.dispose(key); }), (Texts{noTopic, noDispose}));

    // A writer without reader logs, throws, both or neither, as asked; through the pool the same.
    auto& w = pool.createTopicWrite<kelva_test_Keyed>();
    EXPECT_EQ(pool.getTopicName<kelva_test_Keyed>(), "kelva_test_Keyed");
    ASSERT_FALSE(w.connectState().isConnected());
    for (const bool quiet : {false, true}) {
        for (const bool throwing : {false, true}) {
            SCOPED_TRACE(std::string(quiet ? "quiet" : "logging") + (throwing ? ", throwing" : ""));
            LogCapture log(Level::info);
            EXPECT_EQ(thrownText<std::runtime_error>([&] { w.write(key, quiet, throwing); }),
                      throwing ? "Service for Cmd is unavailable yet - try later." : "no exception");
            EXPECT_EQ(log.texts(Level::info), quiet ? Texts{} : Texts{"Writer not connected while sending (kelva_test::Keyed)."});
        }
    }
    EXPECT_THROW(pool.write(key, true, true), std::runtime_error);
    EXPECT_NO_THROW(pool.write(key, true, false));

    // Shutdown takes every reader and writer and stops the pools; a second one is harmless.
    const auto ignore = [](const kelva_test_Plain&, const dds_sample_info_t&) {};
    actor->readPool().createTopicRead<kelva_test_Plain>(ignore);
    pool.createTopicWrite<kelva_test_Plain>();
    actor->shutdown();
    actor->shutdown();
    EXPECT_FALSE(actor->isValid());
    EXPECT_FALSE(actor->readPool().hasReaders());
    EXPECT_FALSE(pool.hasWriters());
    EXPECT_EQ(actor->sender<TestSender>(), nullptr) << "a shut-down actor still hands out its sender";
    EXPECT_EQ(errorsOf([&] { pool.write(kelva_test_Plain{7}, false, true); }), (Texts{noWriter, noWrite}));
    EXPECT_EQ(errorsOf([&] { pool.dispose(key); }), (Texts{noWriter, noDispose}));
    EXPECT_EQ(errorsOf([&] { EXPECT_EQ(pool.writer<kelva_test_Plain>(), nullptr); }), (Texts{noWriter}));
    EXPECT_THROW(pool.createTopicWrite<kelva_test_Plain>(), std::logic_error);
    EXPECT_THROW(actor->readPool().createTopicRead<kelva_test_Plain>(ignore), std::logic_error);

    // Once shut down, the name makes a new actor, and the session lets go of the old one.
    auto fresh = impl->createActor("name", false, "M_Test");
    EXPECT_NE(fresh, actor);
    EXPECT_TRUE(fresh->isValid());
    std::weak_ptr<SimpleActor> old = actor;
    first.reset();
    actor.reset();
    EXPECT_TRUE(vantrel::test::waitUntil([&] { return old.expired(); })) << "the session kept the actor";
    EXPECT_EQ(impl->actorCount(), 3u);

    // An actor outliving its session is invalid and makes nothing.
    impl.reset();
    session.reset();
    EXPECT_FALSE(fresh->isValid());
    EXPECT_FALSE(fresh->hasSession());
    EXPECT_EQ(fresh->sessionImpl(), nullptr);
    EXPECT_EQ(thrownText<std::runtime_error>([&] { fresh->createSender<TestSender>({"CmdA"}); }),
              "Failure locking std::weak_ptr<SessionImpl> in ActorImpl");
}

const std::string kPluginPath = KELVA_TEST_PLUGIN_PATH;
const std::string kMissingPath = std::string(KELVA_TEST_PLUGIN_DIR) + "/libkelva-no-such-plugin.so";
const char* const kFunction = "kelva_test_plugin_twice_plus_one";
using TwicePlusOne = int (*)(int);

TEST(Session, TakesPluginsAndTopicPrefixFromItsConfigurationAndItsLoaderNamesEachStepsFailure) {
    kelva::config::Config config;
    config.plugins.push_back({"configured", kPluginPath});
    config.topicPrefix = "kelva_test::";
    auto session = vantrel::test::newSession(config);
    auto impl = SessionImpl::getSessionImpl(*session);
    auto& loader = impl->pluginLoader();
    EXPECT_EQ(loader.pluginNames(), (Texts{"configured"}));
    EXPECT_EQ(loader.loadFunc<TwicePlusOne>("configured", kFunction)(-3), -5);
    EXPECT_THROW(loader.load("configured", kPluginPath), std::invalid_argument);  // a name is taken once
    auto actor = impl->createActor("prefixed", false, "M_Test");
    EXPECT_EQ(actor->writePool().getTopicName<kelva_test_Keyed>(), "Keyed");
    EXPECT_EQ(actor->writePool().topic<kelva_test_Keyed>()->name(), "Keyed");
    EXPECT_EQ(kelva::access::TopicStrategyMapChars().get("M_Alert::IService::Cmd.a-b c"), "M_Alert_IService_Cmd_a_b_c");

    // A missing symbol: named, followed by the system's own explanation.
    const std::string prefix = "Could not load build function \"no_such_function";
    const std::string missing =
        thrownText<std::runtime_error>([&] { loader.loadFunc<TwicePlusOne>("configured", "no_such_function"); });
    EXPECT_EQ(missing.rfind(prefix, 0), 0u) << missing;
    EXPECT_GT(missing.size(), prefix.size()) << missing;
    {
        // An unknown plug-in name: thrown and logged.
        LogCapture log(Level::info);
        EXPECT_EQ(thrownText<std::runtime_error>([&] { loader.loadFunc<TwicePlusOne>("other", kFunction); }),
                  "Failed to get handle");
        EXPECT_EQ(log.texts(Level::fatal), (Texts{"Failed to get handle"}));
    }
    // A missing library: thrown at load, naming the path, and not kept; a session configured with it refuses.
    const std::string ghost = thrownText<std::runtime_error>([&] { loader.load("ghost", kMissingPath); });
    EXPECT_NE(ghost.find(kMissingPath), std::string::npos) << ghost;
    EXPECT_EQ(loader.getHandle("ghost"), nullptr);
    config.plugins = {{"ghost", kMissingPath}};
    EXPECT_THROW(vantrel::test::newSession(config), std::runtime_error);
}

}  // namespace
