#include "kelva/config/Config.h"

#include <toml.hpp>

#include <cstdlib>
#include <filesystem>
#include <set>
#include <utility>

#include "kelva/utils/Log.h"
#include "kelva/utils/System.h"

namespace kelva::config {
namespace {

// Everything a check needs to name the place of a fault.
struct Where {
    std::string file;

    [[noreturn]] void fail(const toml::value& at, const std::string& setting, const std::string& what) const {
        throw ConfigError(file + ":" + std::to_string(at.location().line()) + ": " + setting + ": " + what);
    }

    const toml::table& table(const toml::value& v, const std::string& setting) const {
        if (!v.is_table()) fail(v, setting, "expected a table");
        return v.as_table();
    }

    void onlyKeys(const toml::value& v, const std::string& section, const std::set<std::string>& known) const {
        for (const auto& [key, value] : table(v, section)) {
            if (!known.count(key)) fail(value, section.empty() ? key : section + "." + key, "unknown setting");
        }
    }

    std::string str(const toml::value& v, const std::string& setting) const {
        if (!v.is_string()) fail(v, setting, "expected a string");
        return v.as_string().str;
    }

    int integer(const toml::value& v, const std::string& setting, long long lo, long long hi) const {
        if (!v.is_integer()) fail(v, setting, "expected an integer");
        const auto n = v.as_integer();
        if (n < lo || n > hi)
            fail(v, setting, "must be between " + std::to_string(lo) + " and " + std::to_string(hi));
        return static_cast<int>(n);
    }

    // A file named in the configuration: relative paths are taken against the configuration file's folder.
    std::string path(const toml::value& v, const std::string& setting) const {
        const std::filesystem::path named = str(v, setting);
        if (named.empty()) fail(v, setting, "expected a file name");
        if (named.is_absolute()) return named.lexically_normal().string();
        const std::filesystem::path folder = std::filesystem::absolute(file).parent_path();
        return (folder / named).lexically_normal().string();
    }

    std::vector<std::string> strings(const toml::value& v, const std::string& setting, bool paths) const {
        std::vector<std::string> out;
        if (!v.is_array()) {
            out.push_back(paths ? path(v, setting) : str(v, setting));
            return out;
        }
        for (const auto& x : v.as_array()) out.push_back(paths ? path(x, setting) : str(x, setting));
        return out;
    }

