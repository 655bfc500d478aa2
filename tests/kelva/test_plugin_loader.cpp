// The plug-in loader: loading a library by path, typed lookup of its functions, and the failures of each
// step; and a session loading the plug-ins of its configuration.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "kelva/actors/Session.h"
#include "kelva/actors/SessionImpl.h"
#include "kelva/base/PluginLoader.h"
#include "vantrel/test/LogCapture.h"
#include "vantrel/test/Support.h"

namespace {

using kelva::base::PluginLoader;
using kelva::utils::log::Level;
using TwicePlusOne = int (*)(int);

const std::string kPluginPath = KELVA_TEST_PLUGIN_PATH;
const char* const kFunction = "kelva_test_plugin_twice_plus_one";

TEST(PluginLoader, LoadedFunctionIsCalledThrough) {
    PluginLoader loader;
    EXPECT_TRUE(loader.empty());
    loader.load("test", kPluginPath);
    EXPECT_FALSE(loader.empty());
    EXPECT_NE(loader.getHandle("test"), nullptr);
    EXPECT_EQ(loader.getHandle("absent"), nullptr);
    EXPECT_EQ(loader.pluginNames(), (std::vector<std::string>{"test"}));

    const TwicePlusOne function = loader.loadFunc<TwicePlusOne>("test", kFunction);
    ASSERT_NE(function, nullptr);
    EXPECT_EQ(function(20), 41);
    EXPECT_EQ(function(-3), -5);
}

TEST(PluginLoader, MissingSymbolThrowsNamingTheFunction) {
    PluginLoader loader;
    loader.load("test", kPluginPath);
    const std::string prefix = "Could not load build function \"no_such_function";
    try {
        loader.loadFunc<TwicePlusOne>("test", "no_such_function");
        ADD_FAILURE() << "a missing symbol was found";
    } catch (const std::runtime_error& e) {
        const std::string what = e.what();
        EXPECT_EQ(what.rfind(prefix, 0), 0u) << what;
        // The system's own explanation follows the name.
        EXPECT_GT(what.size(), prefix.size()) << what;
    }
}

TEST(PluginLoader, UnknownPluginNameThrowsAndLogs) {
    PluginLoader loader;
    loader.load("test", kPluginPath);
    vantrel::test::LogCapture log(Level::info);
    try {
        loader.loadFunc<TwicePlusOne>("other", kFunction);
        ADD_FAILURE() << "a function of an unknown plug-in was found";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Failed to get handle");
    }
    EXPECT_EQ(log.texts(Level::fatal), (std::vector<std::string>{"Failed to get handle"}));
}

TEST(PluginLoader, MissingLibraryThrowsAtLoad) {
    PluginLoader loader;
    const std::string path = std::string(KELVA_TEST_PLUGIN_DIR) + "/libkelva-no-such-plugin.so";
    try {
        loader.load("ghost", path);
        ADD_FAILURE() << "a missing library loaded";
    } catch (const std::runtime_error& e) {
        EXPECT_NE(std::string(e.what()).find(path), std::string::npos) << e.what();
    }
    EXPECT_TRUE(loader.empty());
    EXPECT_EQ(loader.getHandle("ghost"), nullptr);
}

TEST(PluginLoader, NameIsTakenOnce) {
    PluginLoader loader;
    loader.load("test", kPluginPath);
    EXPECT_THROW(loader.load("test", kPluginPath), std::invalid_argument);
    EXPECT_EQ(loader.pluginNames().size(), 1u);
}

TEST(PluginLoader, SessionLoadsTheConfiguredPlugins) {
    kelva::config::Config config;
    config.plugins.push_back({"configured", kPluginPath});
    kelva::actors::Session session(vantrel::test::domainId(), config);
    auto& loader = kelva::actors::SessionImpl::getSessionImpl(session)->pluginLoader();
    EXPECT_EQ(loader.pluginNames(), (std::vector<std::string>{"configured"}));
    EXPECT_EQ(loader.loadFunc<TwicePlusOne>("configured", kFunction)(1), 3);

    kelva::config::Config broken;
    broken.plugins.push_back({"ghost", std::string(KELVA_TEST_PLUGIN_DIR) + "/libkelva-no-such-plugin.so"});
    EXPECT_THROW(kelva::actors::Session(vantrel::test::domainId(), broken), std::runtime_error);
}

}  // namespace
