#pragma once
// The tool's own view of a domain, from one reading of the configuration (KELVA_CONFIG): a DDS participant
// (on the network and with the security it names, as a library process) with, per operation, the topic,
// reader or writer that a library peer would have (the toolkit's topic names and quality of service), and a
// session for the facades through which the tool sends. Each is made on first use.
#include <dds/dds.h>

#include <map>
#include <memory>
#include <string>

#include "kelva/access/QosPattern.h"
#include "kelva/actors/Session.h"
#include "kelva/config/Config.h"
#include "kelva/config/Participant.h"
#include "vantrel/catalog/Catalog.h"

namespace vantrel::tool {

class Bus {
public:
    explicit Bus(int domain);
    ~Bus();
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    int domain() const { return m_domain; }
    dds_entity_t participant();
    const std::shared_ptr<kelva::actors::Session>& session();
    const kelva::config::Config& config() const { return m_config; }

    // The topic name the toolkit maps the operation's type name to.
    std::string topicName(const catalog::OperationInfo& op) const;
    const kelva::access::QosPattern& qos(const catalog::OperationInfo& op) const;
    dds_entity_t topic(const catalog::OperationInfo& op);
    // A reader with the toolkit's reader QoS for the topic, but keeping every sample until taken (the tool
    // must not lose samples of a fast keep-last stream); `liveOnly` makes it volatile (no history of
    // transient-local writers). `listener` may be null.
    dds_entity_t reader(const catalog::OperationInfo& op, const dds_listener_t* listener = nullptr,
                        bool liveOnly = false);
    dds_entity_t writer(const catalog::OperationInfo& op);
    // The DDS layer's serialization type of the operation's topic (to make samples from recorded bytes).
    const struct ddsi_sertype* sertype(const catalog::OperationInfo& op);

private:
    int m_domain;
    kelva::config::Config m_config;
    kelva::access::QosPatterns m_patterns;
    std::unique_ptr<kelva::config::Participant> m_participant;
    std::shared_ptr<kelva::actors::Session> m_session;
    std::map<const catalog::OperationInfo*, dds_entity_t> m_topics;
};

// The text of a DDS return code for an error message: "dds_create_reader(M_Alert_...): Error".
std::string ddsError(const std::string& what, dds_return_t rc);

// Wall-clock nanoseconds since the Unix epoch.
uint64_t nowNs();

}  // namespace vantrel::tool
