#if defined(_WIN32)
#include <winsock2.h>
#include <ws2tcpip.h>  // inet_pton
#undef interface        // a macro of the Windows headers; Network::interface is a member here
#else
#include <arpa/inet.h>
#endif

#include <map>
#include <mutex>
#include <string>

#include "kelva/config/Participant.h"

namespace kelva::config {
namespace {

bool isIpv4(const std::string& text) {
    in_addr address{};
    return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

// The domains this process made with a configuration, shared by its participants: the DDS layer takes a
// domain's configuration once, when the domain is made, and deleting a domain deletes its participants.
struct Domains {
    std::mutex mutex;
    std::map<int, std::weak_ptr<void>> made;
};

// Deletes the domain (and whatever participants are left in it) with the last session that used it.
struct DomainHold {
    explicit DomainHold(dds_entity_t h) : handle(h) {}
    ~DomainHold() { dds_delete(handle); }
    DomainHold(const DomainHold&) = delete;
    DomainHold& operator=(const DomainHold&) = delete;
    dds_entity_t handle;
};

Domains& domains() {
    static Domains* instance = new Domains;  // never destroyed: participants may outlive static destruction
    return *instance;
}

std::shared_ptr<void> acquireDomain(int domain, const Network& network) {
    Domains& d = domains();
    std::lock_guard<std::mutex> lock(d.mutex);
    if (auto held = d.made[domain].lock()) return held;
    const std::string text = domainConfigText(network);
    const dds_entity_t handle = dds_create_domain(static_cast<dds_domainid_t>(domain), text.c_str());
    if (handle < 0)
        throw std::runtime_error("cannot create DDS domain " + std::to_string(domain) + " with the network configuration \"" +
                                 text + "\": " + dds_strretcode(handle) +
                                 (handle == DDS_RETCODE_PRECONDITION_NOT_MET
                                      ? " (a participant of this domain already exists without it)"
                                      : ""));
    std::shared_ptr<void> held = std::make_shared<DomainHold>(handle);
    d.made[domain] = held;
    return held;
}

}  // namespace

std::string domainConfigText(const Network& network) {
    std::string text;
    for (const auto& file : network.ddsConfig) text += (text.empty() ? "" : ",") + std::string("file://") + file;
    if (network.interface.empty() && network.peers.empty()) return text;
    std::string xml = "<CycloneDDS><Domain id=\"any\">";
    if (!network.interface.empty())
        xml += "<General><Interfaces><NetworkInterface " + std::string(isIpv4(network.interface) ? "address" : "name") +
               "=\"" + network.interface + "\"/></Interfaces></General>";
    if (!network.peers.empty()) {
        xml += "<Discovery><Peers>";
        for (const auto& peer : network.peers) xml += "<Peer address=\"" + peer + "\"/>";
        xml += "</Peers></Discovery>";
    }
    xml += "</Domain></CycloneDDS>";
    return text.empty() ? xml : text + "," + xml;
}

Participant::Participant(int domain, const Config& config) {
    dds_qos_t* qos = config.security.enabled() ? securityQos(config.security) : nullptr;
    try {
        if (config.network.configured()) m_domain = acquireDomain(domain, config.network);
    } catch (...) {
        if (qos) dds_delete_qos(qos);
        throw;
    }
    m_handle = dds_create_participant(static_cast<dds_domainid_t>(domain), qos, nullptr);
    if (qos) dds_delete_qos(qos);
    if (m_handle < 0)
        throw std::runtime_error("cannot create DDS participant on domain " + std::to_string(domain) + ": " +
                                 dds_strretcode(m_handle) +
                                 (config.security.enabled() ? " (the DDS layer refused the security configuration)" : ""));
}

Participant::~Participant() {
    if (m_handle > 0) dds_delete(m_handle);
}

}  // namespace kelva::config
