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

TEST(PluginLoader, LoadedFunctionIsCalledThroughAndEachStepsFailureIsNamed) {
    PluginLoader loader;
    loader.load("test", kPluginPath);
    EXPECT_EQ(loader.pluginNames(), (std::vector<std::string>{"test"}));
    EXPECT_EQ(loader.loadFunc<TwicePlusOne>("test", kFunction)(-3), -5);
    EXPECT_THROW(loader.load("test", kPluginPath), std::invalid_argument);  // a name is taken once

    // A missing symbol: named, followed by the system's own explanation.
    const std::string prefix = "Could not load build function \"no_such_function";
    try {
        loader.loadFunc<TwicePlusOne>("test", "no_such_function");
        ADD_FAILURE() << "a missing symbol was found";
    } catch (const std::runtime_error& e) {
        EXPECT_EQ(std::string(e.what()).rfind(prefix, 0), 0u) << e.what();
        EXPECT_GT(std::string(e.what()).size(), prefix.size()) << e.what();
    }
    // An unknown plug-in name: thrown and logged.
    vantrel::test::LogCapture log(Level::info);
    try {
        loader.loadFunc<TwicePlusOne>("other", kFunction);
        ADD_FAILURE() << "a function of an unknown plug-in was found";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Failed to get handle");
    }
    EXPECT_EQ(log.texts(Level::fatal), (std::vector<std::string>{"Failed to get handle"}));
    // A missing library: thrown at load, naming the path, and not kept.
    const std::string path = std::string(KELVA_TEST_PLUGIN_DIR) + "/libkelva-no-such-plugin.so";
    try {
        loader.load("ghost", path);
        ADD_FAILURE() << "a missing library loaded";
    } catch (const std::runtime_error& e) {
        EXPECT_NE(std::string(e.what()).find(path), std::string::npos) << e.what();
    }
    EXPECT_EQ(loader.getHandle("ghost"), nullptr);
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
