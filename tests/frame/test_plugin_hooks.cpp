// Plug-in hooks through a recording plug-in generated for M_Watchdog: senders call `_ToPlugin` after each
// send (with the dispose flag), observers hand every plug-in an injector at creation, and a plug-in that
// lacks a hook makes the facade's creation fail with the loader's text and leave nothing behind.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "Recorded.h"
#include "intern/vantrel/wire/M_WatchdogWire.h"
#include "kelva/actors/Session.h"
#include "kelva/actors/SessionImpl.h"
#include "vantrel/M_Watchdog.h"
#include "vantrel/frame/Sender.h"
#include "vantrel/test/Sessions.h"

namespace {

// `create` fails with the loader's text, which begins with `begins` (the library's name follows).
void expectFailure(const std::function<void()>& create, const std::string& begins) {
    const std::string text = vantrel::test::thrownText<std::runtime_error>(create);
    EXPECT_EQ(text.substr(0, begins.size()), begins) << text;
}

kelva::config::Config withPlugin(const char* path) {
    kelva::config::Config config;
    if (path) config.plugins.push_back({"recorder", path});
    return config;
}

std::shared_ptr<kelva::actors::Session> newSession(const char* plugin = nullptr) {
    return vantrel::test::newSession(withPlugin(plugin));
}

template <class AnySession>
std::size_t actorsOf(AnySession& session) {
    return kelva::actors::SessionImpl::getSessionImpl(session)->actorCount();
}

// The plug-in's own reporting functions, reached through a loader of our own (same library, same state).
// Made with the plug-in's records and injectors forgotten, and forgets them again when it goes.
struct PluginProbe {
    kelva::base::PluginLoader loader;
    explicit PluginProbe(const char* path) {
        loader.load("probe", path);
        reset();
    }
    ~PluginProbe() { reset(); }
    int count(const std::string& line) const {
        auto records = loader.loadFunc<std::size_t (*)()>("probe", "vantrel_plugin_record_count");
        auto at = loader.loadFunc<const char* (*)(std::size_t)>("probe", "vantrel_plugin_record");
        int n = 0;
        for (std::size_t i = 0; i < records(); ++i) n += at(i) == line;
        return n;
    }
    bool inject(const char* operation, const char* sender) const {
        return loader.loadFunc<bool (*)(const char*, const char*)>("probe", "vantrel_plugin_inject")(operation, sender);
    }
    void reset() const { loader.loadFunc<void (*)()>("probe", "vantrel_plugin_reset")(); }
};

struct Watchdog : M_Watchdog::IService {
    Recorded<std::string> watched;
    void ConfigWatch(const std::string& client, const std::string&, const M_Common::StringListType&, bool dispose) override {
        watched.add(client + (dispose ? " dispose" : ""));
    }
};

TEST(PluginHooks, TypedAndWireLevelSendsReportEverySendAndObserversOfferInjectorsToTheirMaps) {
    PluginProbe probe(WATCHDOG_PLUGIN);
    Watchdog watchdog;
    auto service = M_Watchdog::Service::create(newSession(WATCHDOG_PLUGIN), "watchdog", watchdog);
    EXPECT_EQ(probe.count("M_Watchdog_IService_ConfigWatch_FromPlugin " + service.actorInfo().actorId), 1);
    auto client = M_Watchdog::Client::createWriteOnly(newSession(WATCHDOG_PLUGIN), "console");
    const std::string sent = "M_Watchdog_IService_ConfigWatch_ToPlugin " + client.actorInfo().actorId;
    client.waitUntilConnected();
    client->ConfigWatch("camera-app", "M_Camera", {"CmdZoom"}, false);
    EXPECT_EQ(probe.count(sent), 1);
    // Delivered before it is disposed (a disposal that overtakes the data stands for it).
    ASSERT_TRUE(watchdog.watched.waitSize(1));
    client->ConfigWatch("camera-app", "M_Camera", {}, true);
    EXPECT_EQ(probe.count(sent + " dispose"), 1);
    ASSERT_TRUE(watchdog.watched.waitSize(2));

    // A wire-level send is the typed send, hooks and disposal included. The sending actor is the sender's
    // own whatever the message says: the disposal meets the instance the write made only so.
    auto sender = client.operator->();
    auto* wire = dynamic_cast<vantrel::frame::WireSender*>(sender.get());
    ASSERT_NE(wire, nullptr);
    char someoneElse[] = "someone-else", watched[] = "wire-app", watchedService[] = "M_Camera";
    VendorData_M_Watchdog_IService_ConfigWatch message{};
    message.kelva_sending_actor = someoneElse;
    message.KeyWatchedClientId = watched;
    message.KeyAssociatedServiceName = watchedService;
    wire->sendWire(0, &message, false);
    EXPECT_EQ(probe.count(sent), 2);
    ASSERT_TRUE(watchdog.watched.waitSize(3));
    wire->sendWire(0, &message, true);
    EXPECT_EQ(probe.count(sent + " dispose"), 2);
    ASSERT_TRUE(watchdog.watched.waitSize(4));
    EXPECT_STREQ(message.kelva_sending_actor, "someone-else");  // the caller's message is left alone
    EXPECT_THROW(wire->sendWire(1, &message, false), std::out_of_range);
    sender.reset();  // shares the actor: invalidation waits for it
    client.invalidate();
    EXPECT_THROW(client.operator->(), std::logic_error);

    // An injected call reaches the application at once, on the injecting thread, with default arguments.
    ASSERT_TRUE(probe.inject("IService_ConfigWatch", "plugin-sender"));
    EXPECT_EQ(watchdog.watched.now(), (std::vector<std::string>{"camera-app", "camera-app dispose", "wire-app",
                                                         "wire-app dispose", ""}));
    service.invalidate();
    // The next observer's injector replaces it; one for an operation read without an entry in the map throws.
    vantrel::CallbackMap callbacks;
    auto mapped = M_Watchdog::Service::create(newSession(WATCHDOG_PLUGIN), "mapped", callbacks, {"ConfigWatch"});
    try {
        probe.inject("IService_ConfigWatch", "plugin-sender");
        ADD_FAILURE() << "no exception";
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "invalid map<K, T> key");
    }
    mapped.invalidate();
}

