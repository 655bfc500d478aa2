// Plug-in hooks through a recording plug-in generated for M_Watchdog: senders call `_ToPlugin` after each
// send (with the dispose flag), observers hand every plug-in an injector at creation, and a plug-in that
// lacks a hook makes the facade's creation fail with the loader's text.
#include <gtest/gtest.h>

#include <chrono>
#include <mutex>
#include <thread>

#include "intern/vantrel/wire/M_WatchdogWire.h"
#include "kelva/actors/Session.h"
#include "kelva/actors/SessionImpl.h"
#include "vantrel/M_Watchdog.h"
#include "vantrel/frame/Sender.h"
#include "vantrel/test/Support.h"

namespace {

kelva::config::Config withPlugin(const char* path) {
    kelva::config::Config config;
    config.plugins.push_back({"recorder", path});
    return config;
}

// The plug-in's own reporting functions, reached through a loader of our own (same library, same state).
struct PluginProbe {
    kelva::base::PluginLoader loader;
    explicit PluginProbe(const char* path) { loader.load("probe", path); }
    std::vector<std::string> records() const {
        auto count = loader.loadFunc<std::size_t (*)()>("probe", "vantrel_plugin_record_count");
        auto at = loader.loadFunc<const char* (*)(std::size_t)>("probe", "vantrel_plugin_record");
        std::vector<std::string> out;
        for (std::size_t i = 0; i < count(); ++i) out.push_back(at(i));
        return out;
    }
    bool inject(const char* operation, const char* sender) const {
        return loader.loadFunc<bool (*)(const char*, const char*)>("probe", "vantrel_plugin_inject")(operation, sender);
    }
    void reset() const { loader.loadFunc<void (*)()>("probe", "vantrel_plugin_reset")(); }
    bool has(const std::string& line) const {
        for (const auto& r : records())
            if (r == line) return true;
        return false;
    }
};

struct Watchdog : M_Watchdog::IService {
    std::mutex mutex;
    std::vector<std::string> watched;
    void ConfigWatch(const std::string& client, const std::string&, const M_Common::StringListType&, bool dispose) override {
        std::lock_guard<std::mutex> lock(mutex);
        watched.push_back(client + (dispose ? " dispose" : ""));
    }
    bool waitWatched(std::size_t n) {
        return vantrel::test::waitUntil([&] {
            std::lock_guard<std::mutex> lock(mutex);
            return watched.size() == n;
        });
    }
};

// A watchdog service and a client session, both with the probing plug-in loaded.
class PluginHooksOnWatchdog : public ::testing::Test {
protected:
    PluginProbe probe{WATCHDOG_PLUGIN};
    const kelva::config::Config config = (probe.reset(), withPlugin(WATCHDOG_PLUGIN));
    std::shared_ptr<kelva::actors::Session> serviceSession =
        std::make_shared<kelva::actors::Session>(vantrel::test::domainId(), config);
    std::shared_ptr<kelva::actors::Session> clientSession =
        std::make_shared<kelva::actors::Session>(vantrel::test::domainId(), config);
    Watchdog watchdog;
    M_Watchdog::Service service = M_Watchdog::Service::create(serviceSession, "watchdog", watchdog);
};

TEST_F(PluginHooksOnWatchdog, SendersReportEverySendAndObserversOfferInjectors) {
    EXPECT_TRUE(probe.has("M_Watchdog_IService_ConfigWatch_FromPlugin " + service.actorInfo().actorId));

    auto client = M_Watchdog::Client::createWriteOnly(clientSession, "console");
    const std::string clientId = client.actorInfo().actorId;
    client.waitUntilConnected();
    client->ConfigWatch("camera-app", "M_Camera", {"CmdZoom"}, false);
    EXPECT_TRUE(probe.has("M_Watchdog_IService_ConfigWatch_ToPlugin " + clientId));
    // Delivered before it is disposed (a disposal that overtakes the data stands for it).
    ASSERT_TRUE(watchdog.waitWatched(1));
    client->ConfigWatch("camera-app", "M_Camera", {}, true);
    EXPECT_TRUE(probe.has("M_Watchdog_IService_ConfigWatch_ToPlugin " + clientId + " dispose"));
    ASSERT_TRUE(watchdog.waitWatched(2));

    // An injected call reaches the application at once, on the injecting thread.
    ASSERT_TRUE(probe.inject("IService_ConfigWatch", "plugin-sender"));
    {
        std::lock_guard<std::mutex> lock(watchdog.mutex);
        ASSERT_EQ(watchdog.watched.size(), 3u);
        EXPECT_EQ(watchdog.watched.back(), "");  // default arguments, dispose false
    }
    service.invalidate();
    probe.reset();  // the injectors die with the observer
}

TEST_F(PluginHooksOnWatchdog, AWireLevelSendIsTheTypedSendHooksAndDisposalIncluded) {
    auto client = M_Watchdog::Client::createWriteOnly(clientSession, "console");
    const std::string clientId = client.actorInfo().actorId;
    client.waitUntilConnected();

    auto sender = client.operator->();
    auto* wire = dynamic_cast<vantrel::frame::WireSender*>(sender.get());
    ASSERT_NE(wire, nullptr);
    // The sending actor is the sender's own whatever the message says: the disposal below meets the
    // instance the write made only so.
    char someoneElse[] = "someone-else";
    char watched[] = "camera-app";
    char service_[] = "M_Camera";
    VendorData_M_Watchdog_IService_ConfigWatch message{};
    message.kelva_sending_actor = someoneElse;
    message.KeyWatchedClientId = watched;
    message.KeyAssociatedServiceName = service_;
    wire->sendWire(0, &message, false);
    EXPECT_TRUE(probe.has("M_Watchdog_IService_ConfigWatch_ToPlugin " + clientId));
    ASSERT_TRUE(watchdog.waitWatched(1));
    wire->sendWire(0, &message, true);
    EXPECT_TRUE(probe.has("M_Watchdog_IService_ConfigWatch_ToPlugin " + clientId + " dispose"));
    ASSERT_TRUE(watchdog.waitWatched(2));
    {
        std::lock_guard<std::mutex> lock(watchdog.mutex);
        EXPECT_EQ(watchdog.watched[0], "camera-app");
        EXPECT_EQ(watchdog.watched[1], "camera-app dispose");
    }
    EXPECT_STREQ(message.kelva_sending_actor, "someone-else");  // the caller's message is left alone
    EXPECT_THROW(wire->sendWire(1, &message, false), std::out_of_range);

    sender.reset();  // shares the actor: invalidation waits for it
    client.invalidate();
    EXPECT_THROW(client.operator->(), std::logic_error);
    service.invalidate();
    probe.reset();
}

TEST(PluginHooks, APluginLackingAHookStopsCreationWithTheLoadersText) {
    auto session = std::make_shared<kelva::actors::Session>(vantrel::test::domainId(), withPlugin(WATCHDOG_PLUGIN_LACKING));
    try {
        auto client = M_Watchdog::Client::createWriteOnly(session, "console");
        FAIL() << "no exception";
    } catch (const std::runtime_error& e) {
        const std::string text = e.what();
        EXPECT_EQ(text.rfind("Could not load build function \"M_Watchdog_IService_ConfigWatch_ToPlugin", 0), 0u) << text;
    }
    // The service side needs only the hooks that are there.
    Watchdog watchdog;
    auto service = M_Watchdog::Service::create(session, "watchdog", watchdog);
    EXPECT_TRUE(service.isValid());
}

}  // namespace

