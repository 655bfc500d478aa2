#pragma once
// A DDS participant as the configuration says: on a domain made with its [network] settings, with the DDS
// security properties of its [security] files. Sessions and the tool's participants are made this way, so
// a process joins one network in one way.
#include <dds/dds.h>

#include <memory>
#include <string>

#include "kelva/Export.h"
#include "kelva/config/Config.h"

namespace kelva::config {

class KELVA_EXPORT Participant {
public:
    // Throws ConfigError when a security file fails its check (nothing is created then) and
    // std::runtime_error when the DDS layer refuses the domain or the participant.
    Participant(int domain, const Config& config);
    ~Participant();  // the participant first, then the process's hold on the domain
    Participant(const Participant&) = delete;
    Participant& operator=(const Participant&) = delete;

    dds_entity_t handle() const { return m_handle; }

private:
    std::shared_ptr<void> m_domain;  // null: the DDS layer's own configuration (CYCLONEDDS_URI)
    dds_entity_t m_handle = 0;
};

// The DDS configuration text of a [network] section: its files as URIs, then an XML fragment with the
// interface and the peers. Empty for an unconfigured network.
KELVA_EXPORT std::string domainConfigText(const Network& network);

// The participant QoS that turns on authentication, access control and encryption with the DDS layer's
// plug-ins and the given files, checked first by kelva::security::checkFiles (ConfigError naming the file).
// The caller deletes it.
KELVA_EXPORT dds_qos_t* securityQos(const Security& security);

}  // namespace kelva::config
