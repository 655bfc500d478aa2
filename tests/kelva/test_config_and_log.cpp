// The toolkit configuration (file, environment, defaults, QoS rules, the [network] and [security] settings
// and the DDS configuration a network section makes) and the logger (levels, lines not
// built when their level is off, sinks).
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "kelva/access/QosPattern.h"
#include "kelva/actors/SessionImpl.h"
#include "kelva/config/Config.h"
#include "kelva/config/Participant.h"
#include "kelva/utils/Log.h"
#include "kelva/utils/System.h"
#include "vantrel/test/LogCapture.h"
#include "vantrel/test/Support.h"
#include "vantrel/test/TempDir.h"

namespace {

namespace fs = std::filesystem;
using kelva::actors::SessionImpl;
using kelva::config::Config;
using kelva::config::ConfigError;
using kelva::config::Durability;
using kelva::config::Reliability;
using kelva::utils::log::Level;
using kelva::utils::log::Logger;

// Files of one test in a folder of its own; the ConfigError text of reading a file.
class Files : public vantrel::test::TempDirTest {
protected:
    // The ConfigError text of reading `content`, or "no error".
    std::string errorOf(const std::string& content) const {
        const std::string file = write("bad.toml", content);
        try {
            Config::fromFile(file);
        } catch (const ConfigError& e) {
            return e.what();
        }
        return "no error";
    }
};

using Configuration = Files;

TEST_F(Configuration, ValidFileSetsEverySetting) {
    const std::string path = write("kelva.toml", R"(# deployment settings
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
)");
    const Config c = Config::fromFile(path);
    EXPECT_EQ(c.logLevel, Level::debug);
    EXPECT_EQ(c.logSink, "stdout");
    EXPECT_EQ(c.topicPrefix, "Acme::");
    EXPECT_EQ(c.firstWriteTimeoutMs, 750);
    EXPECT_TRUE(c.checkMostDerivedClassType);
    EXPECT_FALSE(c.publishActorInfo);
    ASSERT_EQ(c.plugins.size(), 2u);
    EXPECT_EQ(c.plugins[1].name, "trace");
    EXPECT_EQ(c.plugins[1].path, "/opt/plugins/libtrace.so");

    // The file's rules first, in order, then the defaults (the toolkit's alone: "*"); unset members keep
    // their defaults.
    ASSERT_EQ(c.qos.size(), 3u);
    EXPECT_EQ(c.qos[0].reliability, Reliability::BestEffort);
    EXPECT_EQ(c.qos[0].durability, Durability::TransientLocal);
    EXPECT_EQ(c.qos[0].historyDepth, 4);
    EXPECT_EQ(c.qos[0].maxBlockingTimeMs, 250);
    EXPECT_EQ(c.qos[1].historyDepth, 0);
    EXPECT_EQ(c.qos[1].writerHistoryDepth, 500);
    EXPECT_EQ(c.qos[1].reliability, Reliability::Reliable);
    EXPECT_EQ(&c.qosFor("M_Video_IClient_ReportFrame"), &c.qos[0]);
    EXPECT_EQ(&c.qosFor("M_Log_IService_CmdWrite"), &c.qos[1]);
    EXPECT_EQ(&c.qosFor("M_Alert_IService_CmdRaiseAlarm"), &c.qos[2]);
}

TEST_F(Configuration, FaultsNameFileLineAndSetting) {
    const std::string path = (m_dir / "bad.toml").string();
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
    EXPECT_THROW(
        try { Config::fromFile(path + ".absent"); } catch (const ConfigError& e) {
            EXPECT_EQ(std::string(e.what()).rfind(path + ".absent", 0), 0u) << e.what();
            throw;
        },
        ConfigError);
}

#if defined(_WIN32)
// The C runtime's environment: the one std::getenv reads. An empty value removes the variable.
int setenv(const char* name, const char* value, int) { return ::_putenv_s(name, value); }
int unsetenv(const char* name) { return ::_putenv_s(name, ""); }
#else
using ::setenv;
using ::unsetenv;
#endif

// Sets or clears KELVA_CONFIG for one test and restores it after.
class EnvironmentVariable {
public:
    explicit EnvironmentVariable(const char* name) : m_name(name) {
        if (const char* value = std::getenv(name)) m_saved = value;
    }
    ~EnvironmentVariable() {
        if (m_saved) setenv(m_name, m_saved->c_str(), 1);
        else unsetenv(m_name);
    }
    void set(const std::string& value) { setenv(m_name, value.c_str(), 1); }
    void clear() { unsetenv(m_name); }

private:
    const char* m_name;
    std::optional<std::string> m_saved;
};

TEST_F(Configuration, EnvironmentNamesTheFileElseDefaultsApply) {
    EnvironmentVariable variable("KELVA_CONFIG");
    variable.clear();
    // Without the variable: the defaults, the toolkit's alone here (no product library loaded).
    EXPECT_EQ(Config::fromEnvironment().qosFor("M_Alert_IClient_ReportAlertStatus").durability, Durability::Volatile);

    // A product's defaults come before the toolkit's last rule, and a file still overrides them.
    kelva::config::QosRule state;
    state.match = "*_Report*";
    state.durability = Durability::TransientLocal;
    state.historyDepth = 1;
    kelva::config::setProductDefaults({"Acme::", {state}});
    const Config product = Config::fromEnvironment();
    EXPECT_EQ(product.topicPrefix, "Acme::");
    EXPECT_EQ(product.qosFor("M_Alert_IClient_ReportAlertStatus").durability, Durability::TransientLocal);
    EXPECT_EQ(product.qosFor("M_Alert_IService_CmdRaiseAlarm").durability, Durability::Volatile);
    variable.set(write("env-prefix.toml", "[topics]\nprefix = \"Other::\"\n"));
    EXPECT_EQ(Config::fromEnvironment().topicPrefix, "Other::");
    kelva::config::setProductDefaults({});

    variable.set(write("env-bad.toml", "[session]\nfirst_write_timeout_ms = -1\n"));
    EXPECT_THROW(Config::fromEnvironment(), ConfigError);
}

TEST(QosPattern, EntitiesGetTheRulesQos) {
    kelva::config::QosRule rule;
    rule.match = "*";
    rule.durability = Durability::TransientLocal;
    rule.historyDepth = 3;
    const kelva::access::QosPattern pattern(rule);
    for (const dds_qos_t* qos : {pattern.qosTopic(), pattern.qosWrite(), pattern.qosRead()}) {
        dds_durability_kind_t durability{};
        ASSERT_TRUE(dds_qget_durability(qos, &durability));
        EXPECT_EQ(durability, DDS_DURABILITY_TRANSIENT_LOCAL);
        dds_history_kind_t history{};
        int32_t depth = 0;
        ASSERT_TRUE(dds_qget_history(qos, &history, &depth));
        EXPECT_EQ(depth, 3);
    }
    // A disposal must not unregister, and a writer going away must not dispose what it reported.
    bool autodispose = true;
    ASSERT_TRUE(dds_qget_writer_data_lifecycle(pattern.qosWrite(), &autodispose));
    EXPECT_FALSE(autodispose);

    // The writer of a keep-all topic keeps the bound the rule gives it; its readers keep all.
    kelva::config::QosRule all;
    all.match = "*";
    all.writerHistoryDepth = 1000;
    const kelva::access::QosPattern bounded(all);
    dds_history_kind_t history{};
    int32_t depth = 0;
    ASSERT_TRUE(dds_qget_history(bounded.qosWrite(), &history, &depth));
    EXPECT_EQ(history, DDS_HISTORY_KEEP_LAST);
    EXPECT_EQ(depth, 1000);
    ASSERT_TRUE(dds_qget_history(bounded.qosRead(), &history, &depth));
    EXPECT_EQ(history, DDS_HISTORY_KEEP_ALL);
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

// Counts how often it is turned into text.
struct Expensive {
    int* renders;
};
std::ostream& operator<<(std::ostream& out, const Expensive& e) {
    ++*e.renders;
    return out << "expensive";
}

TEST(Log, LinesOfAnUnusedLevelAreNotBuilt) {
    int renders = 0;
    {
        vantrel::test::LogCapture log(Level::warn);
        kelva::utils::log::trace() << "value: " << Expensive{&renders};
        EXPECT_EQ(renders, 0);
        EXPECT_TRUE(log.lines().empty());
    }
    {
        vantrel::test::LogCapture log(Level::trace);
        kelva::utils::log::trace() << "value: " << Expensive{&renders};
        EXPECT_EQ(renders, 1);
        EXPECT_EQ(log.texts(Level::trace), (std::vector<std::string>{"value: expensive"}));
    }
}

TEST(Log, LevelFiltersWhatIsWritten) {
    vantrel::test::LogCapture log(Level::warn);
    kelva::utils::log::info() << "info line";
    kelva::utils::log::warn() << "warn " << 1;
    kelva::utils::log::fatal() << "fatal " << 3;
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].text, "warn 1");
    EXPECT_EQ(lines[1].level, Level::fatal);