    bool boolean(const toml::value& v, const std::string& setting) const {
        if (!v.is_boolean()) fail(v, setting, "expected true or false");
        return v.as_boolean();
    }
};

void readNetwork(const Where& w, const toml::value& section, Network& n) {
    w.onlyKeys(section, "network", {"dds_config", "interface", "peers"});
    for (const auto& [key, v] : section.as_table()) {
        if (key == "dds_config") n.ddsConfig = w.strings(v, "network.dds_config", true);
        else if (key == "interface") n.interface = w.str(v, "network.interface");
        else n.peers = w.strings(v, "network.peers", false);
        if (key == "interface" && n.interface.find_first_of("<>\"'& ") != std::string::npos)
            w.fail(v, "network.interface", "not an interface name or address");
        for (const auto& peer : n.peers)
            if (peer.empty() || peer.find_first_of("<>\"'& ") != std::string::npos)
                w.fail(v, "network.peers", "not an address: \"" + peer + "\"");
    }
}

void readSecurity(const Where& w, const toml::value& section, Security& s) {
    const std::pair<const char*, std::string Security::*> files[] = {
        {"identity_ca", &Security::identityCa},       {"identity_certificate", &Security::identityCertificate},
        {"private_key", &Security::privateKey},       {"permissions_ca", &Security::permissionsCa},
        {"governance", &Security::governance},        {"permissions", &Security::permissions}};
    std::set<std::string> known;
    for (const auto& [key, member] : files) known.insert(key);
    w.onlyKeys(section, "security", known);
    const auto& t = section.as_table();
    // Half a security setup would start an unsecured participant: all six files or the section is refused.
    for (const auto& [key, member] : files) {
        if (!t.count(key)) w.fail(section, std::string("security.") + key, "missing (security needs all six files)");
        s.*member = w.path(t.at(key), std::string("security.") + key);
    }
}

void readLog(const Where& w, const toml::value& section, Config& c) {
    w.onlyKeys(section, "log", {"level", "sink"});
    for (const auto& [key, v] : section.as_table()) {
        if (key == "level") {
            if (!utils::log::parseLevel(w.str(v, "log.level"), c.logLevel))
                w.fail(v, "log.level", "expected trace, debug, info, warn, error, fatal or off");
        } else {
            c.logSink = w.str(v, "log.sink");
            if (c.logSink != "stderr" && c.logSink != "stdout" && (c.logSink.rfind("file:", 0) != 0 || c.logSink.size() <= 5))
                w.fail(v, "log.sink", "expected stderr, stdout or file:<path>");
        }
    }
}

void readQosRule(const Where& w, const toml::value& v, QosRule& rule) {
    w.onlyKeys(v, "qos", {"match", "reliability", "durability", "history", "writer_history", "max_blocking_time_ms"});
    const auto& t = v.as_table();
    if (!t.count("match")) w.fail(v, "qos.match", "missing");
    for (const auto& [key, x] : t) {
        if (key == "match") {
            rule.match = w.str(x, "qos.match");
            if (rule.match.empty()) w.fail(x, "qos.match", "must not be empty");
        } else if (key == "reliability") {
            const auto s = w.str(x, "qos.reliability");
            if (s == "reliable") rule.reliability = Reliability::Reliable;
            else if (s == "best_effort") rule.reliability = Reliability::BestEffort;
            else w.fail(x, "qos.reliability", "expected reliable or best_effort");
        } else if (key == "durability") {
            const auto s = w.str(x, "qos.durability");
            if (s == "volatile") rule.durability = Durability::Volatile;
            else if (s == "transient_local") rule.durability = Durability::TransientLocal;
            else w.fail(x, "qos.durability", "expected volatile or transient_local");
        } else if (key == "history") {
            if (x.is_string() && x.as_string().str == "all") rule.historyDepth = 0;
            else if (x.is_integer()) rule.historyDepth = w.integer(x, "qos.history", 1, 1000000);
            else w.fail(x, "qos.history", "expected \"all\" or a depth of at least 1");
        } else if (key == "writer_history") {
            if (x.is_string() && x.as_string().str == "all") rule.writerHistoryDepth = 0;
            else if (x.is_integer()) rule.writerHistoryDepth = w.integer(x, "qos.writer_history", 1, 1000000);
            else w.fail(x, "qos.writer_history", "expected \"all\" or a depth of at least 1");
        } else {
            rule.maxBlockingTimeMs = w.integer(x, "qos.max_blocking_time_ms", 0, 3600000);
        }
    }
}

}  // namespace

namespace {
ProductDefaults& product() {
    static ProductDefaults defaults;
    return defaults;
}
}  // namespace

void setProductDefaults(ProductDefaults defaults) { product() = std::move(defaults); }

const ProductDefaults& productDefaults() { return product(); }

std::vector<QosRule> Config::defaultQos() {
    std::vector<QosRule> rules = productDefaults().qos;
    QosRule rest;
    rest.match = "*";
    rules.push_back(rest);
    return rules;
}

const QosRule& Config::qosFor(const std::string& topicName) const {
    for (const auto& rule : qos)
        if (utils::string::globMatch(rule.match, topicName)) return rule;
    static const QosRule fallback = defaultQos().back();
    return fallback;
}

Config Config::fromFile(const std::string& path) {
    toml::value root;
    try {
        root = toml::parse(path);
    } catch (const toml::syntax_error& e) {
        throw ConfigError(path + ":" + std::to_string(e.location().line()) + ": " + e.what());
    } catch (const std::exception& e) {
        throw ConfigError(path + ": " + e.what());
    }
    const Where w{path};
    Config c;
    w.onlyKeys(root, "", {"log", "topics", "session", "plugins", "qos", "network", "security"});
    for (const auto& [key, section] : root.as_table()) {
        if (key == "log") {
            w.table(section, "log");
            readLog(w, section, c);
        } else if (key == "topics") {
            w.onlyKeys(section, "topics", {"prefix"});
            for (const auto& [k, v] : section.as_table()) {
                (void)k;
                c.topicPrefix = w.str(v, "topics.prefix");
            }
        } else if (key == "session") {
            w.onlyKeys(section, "session",
                       {"first_write_timeout_ms", "check_most_derived_class_type", "publish_actor_info"});
            for (const auto& [k, v] : section.as_table()) {
                if (k == "first_write_timeout_ms") c.firstWriteTimeoutMs = w.integer(v, "session." + k, 0, 600000);
                else if (k == "check_most_derived_class_type") c.checkMostDerivedClassType = w.boolean(v, "session." + k);
                else c.publishActorInfo = w.boolean(v, "session." + k);
            }
        } else if (key == "network") {
            w.table(section, "network");
            readNetwork(w, section, c.network);
        } else if (key == "security") {
            w.table(section, "security");
            readSecurity(w, section, c.security);
        } else if (key == "plugins") {
            if (!section.is_array()) w.fail(section, "plugins", "expected [[plugins]] entries");
            for (const auto& entry : section.as_array()) {
                w.onlyKeys(entry, "plugins", {"name", "path"});
                const auto& t = entry.as_table();
                if (!t.count("name")) w.fail(entry, "plugins.name", "missing");
                if (!t.count("path")) w.fail(entry, "plugins.path", "missing");
                c.plugins.push_back({w.str(t.at("name"), "plugins.name"), w.str(t.at("path"), "plugins.path")});
            }
        } else {
            if (!section.is_array()) w.fail(section, "qos", "expected [[qos]] entries");
            std::vector<QosRule> rules;
            for (const auto& entry : section.as_array()) {
                QosRule rule;
                readQosRule(w, entry, rule);
                rules.push_back(rule);
            }
            // A deployment's rules come before the defaults, which still cover what they do not match.
            rules.insert(rules.end(), c.qos.begin(), c.qos.end());
            c.qos = std::move(rules);
        }
    }
    return c;
}

Config Config::fromEnvironment() {
    const char* path = std::getenv("KELVA_CONFIG");
    if (!path || !*path) return Config{};
    return fromFile(path);
}

const Config& Config::ofProcess() {
    static const Config config = [] {
        Config c = fromEnvironment();
        if (const char* file = std::getenv("KELVA_CONFIG"); file && *file) {
            utils::log::Logger::setLevel(c.logLevel);
            utils::log::Logger::setSink(c.logSink);
        }
        return c;
    }();
    return config;
}


}  // namespace kelva::config
