// The toolkit configuration (file, environment, defaults, QoS rules, [network], [security], the DDS
// configuration a network section makes), the logger, glob matching and thread-exit cleanups.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "kelva/access/QosPattern.h"
#include "kelva/actors/SessionImpl.h"
#include "kelva/config/Config.h"
#include "kelva/config/Participant.h"
#include "kelva/utils/Log.h"
#include "kelva/utils/System.h"
#include "vantrel/test/LogCapture.h"
#include "vantrel/test/Sessions.h"
#include "vantrel/test/TempDir.h"

namespace {

using kelva::actors::SessionImpl;
using kelva::config::Config;
using kelva::config::ConfigError;
using kelva::config::Durability;
using kelva::config::Reliability;
using kelva::utils::log::Level;
using kelva::utils::log::Logger;
using vantrel::test::participantsOf;
using vantrel::test::thrownText;
using Texts = std::vector<std::string>;

using Configuration = vantrel::test::TempDirTest;

#if defined(_WIN32)
// The C runtime's environment: the one std::getenv reads. An empty value removes the variable.
int setenv(const char* name, const char* value, int) { return ::_putenv_s(name, value); }
int unsetenv(const char* name) { return ::_putenv_s(name, ""); }
#else
using ::setenv;
using ::unsetenv;
#endif

TEST_F(Configuration, TheEnvironmentsFileSetsEverySettingOverTheDefaults) {
    // KELVA_CONFIG unset before and after: a later session of this process would read it.
    struct Unset {
        Unset() { unsetenv("KELVA_CONFIG"); }
        ~Unset() { unsetenv("KELVA_CONFIG"); }
    } unset;
    // Without the variable: the defaults, the toolkit's alone here (no product library loaded).
    EXPECT_EQ(Config::fromEnvironment().qosFor("M_Alert_IClient_ReportAlertStatus").durability, Durability::Volatile);
    // A product's defaults come before the toolkit's last rule, and the file overrides them.
    kelva::config::QosRule state;
    state.match = "*_Report*";
    state.durability = Durability::TransientLocal;
    state.historyDepth = 1;
    kelva::config::setProductDefaults({"Product::", {state}});
    const Config product = Config::fromEnvironment();
    EXPECT_EQ(product.topicPrefix, "Product::");
    EXPECT_EQ(product.qosFor("M_Alert_IClient_ReportAlertStatus").durability, Durability::TransientLocal);
    EXPECT_EQ(product.qosFor("M_Alert_IService_CmdRaiseAlarm").durability, Durability::Volatile);
    setenv("KELVA_CONFIG", write("kelva.toml", R"(# deployment settings
[log]
level = "debug"
sink = "stdout"
[topics]
prefix = "Acme::"
[session]
first_write_timeout_ms = 750
check_most_derived_class_type = true
publish_actor_info = false
[[plugins]]
name = "audit"
path = "/opt/plugins/libaudit.so"
[[plugins]]
name = "trace"
path = "/opt/plugins/libtrace.so"
[[qos]]
match = "M_Video_*"
reliability = "best_effort"
durability = "transient_local"
history = 4
max_blocking_time_ms = 250
[[qos]]
match = "M_Log_?Service_*"
history = "all"
writer_history = 500
[network]
dds_config = ["profiles/lan.xml", "/etc/extra.xml"]
interface = "eth1"
peers = ["192.168.7.2", "192.168.7.3"]
[security]
identity_ca = "keys/ca.pem"
identity_certificate = "a.pem"
private_key = "a.key"
permissions_ca = "/pki/ca.pem"
governance = "g.p7s"
permissions = "p.p7s"
)").c_str(), 1);
    const Config c = Config::fromEnvironment();
    kelva::config::setProductDefaults({});
    EXPECT_EQ(c.logLevel, Level::debug);
    EXPECT_EQ(c.logSink, "stdout");
    EXPECT_EQ(c.topicPrefix, "Acme::");
    EXPECT_EQ(c.firstWriteTimeoutMs, 750);
    EXPECT_TRUE(c.checkMostDerivedClassType);
    EXPECT_FALSE(c.publishActorInfo);
    ASSERT_EQ(c.plugins.size(), 2u);
    EXPECT_EQ(c.plugins[1].name, "trace");
    EXPECT_EQ(c.plugins[1].path, "/opt/plugins/libtrace.so");

    // The file's rules first, in order, then the product's and the toolkit's ("*"); unset members keep
    // their defaults.
    ASSERT_EQ(c.qos.size(), 4u);
    EXPECT_EQ(c.qos[0].reliability, Reliability::BestEffort);
    EXPECT_EQ(c.qos[0].durability, Durability::TransientLocal);
    EXPECT_EQ(c.qos[0].historyDepth, 4);
    EXPECT_EQ(c.qos[0].maxBlockingTimeMs, 250);
    EXPECT_EQ(c.qos[1].historyDepth, 0);
    EXPECT_EQ(c.qos[1].writerHistoryDepth, 500);
    EXPECT_EQ(c.qos[1].reliability, Reliability::Reliable);
    EXPECT_EQ(&c.qosFor("M_Video_IClient_ReportFrame"), &c.qos[0]);
    EXPECT_EQ(&c.qosFor("M_Log_IService_CmdWrite"), &c.qos[1]);
    EXPECT_EQ(&c.qosFor("M_Alert_IClient_ReportAlertStatus"), &c.qos[2]);
    EXPECT_EQ(&c.qosFor("M_Alert_IService_CmdRaiseAlarm"), &c.qos[3]);
    // The rules reach the DDS entities. A disposal must not unregister, and a writer going away must not
    // dispose what it reported.
    const kelva::access::QosPattern video(c.qos[0]), logs(c.qos[1]);
    dds_history_kind_t history{};
    int32_t depth = 0;
    for (const dds_qos_t* qos : {video.qosTopic(), video.qosWrite(), video.qosRead()}) {
        dds_durability_kind_t durability{};
        ASSERT_TRUE(dds_qget_durability(qos, &durability));
        EXPECT_EQ(durability, DDS_DURABILITY_TRANSIENT_LOCAL);
        ASSERT_TRUE(dds_qget_history(qos, &history, &depth));
        EXPECT_EQ(depth, 4);
    }
    bool autodispose = true;
    ASSERT_TRUE(dds_qget_writer_data_lifecycle(video.qosWrite(), &autodispose));
    EXPECT_FALSE(autodispose);
    // The writer of a keep-all topic keeps the bound the rule gives it; its readers keep all.
    ASSERT_TRUE(dds_qget_history(logs.qosWrite(), &history, &depth));
    EXPECT_EQ(history, DDS_HISTORY_KEEP_LAST);
    EXPECT_EQ(depth, 500);
    ASSERT_TRUE(dds_qget_history(logs.qosRead(), &history, &depth));
    EXPECT_EQ(history, DDS_HISTORY_KEEP_ALL);

    // Absolute paths as the platform spells them ("/etc/extra.xml" is on the file's drive on Windows).
    const auto spelled = [&](const char* p) { return std::filesystem::absolute(m_dir / p).lexically_normal().string(); };
    const std::string lan = spelled("profiles/lan.xml"), extra = spelled("/etc/extra.xml");
    EXPECT_EQ(c.network.ddsConfig, (Texts{lan, extra}));
    EXPECT_EQ(c.network.interface, "eth1");
    EXPECT_EQ(c.network.peers, (Texts{"192.168.7.2", "192.168.7.3"}));
    EXPECT_EQ(kelva::config::domainConfigText(c.network),
              "file://" + lan + ",file://" + extra +
                  ",<CycloneDDS><Domain id=\"any\"><General><Interfaces><NetworkInterface "
                  "name=\"eth1\"/></Interfaces></General><Discovery><Peers><Peer address=\"192.168.7.2\"/><Peer "
                  "address=\"192.168.7.3\"/></Peers></Discovery></Domain></CycloneDDS>");
    EXPECT_FALSE(Config{}.network.configured());
    EXPECT_TRUE(c.security.enabled());
    EXPECT_EQ(c.security.identityCa, spelled("keys/ca.pem"));
    EXPECT_EQ(c.security.permissionsCa, spelled("/pki/ca.pem"));

    setenv("KELVA_CONFIG", write("env-bad.toml", "[session]\nfirst_write_timeout_ms = -1\n").c_str(), 1);
    EXPECT_THROW(Config::fromEnvironment(), ConfigError);
}

TEST_F(Configuration, FaultsNameFileLineAndSetting) {
    const std::string path = this->path("bad.toml");
    const auto errorOf = [&](const std::string& content) {
        return thrownText<ConfigError>([&] { Config::fromFile(write("bad.toml", content)); });
    };
    const std::vector<std::pair<std::string, std::string>> faults = {
        {"[session]\nfirst_write_timeout_ms = 10\nfrist_write = 3\n", ":3: session.frist_write: unknown setting"},
        {"[log]\nlevel = \"info\"\n\n[session]\nfirst_write_timeout_ms = \"fast\"\n",
         ":5: session.first_write_timeout_ms: expected an integer"},
        {"[[qos]]\nmatch = \"*\"\nreliability = \"sometimes\"\n", ":3: qos.reliability: expected reliable or best_effort"},
        {"[log]\nlevel = \"loud\"\n", ":2: log.level: expected trace, debug, info, warn, error, fatal or off"},
        {"[session]\npublish_actor_info = 1\n", ":2: session.publish_actor_info: expected true or false"},
        {"[[qos]]\nreliability = \"reliable\"\n", ":1: qos.match: missing"},
        {"[[qos]]\nmatch = \"*\"\nhistory = 0\n", ":3: qos.history: must be between 1 and 1000000"},
        {"colour = \"blue\"\n", ":1: colour: unknown setting"},
        {"[network]\npeers = [\"10.0.0.1\", \"<Peer/>\"]\n", ":2: network.peers: not an address: \"<Peer/>\""},
        {"[network]\ndds_config = 3\n", ":2: network.dds_config: expected a string"},
        // Half a security section would start an unsecured participant.
        {"[security]\nidentity_ca = \"ca.pem\"\nidentity_certificate = \"a.pem\"\nprivate_key = \"a.key\"\n"
         "permissions_ca = \"ca.pem\"\ngovernance = \"g.p7s\"\n",
         ":1: security.permissions: missing (security needs all six files)"},
    };
    for (const auto& [content, error] : faults) EXPECT_EQ(errorOf(content), path + error);
    // Syntax errors and a setting given twice name the line; a missing file is named.
    for (const char* bad : {"[log]\nlevel = \"info\"\nsink stderr\n", "[log]\nlevel = \"info\"\nlevel = \"warn\"\n"})
        EXPECT_EQ(errorOf(bad).rfind(path + ":3: ", 0), 0u) << errorOf(bad);
    const std::string absent = thrownText<ConfigError>([&] { Config::fromFile(path + ".absent"); });
    EXPECT_EQ(absent.rfind(path + ".absent", 0), 0u) << absent;
}

TEST_F(Configuration, SessionsOfANetworkShareTheDomainItsConfigurationMade) {
    const int domain = vantrel::test::domainId();
    Config c;
    const char* uri = std::getenv("CYCLONEDDS_URI");
    ASSERT_NE(uri, nullptr);
    ASSERT_EQ(std::string(uri).rfind("file://", 0), 0u);
    // The loopback file selects its interface already (a second selection of it is refused by the DDS layer).
    c.network.ddsConfig = {std::string(uri).substr(7)};
    c.network.peers = {"127.0.0.1"};
    {
        auto first = SessionImpl::create(domain, c, false);
        auto second = SessionImpl::create(domain, c, false);
        EXPECT_EQ(participantsOf(domain), 2);
        first.reset();
        EXPECT_EQ(participantsOf(domain), 1);  // the domain stays while a session uses it
    }
    // Released with its last session: the domain can be made again, with the DDS layer's own configuration.
    auto plain = SessionImpl::create(domain, Config{}, false);
    EXPECT_EQ(participantsOf(domain), 1);
    plain.reset();

    c.network.ddsConfig = {path("absent.xml")};
    const std::string refused = thrownText<std::runtime_error>([&] { SessionImpl::create(domain, c, false); });
    EXPECT_EQ(refused.rfind("cannot create DDS domain " + std::to_string(domain), 0), 0u) << refused;
    EXPECT_EQ(participantsOf(domain), 0);
}

TEST(GlobMatch, StarAndQuestionMark) {
    using kelva::utils::string::globMatch;
    EXPECT_TRUE(globMatch("*", ""));
    EXPECT_FALSE(globMatch("abc", "abcd"));
    EXPECT_FALSE(globMatch("a?c", "ac"));
    EXPECT_TRUE(globMatch("a*c", "ac"));
    EXPECT_TRUE(globMatch("*a", "*ba"));  // '*' in the text is a character like any other
    EXPECT_TRUE(globMatch("a*b*c", "aXbYc"));
    EXPECT_FALSE(globMatch("a*b", "aXbY"));
}

TEST(System, ThreadExitCleanupsRunWhenTheThreadEndsLatestFirst) {
    Texts ran, seenBeforeEnd;
    using Entry = std::pair<Texts*, std::string>;
    Entry first{&ran, "first"}, second{&ran, "second"};
    const auto record = [](void* entry) { static_cast<Entry*>(entry)->first->push_back(static_cast<Entry*>(entry)->second); };
    std::thread worker([&] {
        kelva::utils::system::atThreadExit(record, &first);
        kelva::utils::system::atThreadExit(record, &second);
        seenBeforeEnd = ran;
    });
    worker.join();
    EXPECT_TRUE(seenBeforeEnd.empty());
    EXPECT_EQ(ran, (Texts{"second", "first"}));
}

// Counts how often it is turned into text.
struct Expensive {
    int* renders;
};
std::ostream& operator<<(std::ostream& out, const Expensive& e) {
    ++*e.renders;
    return out << "expensive";
}

using Log = vantrel::test::TempDirTest;

TEST_F(Log, LevelFiltersLinesBuildsOnlyWhatItWritesAndSinksAreChecked) {
    int renders = 0;
    {
        vantrel::test::LogCapture log(Level::warn);
        Logger::setSink("file:" + path("kelva.log"));
        kelva::utils::log::trace() << "value: " << Expensive{&renders};
        kelva::utils::log::info() << "info line";
        kelva::utils::log::warn() << "warn " << 1;
        kelva::utils::log::fatal() << "fatal " << 3;
        EXPECT_EQ(renders, 0);
        const auto lines = log.lines();
        ASSERT_EQ(lines.size(), 2u);
        EXPECT_EQ(lines[0].text, "warn 1");
        EXPECT_EQ(lines[1].level, Level::fatal);
        Logger::setLevel(Level::off);
        kelva::utils::log::fatal() << "nothing";
        EXPECT_EQ(log.lines().size(), 2u);
        Logger::setSink("stderr");
    }
    const std::string written = read(path("kelva.log"));
    EXPECT_NE(written.find("warn 1"), std::string::npos) << written;
    EXPECT_EQ(written.find("info line"), std::string::npos) << written;
    {
        vantrel::test::LogCapture log(Level::trace);
        kelva::utils::log::trace() << "value: " << Expensive{&renders};
        EXPECT_EQ(renders, 1);
        EXPECT_EQ(log.texts(Level::trace), (Texts{"value: expensive"}));
    }
    EXPECT_THROW(Logger::setSink("syslog"), std::invalid_argument);
    EXPECT_THROW(Logger::setSink("file:"), std::invalid_argument);
}

}  // namespace
