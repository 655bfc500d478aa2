// The toolkit configuration (file, environment, defaults, QoS rules) and the logger (levels, lines not
// built when their level is off, sinks).
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "kelva/access/QosPattern.h"
#include "kelva/config/Config.h"
#include "kelva/utils/Log.h"
#include "kelva/utils/System.h"
#include "vantrel/test/LogCapture.h"

namespace {

namespace fs = std::filesystem;
using kelva::config::Config;
using kelva::config::ConfigError;
using kelva::config::Durability;
using kelva::config::Reliability;
using kelva::utils::log::Level;
using kelva::utils::log::Logger;

// A folder of its own for the files one test writes; removed afterwards.
class Files : public ::testing::Test {
protected:
    void SetUp() override {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        m_dir = fs::temp_directory_path() /
                ("kelva-test-" + std::to_string(kelva::utils::system::processId()) + "-" + info->test_suite_name() + "-" + info->name());
        fs::remove_all(m_dir);
        fs::create_directories(m_dir);
    }
    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(m_dir, ignored);
    }

    std::string write(const std::string& name, const std::string& content) const {
        const fs::path path = m_dir / name;
        std::ofstream(path) << content;
        return path.string();
    }

    // The ConfigError text of reading `content`, or "no error".
    std::string errorOf(const std::string& content) const {
        const std::string path = write("bad.toml", content);
        try {
            Config::fromFile(path);
        } catch (const ConfigError& e) {
            return e.what();
        }
        return "no error";
    }

    fs::path m_dir;
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
    EXPECT_EQ(c.plugins[0].name, "audit");
    EXPECT_EQ(c.plugins[0].path, "/opt/plugins/libaudit.so");
    EXPECT_EQ(c.plugins[1].name, "trace");

    // The file's rules first, in order, then the defaults (the toolkit's alone: "*").
    ASSERT_EQ(c.qos.size(), 3u);
    EXPECT_EQ(c.qos[0].match, "M_Video_*");
    EXPECT_EQ(c.qos[0].reliability, Reliability::BestEffort);
    EXPECT_EQ(c.qos[0].durability, Durability::TransientLocal);
    EXPECT_EQ(c.qos[0].historyDepth, 4);
    EXPECT_EQ(c.qos[0].maxBlockingTimeMs, 250);
    EXPECT_EQ(c.qos[1].match, "M_Log_?Service_*");
    EXPECT_EQ(c.qos[1].historyDepth, 0);
    EXPECT_EQ(c.qos[1].writerHistoryDepth, 500);
    EXPECT_EQ(c.qos[0].writerHistoryDepth, 0);
    EXPECT_EQ(c.qos[1].reliability, Reliability::Reliable);
    EXPECT_EQ(c.qos[1].durability, Durability::Volatile);
    EXPECT_EQ(c.qos[2].match, "*");

    EXPECT_EQ(&c.qosFor("M_Video_IClient_ReportFrame"), &c.qos[0]);
    EXPECT_EQ(&c.qosFor("M_Log_IService_CmdWrite"), &c.qos[1]);
    EXPECT_EQ(&c.qosFor("M_Alert_IService_CmdRaiseAlarm"), &c.qos[2]);
}

TEST_F(Configuration, FaultsNameFileLineAndSetting) {
    const std::string path = (m_dir / "bad.toml").string();
    EXPECT_EQ(errorOf("[session]\nfirst_write_timeout_ms = 10\nfrist_write = 3\n"),
              path + ":3: session.frist_write: unknown setting");
    EXPECT_EQ(errorOf("[log]\nlevel = \"info\"\n\n[session]\nfirst_write_timeout_ms = \"fast\"\n"),
              path + ":5: session.first_write_timeout_ms: expected an integer");
    EXPECT_EQ(errorOf("[[qos]]\nmatch = \"*\"\nreliability = \"sometimes\"\n"),
              path + ":3: qos.reliability: expected reliable or best_effort");
    EXPECT_EQ(errorOf("[log]\nlevel = \"loud\"\n"),
              path + ":2: log.level: expected trace, debug, info, warn, error, fatal or off");
    EXPECT_EQ(errorOf("[session]\npublish_actor_info = 1\n"),
              path + ":2: session.publish_actor_info: expected true or false");
    EXPECT_EQ(errorOf("[[qos]]\nreliability = \"reliable\"\n"), path + ":1: qos.match: missing");
    EXPECT_EQ(errorOf("[[qos]]\nmatch = \"*\"\nhistory = 0\n"),
              path + ":3: qos.history: must be between 1 and 1000000");
    EXPECT_EQ(errorOf("colour = \"blue\"\n"), path + ":1: colour: unknown setting");
}