    Logger::setLevel(Level::off);
    kelva::utils::log::fatal() << "nothing";
    EXPECT_EQ(log.lines().size(), 2u);
}

using LogSink = Files;

TEST_F(LogSink, FileSinkReceivesLinesAndUnknownSinksAreRefused) {
    const fs::path file = m_dir / "kelva.log";
    {
        vantrel::test::LogCapture log(Level::info);
        Logger::setSink("file:" + file.string());
        kelva::utils::log::warn() << "to the file";
        Logger::setSink("stderr");
    }
    EXPECT_NE(read(file.string()).find("to the file"), std::string::npos) << read(file.string());

    EXPECT_THROW(Logger::setSink("syslog"), std::invalid_argument);
    EXPECT_THROW(Logger::setSink("file:"), std::invalid_argument);
}

// The DDS participants of `domain` (at most 4).
int participantsOf(int domain) {
    dds_entity_t found[4];
    return dds_lookup_participant(static_cast<dds_domainid_t>(domain), found, 4);
}

TEST_F(Configuration, NetworkSectionIsReadWithPathsAgainstTheFilesFolder) {
    const std::string path = write("kelva.toml", R"([network]
dds_config = ["profiles/lan.xml", "/etc/extra.xml"]
interface = "eth1"
peers = ["192.168.7.2", "192.168.7.3"]
)");
    const Config c = Config::fromFile(path);
    // Absolute paths as the platform spells them ("/etc/extra.xml" is on the file's drive on Windows).
    const auto spelled = [](const fs::path& p) { return fs::absolute(p).lexically_normal().string(); };
    const std::string lan = spelled(m_dir / "profiles/lan.xml"), extra = spelled(m_dir / "/etc/extra.xml");
    EXPECT_EQ(c.network.ddsConfig, (std::vector<std::string>{lan, extra}));
    EXPECT_EQ(c.network.interface, "eth1");
    EXPECT_EQ(c.network.peers, (std::vector<std::string>{"192.168.7.2", "192.168.7.3"}));
    EXPECT_EQ(kelva::config::domainConfigText(c.network),
              "file://" + lan + ",file://" + extra +
                  ",<CycloneDDS><Domain id=\"any\"><General><Interfaces><NetworkInterface "
                  "name=\"eth1\"/></Interfaces></General><Discovery><Peers><Peer address=\"192.168.7.2\"/><Peer "
                  "address=\"192.168.7.3\"/></Peers></Discovery></Domain></CycloneDDS>");

    EXPECT_FALSE(Config{}.network.configured());

    // Security files are read against the file's folder too.
    const Config s = Config::fromFile(write("ok.toml", "[security]\nidentity_ca = \"keys/ca.pem\"\nidentity_certificate = "
                                                       "\"a.pem\"\nprivate_key = \"a.key\"\npermissions_ca = \"/pki/ca.pem\"\n"
                                                       "governance = \"g.p7s\"\npermissions = \"p.p7s\"\n"));
    EXPECT_TRUE(s.security.enabled());
    EXPECT_EQ(s.security.identityCa, spelled(m_dir / "keys/ca.pem"));
    EXPECT_EQ(s.security.permissionsCa, spelled(m_dir / "/pki/ca.pem"));
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

    c.network.ddsConfig = {(m_dir / "absent.xml").string()};
    try {
        SessionImpl::create(domain, c, false);
        ADD_FAILURE() << "a missing DDS configuration file was accepted";
    } catch (const std::runtime_error& e) {
        EXPECT_EQ(std::string(e.what()).rfind("cannot create DDS domain " + std::to_string(domain), 0), 0u) << e.what();
    }
    EXPECT_EQ(participantsOf(domain), 0);
}

}  // namespace
