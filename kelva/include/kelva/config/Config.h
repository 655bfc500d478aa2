#pragma once
// The toolkit's configuration: logging, topic naming, the first-write wait, plug-ins, the quality of
// service per topic-name pattern, the network the sessions use and DDS security. Read from the TOML file named by the environment variable KELVA_CONFIG;
// without it, the documented defaults below apply. A malformed or unknown setting throws ConfigError naming
// the file, the line and the setting; nothing is applied from a file with an error in it.
#include <stdexcept>
#include <string>
#include <vector>

#include "kelva/Export.h"
#include "kelva/utils/Log.h"

namespace kelva::config {

class KELVA_EXPORT ConfigError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

enum class Durability { Volatile, TransientLocal };
enum class Reliability { Reliable, BestEffort };

// Quality of service of the topics whose mapped name matches `match` (a glob: '*' and '?').
struct KELVA_EXPORT QosRule {
    std::string match;
    Reliability reliability = Reliability::Reliable;
    Durability durability = Durability::Volatile;
    int historyDepth = 0;  // 0: keep all; N > 0: keep last N per instance
    // On a keep-all topic, what a writer keeps per instance for readers that have not acknowledged yet.
    // 0 (the default): everything, so no live reader loses a sample; a reader that is gone (crashed,
    // unplugged) holds its share until its lease expires, bounded by the DDS configuration's throttling
    // limit. N > 0 bounds the memory to N samples per instance instead: a reader that falls N behind in
    // acknowledgements (a burst, a lossy link) then loses the oldest, which it reports as lost samples.
    int writerHistoryDepth = 0;
    // How long a send may wait when the writer's unacknowledged data reaches the DDS layer's throttling
    // limit (flow control: readers catching up with a burst); then it fails with a timeout.
    int maxBlockingTimeMs = 1000;
};

struct KELVA_EXPORT Plugin {
    std::string name;
    std::string path;
};

// The network of this process's sessions. Empty: the DDS layer's own configuration (CYCLONEDDS_URI).
struct KELVA_EXPORT Network {
    std::vector<std::string> ddsConfig;  // DDS configuration files, absolute paths, later ones override
    std::string interface;               // the one network interface DDS uses: a name or an IPv4 address
    std::vector<std::string> peers;      // unicast discovery addresses, beside multicast discovery

    bool configured() const { return !ddsConfig.empty() || !interface.empty() || !peers.empty(); }
};

// DDS security (authentication, access control, encryption): every file, absolute paths. All or none.
struct KELVA_EXPORT Security {
    std::string identityCa;
    std::string identityCertificate;
    std::string privateKey;
    std::string permissionsCa;
    std::string governance;
    std::string permissions;

    bool enabled() const { return !identityCa.empty(); }
};

// What a product built on the toolkit fixes once for all its sessions: the names of its contract. The
// toolkit's own defaults name no contract (no prefix; every topic volatile); the product's library sets
// these when it is loaded, before any configuration is made, and a configuration file still overrides them.
struct KELVA_EXPORT ProductDefaults {
    std::string topicPrefix;
    std::vector<QosRule> qos;  // tried before the toolkit's last rule "*" (reliable, volatile, keep all)
};
KELVA_EXPORT void setProductDefaults(ProductDefaults defaults);
KELVA_EXPORT const ProductDefaults& productDefaults();

struct KELVA_EXPORT Config {
    utils::log::Level logLevel = utils::log::Level::warn;
    std::string logSink = "stderr";
    std::string topicPrefix = productDefaults().topicPrefix;  // removed from a class name before it is mapped
    int firstWriteTimeoutMs = 2000;                // the bounded wait of an operation's first write
    bool checkMostDerivedClassType = false;
    bool publishActorInfo = true;
    std::vector<Plugin> plugins;
    // Tried first to last; the first rule whose pattern matches a topic name wins. The defaults: the
    // product's rules, then every topic reliable and volatile.
    std::vector<QosRule> qos = defaultQos();
    Network network;
    Security security;

    static std::vector<QosRule> defaultQos();

    // The rule for a topic name (the last default when no rule matches).
    const QosRule& qosFor(const std::string& topicName) const;

    // Parses a configuration file. Throws ConfigError "<file>:<line>: <setting>: <what is wrong>".
    static Config fromFile(const std::string& path);
    // The configuration of this process: KELVA_CONFIG's file if set, else the defaults.
    static Config fromEnvironment();
    // The same, read once for the whole process; the logging settings of a configuration file take effect
    // with the first call (without a file, whatever the application set stays). Sessions made without an
    // explicit configuration use it.
    static const Config& ofProcess();
};

}  // namespace kelva::config