// A creation that fails leaves nothing behind: the actor is gone from its session, and samples that arrive
// afterwards reach no handler (the observer they would run into was freed; the sanitizer pass checks),
// while a service created properly gets every one of them.
TEST(FailedCreation, APluginLackingAHookOrANameTakenStopsCreationWithItsTextAndLeavesNothingBehind) {
    auto lacksSender = newSession(WATCHDOG_PLUGIN_LACKING);
    expectFailure([&] { (void)M_Watchdog::Client::createWriteOnly(lacksSender, "console"); },
                  "Could not load build function \"M_Watchdog_IService_ConfigWatch_ToPlugin");
    Watchdog working, failed;
    auto service = M_Watchdog::Service::create(lacksSender, "watchdog", working);  // needs only the hooks there
    // An observer lacking its injector hook; a sender failing after a working observer was made, whose
    // injectors, handed out already, then refuse to run.
    auto lacksInjector = newSession(WATCHDOG_PLUGIN_LACKING_INJECTOR);
    expectFailure([&] { (void)M_Watchdog::Service::create(lacksInjector, "watchdog", failed); },
                  "Could not load build function \"M_Watchdog_IService_ConfigWatch_FromPlugin");
    PluginProbe probe(WATCHDOG_PLUGIN_LACKING_REPORT);
    auto lacksReport = newSession(WATCHDOG_PLUGIN_LACKING_REPORT);
    expectFailure([&] { (void)M_Watchdog::Service::create(lacksReport, "watchdog", failed); },
                  "Could not load build function \"M_Watchdog_IClient_ReportWatchStatus_ToPlugin");
    EXPECT_THROW(probe.inject("IService_ConfigWatch", "plugin-sender"), std::logic_error);
    EXPECT_EQ(actorsOf(*lacksInjector) + actorsOf(*lacksReport), 0u);
    // Every read-only variant too.
    auto monitor = std::make_shared<kelva::actors::MonitorSession>(vantrel::test::domainId(),
                                                                   withPlugin(WATCHDOG_PLUGIN_LACKING_INJECTOR));
    vantrel::CallbackMap none;
    EXPECT_THROW(M_Watchdog::Service::createReadOnly(monitor, "watcher", failed), std::runtime_error);
    EXPECT_THROW(M_Watchdog::Service::createMonitor(monitor, failed), std::runtime_error);
    EXPECT_THROW(M_Watchdog::Service::createMonitor(monitor, none), std::runtime_error);
    EXPECT_EQ(actorsOf(*monitor), 0u);

    // A name taken by a service or by a sender.
    auto writeOnly = M_Watchdog::Service::createWriteOnly(lacksSender, "writer");
    EXPECT_THROW(M_Watchdog::Service::create(lacksSender, "watchdog", failed), std::logic_error);
    EXPECT_THROW(M_Watchdog::Service::create(lacksSender, "writer", failed), std::logic_error);
    EXPECT_TRUE(service.isValid());
    EXPECT_TRUE(writeOnly.actorInfo().methodsRead.empty());  // the sending actor started no observer

    auto client = M_Watchdog::Client::createWriteOnly(newSession(), "console");
    for (int i = 0; i < 20; ++i) client->ConfigWatch("app " + std::to_string(i), "M_Camera", {"CmdZoom"}, false);
    EXPECT_TRUE(working.watched.waitSize(20));
    EXPECT_TRUE(failed.watched.now().empty()) << "a failed creation's implementation is being called";
}

}  // namespace