namespace {

std::size_t actorsOf(const std::shared_ptr<kelva::actors::Session>& session) {
    return kelva::actors::SessionImpl::getSessionImpl(*session)->actorCount();
}

// A creation that fails leaves nothing behind: the actor is gone from the session, and samples that arrive
// afterwards reach no handler (the observer they would run into was freed; the sanitizer pass checks).
void expectNothingLeftAfterFailedServiceCreation(const char* plugin, const std::string& expectedHook) {
    auto session = std::make_shared<kelva::actors::Session>(vantrel::test::domainId(), withPlugin(plugin));
    Watchdog watchdog;
    try {
        auto service = M_Watchdog::Service::create(session, "watchdog", watchdog);
        FAIL() << "no exception";
    } catch (const std::runtime_error& e) {
        EXPECT_NE(std::string(e.what()).find(expectedHook), std::string::npos) << e.what();
    }
    EXPECT_EQ(actorsOf(session), 0u);

    auto clientSession = std::make_shared<kelva::actors::Session>(vantrel::test::domainId());
    auto client = M_Watchdog::Client::createWriteOnly(clientSession, "console");
    for (int i = 0; i < 20; ++i) client->ConfigWatch("camera-app", "M_Camera", {"CmdZoom"}, false);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    std::lock_guard<std::mutex> lock(watchdog.mutex);
    EXPECT_TRUE(watchdog.watched.empty());
}

// An observer lacking its injector hook; a sender failing after a working observer was made, whose
// injectors, handed out already, then refuse to run.
TEST(FailedCreation, AnObserverOrSenderLackingAHookTakesBackReadersActorAndInjectors) {
    expectNothingLeftAfterFailedServiceCreation(WATCHDOG_PLUGIN_LACKING_INJECTOR, "M_Watchdog_IService_ConfigWatch_FromPlugin");
    PluginProbe probe(WATCHDOG_PLUGIN_LACKING_REPORT);
    probe.reset();
    expectNothingLeftAfterFailedServiceCreation(WATCHDOG_PLUGIN_LACKING_REPORT, "M_Watchdog_IClient_ReportWatchStatus_ToPlugin");
    EXPECT_THROW(probe.inject("IService_ConfigWatch", "plugin-sender"), std::logic_error);
    probe.reset();
}

TEST(FailedCreation, EveryReadOnlyVariantLeavesNothingBehind) {
    auto config = withPlugin(WATCHDOG_PLUGIN_LACKING_INJECTOR);
    auto monitor = std::make_shared<kelva::actors::MonitorSession>(vantrel::test::domainId(), config);
    Watchdog watchdog;
    vantrel::CallbackMap none;
    EXPECT_THROW(M_Watchdog::Service::createReadOnly(monitor, "watcher", watchdog), std::runtime_error);
    EXPECT_THROW(M_Watchdog::Service::createMonitor(monitor, watchdog), std::runtime_error);
    EXPECT_THROW(M_Watchdog::Service::createMonitor(monitor, none), std::runtime_error);
    EXPECT_EQ(kelva::actors::SessionImpl::getSessionImpl(*monitor)->actorCount(), 0u);
}

TEST(FailedCreation, ASecondCreationUnderATakenNameFailsWithoutHarmingTheFirst) {
    auto session = std::make_shared<kelva::actors::Session>(vantrel::test::domainId());
    Watchdog first, second;
    auto service = M_Watchdog::Service::create(session, "watchdog", first);
    EXPECT_THROW(M_Watchdog::Service::create(session, "watchdog", second), std::logic_error);
    EXPECT_TRUE(service.isValid());
    auto client = M_Watchdog::Client::createWriteOnly(session, "console");
    client->ConfigWatch("camera-app", "M_Camera", {}, false);
    EXPECT_TRUE(vantrel::test::waitUntil([&] {
        std::lock_guard<std::mutex> lock(first.mutex);
        return first.watched.size() == 1;
    }));
}

TEST(FailedCreation, ACreationMeetingASendingActorOfItsNameStartsNoObserver) {
    auto session = std::make_shared<kelva::actors::Session>(vantrel::test::domainId());
    auto writeOnly = M_Watchdog::Service::createWriteOnly(session, "watchdog");
    Watchdog watchdog;
    EXPECT_THROW(M_Watchdog::Service::create(session, "watchdog", watchdog), std::logic_error);
    EXPECT_TRUE(writeOnly.actorInfo().methodsRead.empty());
    auto client = M_Watchdog::Client::createWriteOnly(std::make_shared<kelva::actors::Session>(vantrel::test::domainId()), "console");
    for (int i = 0; i < 20; ++i) client->ConfigWatch("camera-app", "M_Camera", {}, false);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    std::lock_guard<std::mutex> lock(watchdog.mutex);
    EXPECT_TRUE(watchdog.watched.empty()) << "the failed creation's implementation is being called";
}

TEST(PluginHooks, InjectingAnOperationWithoutAnEntryInTheCallbackMapThrowsOutOfRange) {
    PluginProbe probe(WATCHDOG_PLUGIN);
    probe.reset();
    auto session = std::make_shared<kelva::actors::Session>(vantrel::test::domainId(), withPlugin(WATCHDOG_PLUGIN));
    vantrel::CallbackMap callbacks;  // ConfigWatch is read but has no entry
    auto service = M_Watchdog::Service::create(session, "watchdog", callbacks, {"ConfigWatch"});
    try {
        probe.inject("IService_ConfigWatch", "plugin-sender");
        FAIL() << "no exception";
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "invalid map<K, T> key");
    }
    service.invalidate();
    probe.reset();
}

}  // namespace
