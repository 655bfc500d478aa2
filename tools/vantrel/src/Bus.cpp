#include "vantrel/tool/Bus.h"

#include <dds/ddsi/ddsi_serdata.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <vector>

#include "vantrel/tool/Describe.h"

namespace vantrel::tool {

std::string ddsError(const std::string& what, dds_return_t rc) { return what + ": " + dds_strretcode(rc); }

uint64_t nowNs() {
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                     std::chrono::system_clock::now().time_since_epoch())
                                     .count());
}

Bus::Bus(int domain)
    : m_domain(domain), m_config(kelva::config::Config::ofProcess()), m_patterns(m_config) {}

Bus::~Bus() = default;

dds_entity_t Bus::participant() {
    if (!m_participant) m_participant = std::make_unique<kelva::config::Participant>(m_domain, m_config);
    return m_participant->handle();
}

const std::shared_ptr<kelva::actors::Session>& Bus::session() {
    if (!m_session) m_session = std::make_shared<kelva::actors::Session>(m_domain, m_config);
    return m_session;
}

std::string Bus::topicName(const catalog::OperationInfo& op) const { return topicNameOf(op, m_config); }

const kelva::access::QosPattern& Bus::qos(const catalog::OperationInfo& op) const {
    return m_patterns.forTopic(topicName(op));
}

dds_entity_t Bus::topic(const catalog::OperationInfo& op) {
    if (auto it = m_topics.find(&op); it != m_topics.end()) return it->second;
    const std::string name = topicName(op);
    const dds_entity_t t = dds_create_topic(participant(), op.descriptor, name.c_str(), qos(op).qosTopic(), nullptr);
    if (t < 0) throw std::runtime_error(ddsError("dds_create_topic(" + name + ")", t));
    m_topics.emplace(&op, t);
    return t;
}

dds_entity_t Bus::reader(const catalog::OperationInfo& op, const dds_listener_t* listener, bool liveOnly) {
    dds_qos_t* q = dds_create_qos();
    dds_copy_qos(q, qos(op).qosRead());
    dds_qset_history(q, DDS_HISTORY_KEEP_ALL, DDS_LENGTH_UNLIMITED);
    if (liveOnly) dds_qset_durability(q, DDS_DURABILITY_VOLATILE);
    const dds_entity_t r = dds_create_reader(participant(), topic(op), q, listener);
    dds_delete_qos(q);
    if (r < 0) throw std::runtime_error(ddsError("dds_create_reader(" + topicName(op) + ")", r));
    return r;
}

dds_entity_t Bus::writer(const catalog::OperationInfo& op) {
    const dds_entity_t w = dds_create_writer(participant(), topic(op), qos(op).qosWrite(), nullptr);
    if (w < 0) throw std::runtime_error(ddsError("dds_create_writer(" + topicName(op) + ")", w));
    return w;
}

}  // namespace vantrel::tool

namespace vantrel::tool {

const ddsi_sertype* Bus::sertype(const catalog::OperationInfo& op) {
    // The public API hands a topic's serialization type out only with a sample: one zero sample goes from a
    // writer to a reader in a partition of this process's own, which no other participant shares.
    const std::string partition = "vantrel-local-" + std::to_string(::getpid());
    dds_qos_t* q = dds_create_qos();
    dds_qset_partition1(q, partition.c_str());
    dds_qset_reliability(q, DDS_RELIABILITY_RELIABLE, DDS_SECS(1));
    const dds_entity_t pub = dds_create_publisher(participant(), q, nullptr);
    const dds_entity_t sub = dds_create_subscriber(participant(), q, nullptr);
    const dds_entity_t w = dds_create_writer(pub, topic(op), q, nullptr);
    const dds_entity_t r = dds_create_reader(sub, topic(op), q, nullptr);
    dds_delete_qos(q);
    const ddsi_sertype* type = nullptr;
    std::vector<unsigned char> zero(op.descriptor->m_size, 0);
    if (w > 0 && r > 0 && dds_write(w, zero.data()) == DDS_RETCODE_OK) {
        ddsi_serdata* data = nullptr;
        dds_sample_info_t info;
        if (dds_takecdr(r, &data, 1, &info, DDS_ANY_STATE) == 1) {
            type = data->type;  // lives as long as the topic, which the bus keeps
            ddsi_serdata_unref(data);
        }
    }
    dds_delete(pub);
    dds_delete(sub);
    if (!type) throw std::runtime_error("cannot obtain the serialization type of " + topicName(op));
    return type;
}

}  // namespace vantrel::tool