TEST_F(Configuration, SyntaxErrorNamesFileAndLine) {
    const std::string path = (m_dir / "bad.toml").string();
    const std::string what = errorOf("[log]\nlevel = \"info\"\nsink stderr\n");
    EXPECT_EQ(what.rfind(path + ":3: ", 0), 0u) << what;

    const std::string twice = errorOf("[log]\nlevel = \"info\"\nlevel = \"warn\"\n");
    EXPECT_EQ(twice.rfind(path + ":3: ", 0), 0u) << twice;
}

TEST_F(Configuration, MissingFileNamesTheFile) {
    const std::string path = (m_dir / "absent.toml").string();
    try {
        Config::fromFile(path);
        ADD_FAILURE() << "a missing file was read";
    } catch (const ConfigError& e) {
        EXPECT_EQ(std::string(e.what()).rfind(path, 0), 0u) << e.what();
    }
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
    const Config defaults = Config::fromEnvironment();
    EXPECT_EQ(defaults.logLevel, Level::warn);
    EXPECT_EQ(defaults.logSink, "stderr");
    EXPECT_EQ(defaults.topicPrefix, "");  // the toolkit names no contract
    EXPECT_EQ(defaults.firstWriteTimeoutMs, 2000);
    EXPECT_FALSE(defaults.checkMostDerivedClassType);
    EXPECT_TRUE(defaults.publishActorInfo);
    EXPECT_TRUE(defaults.plugins.empty());

    const auto& any = defaults.qosFor("M_Alert_IClient_ReportAlertStatus");
    EXPECT_EQ(any.durability, Durability::Volatile);
    EXPECT_EQ(any.historyDepth, 0);
    EXPECT_EQ(any.reliability, Reliability::Reliable);

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

    variable.set(write("env.toml", "[session]\nfirst_write_timeout_ms = 42\n"));
    EXPECT_EQ(Config::fromEnvironment().firstWriteTimeoutMs, 42);

    variable.set(write("env-bad.toml", "[session]\nfirst_write_timeout_ms = -1\n"));
    EXPECT_THROW(Config::fromEnvironment(), ConfigError);
}

TEST(QosPattern, EntitiesGetTheRulesQos) {
    kelva::config::QosRule rule;
    rule.match = "*";
    rule.reliability = Reliability::BestEffort;
    rule.durability = Durability::TransientLocal;
    rule.historyDepth = 3;
    const kelva::access::QosPattern pattern(rule);
    for (const dds_qos_t* qos : {pattern.qosTopic(), pattern.qosWrite(), pattern.qosRead()}) {
        dds_durability_kind_t durability{};
        ASSERT_TRUE(dds_qget_durability(qos, &durability));
        EXPECT_EQ(durability, DDS_DURABILITY_TRANSIENT_LOCAL);
        dds_reliability_kind_t reliability{};
        dds_duration_t blocking = 0;
        ASSERT_TRUE(dds_qget_reliability(qos, &reliability, &blocking));
        EXPECT_EQ(reliability, DDS_RELIABILITY_BEST_EFFORT);
        EXPECT_EQ(blocking, DDS_MSECS(1000));
        dds_history_kind_t history{};
        int32_t depth = 0;
        ASSERT_TRUE(dds_qget_history(qos, &history, &depth));
        EXPECT_EQ(history, DDS_HISTORY_KEEP_LAST);
        EXPECT_EQ(depth, 3);
    }
    // A disposal must not unregister, and a writer going away must not dispose what it reported.
    bool autodispose = true;
    ASSERT_TRUE(dds_qget_writer_data_lifecycle(pattern.qosWrite(), &autodispose));
    EXPECT_FALSE(autodispose);

    kelva::config::QosRule all;
    all.match = "*";
    const kelva::access::QosPattern keepAll(all);
    dds_history_kind_t history{};
    int32_t depth = 0;
    ASSERT_TRUE(dds_qget_history(keepAll.qosRead(), &history, &depth));
    EXPECT_EQ(history, DDS_HISTORY_KEEP_ALL);
    // The writer of a keep-all topic keeps all by default, or the bound the rule gives it.
    ASSERT_TRUE(dds_qget_history(keepAll.qosWrite(), &history, &depth));
    EXPECT_EQ(history, DDS_HISTORY_KEEP_ALL);
    all.writerHistoryDepth = 1000;
    const kelva::access::QosPattern bounded(all);
    ASSERT_TRUE(dds_qget_history(bounded.qosWrite(), &history, &depth));
    EXPECT_EQ(history, DDS_HISTORY_KEEP_LAST);
    EXPECT_EQ(depth, 1000);
    ASSERT_TRUE(dds_qget_history(bounded.qosRead(), &history, &depth));
    EXPECT_EQ(history, DDS_HISTORY_KEEP_ALL);
    dds_durability_kind_t durability{};
    ASSERT_TRUE(dds_qget_durability(keepAll.qosWrite(), &durability));
    EXPECT_EQ(durability, DDS_DURABILITY_VOLATILE);

    // The session's patterns pick the first matching rule.
    Config config;
    kelva::config::QosRule state;
    state.match = "*_IClient_Report*";
    state.durability = Durability::TransientLocal;
    state.historyDepth = 1;
    config.qos.insert(config.qos.begin(), state);
    const kelva::access::QosPatterns patterns(config);
    ASSERT_TRUE(dds_qget_history(patterns.forTopic("M_Alert_IClient_ReportAlertStatus").qosWrite(), &history, &depth));
    EXPECT_EQ(history, DDS_HISTORY_KEEP_LAST);
    EXPECT_EQ(depth, 1);
    ASSERT_TRUE(dds_qget_history(patterns.forTopic("M_Alert_IService_CmdRaiseAlarm").qosRead(), &history, &depth));
    EXPECT_EQ(history, DDS_HISTORY_KEEP_ALL);
}

TEST(GlobMatch, StarAndQuestionMark) {
    using kelva::utils::string::globMatch;
    EXPECT_TRUE(globMatch("*", ""));
    EXPECT_TRUE(globMatch("*", "anything"));
    EXPECT_TRUE(globMatch("", ""));
    EXPECT_FALSE(globMatch("", "a"));
    EXPECT_TRUE(globMatch("abc", "abc"));
    EXPECT_FALSE(globMatch("abc", "abd"));
    EXPECT_FALSE(globMatch("abc", "abcd"));
    EXPECT_TRUE(globMatch("a?c", "abc"));
    EXPECT_FALSE(globMatch("a?c", "ac"));
    EXPECT_TRUE(globMatch("a*c", "ac"));
    EXPECT_TRUE(globMatch("a*c", "abbbc"));
    EXPECT_FALSE(globMatch("a*c", "abbbd"));
    EXPECT_TRUE(globMatch("*x", "axbx"));
    EXPECT_TRUE(globMatch("*a", "*ba"));  // '*' in the text is a character like any other
    EXPECT_TRUE(globMatch("a*b*c", "aXbYc"));
    EXPECT_FALSE(globMatch("a*b", "aXbY"));
    EXPECT_TRUE(globMatch("*_IClient_Report*", "M_Alert_IClient_ReportAlertStatus"));
    EXPECT_FALSE(globMatch("*_IClient_Report*", "M_Alert_IService_CmdRaiseAlarm"));
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
    kelva::utils::log::debug() << "debug line";
    kelva::utils::log::info() << "info line";
    kelva::utils::log::warn() << "warn " << 1;
    kelva::utils::log::error() << "error " << 2;
    kelva::utils::log::fatal() << "fatal " << 3;
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].level, Level::warn);
    EXPECT_EQ(lines[0].text, "warn 1");
    EXPECT_EQ(lines[1].level, Level::error);
    EXPECT_EQ(lines[1].text, "error 2");
    EXPECT_EQ(lines[2].level, Level::fatal);
    EXPECT_EQ(lines[2].text, "fatal 3");

    Logger::setLevel(Level::off);
    kelva::utils::log::fatal() << "nothing";
    EXPECT_EQ(log.lines().size(), 3u);
}

TEST(Log, LevelNamesParseBack) {
    for (Level level : {Level::trace, Level::debug, Level::info, Level::warn, Level::error, Level::fatal, Level::off}) {
        Level parsed = level == Level::trace ? Level::off : Level::trace;
        EXPECT_TRUE(kelva::utils::log::parseLevel(kelva::utils::log::levelName(level), parsed));
        EXPECT_EQ(parsed, level);
    }
    Level untouched = Level::error;
    EXPECT_FALSE(kelva::utils::log::parseLevel("verbose", untouched));
    EXPECT_FALSE(kelva::utils::log::parseLevel("WARN", untouched));
    EXPECT_EQ(untouched, Level::error);
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
    std::ifstream in(file);
    std::stringstream content;
    content << in.rdbuf();
    EXPECT_NE(content.str().find("to the file"), std::string::npos) << content.str();

    EXPECT_THROW(Logger::setSink("syslog"), std::invalid_argument);
    EXPECT_THROW(Logger::setSink("file:"), std::invalid_argument);
}

}  // namespace
