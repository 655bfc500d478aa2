#include "kelva/access/QosPattern.h"

#include "kelva/utils/System.h"

namespace kelva::access {

QosPattern::QosPattern(const config::QosRule& rule)
    : m_topic(dds_create_qos()), m_pub(dds_create_qos()), m_sub(dds_create_qos()), m_write(dds_create_qos()),
      m_read(dds_create_qos()) {
    const dds_duration_t blocking = DDS_MSECS(rule.maxBlockingTimeMs);
    const dds_durability_kind_t durability =
        rule.durability == config::Durability::TransientLocal ? DDS_DURABILITY_TRANSIENT_LOCAL : DDS_DURABILITY_VOLATILE;
    const dds_reliability_kind_t reliability =
        rule.reliability == config::Reliability::Reliable ? DDS_RELIABILITY_RELIABLE : DDS_RELIABILITY_BEST_EFFORT;
    for (dds_qos_t* q : {m_topic, m_write, m_read}) {
        dds_qset_reliability(q, reliability, blocking);
        dds_qset_durability(q, durability);
        if (rule.historyDepth > 0) dds_qset_history(q, DDS_HISTORY_KEEP_LAST, rule.historyDepth);
        else dds_qset_history(q, DDS_HISTORY_KEEP_ALL, DDS_LENGTH_UNLIMITED);
    }
    // A keep-all topic's writer may keep a bound of its own for readers that have not acknowledged yet.
    // (A keep-last topic's writer keeps its history.)
    if (rule.historyDepth == 0 && rule.writerHistoryDepth > 0)
        dds_qset_history(m_write, DDS_HISTORY_KEEP_LAST, rule.writerHistoryDepth);
    // Disposing an instance must not also unregister it, and a writer that goes away must not dispose
    // what it reported: a late joiner then still sees the last state of a live service only.
    dds_qset_writer_data_lifecycle(m_write, false);
}

QosPattern::~QosPattern() {
    for (dds_qos_t* q : {m_topic, m_pub, m_sub, m_write, m_read}) dds_delete_qos(q);
}

QosPatterns::QosPatterns(const config::Config& config) : m_rules(config.qos) {
    if (m_rules.empty()) m_rules = config::Config::defaultQos();
    for (const auto& rule : m_rules) m_patterns.push_back(std::make_unique<QosPattern>(rule));
}

const QosPattern& QosPatterns::forTopic(const std::string& topicName) const {
    for (std::size_t i = 0; i < m_rules.size(); ++i)
        if (utils::string::globMatch(m_rules[i].match, topicName)) return *m_patterns[i];
    return *m_patterns.back();
}

const char* policyName(unsigned policyId) {
    switch (policyId) {
        case DDS_USERDATA_QOS_POLICY_ID: return "UserData";
        case DDS_DURABILITY_QOS_POLICY_ID: return "Durability";
        case DDS_PRESENTATION_QOS_POLICY_ID: return "Presentation";
        case DDS_DEADLINE_QOS_POLICY_ID: return "Deadline";
        case DDS_LATENCYBUDGET_QOS_POLICY_ID: return "LatencyBudget";
        case DDS_OWNERSHIP_QOS_POLICY_ID: return "Ownership";
        case DDS_OWNERSHIPSTRENGTH_QOS_POLICY_ID: return "OwnershipStrength";
        case DDS_LIVELINESS_QOS_POLICY_ID: return "Liveliness";
        case DDS_TIMEBASEDFILTER_QOS_POLICY_ID: return "TimeBasedFilter";
        case DDS_PARTITION_QOS_POLICY_ID: return "Partition";
        case DDS_RELIABILITY_QOS_POLICY_ID: return "Reliability";
        case DDS_DESTINATIONORDER_QOS_POLICY_ID: return "DestinationOrder";
        case DDS_HISTORY_QOS_POLICY_ID: return "History";
        case DDS_RESOURCELIMITS_QOS_POLICY_ID: return "ResourceLimits";
        case DDS_ENTITYFACTORY_QOS_POLICY_ID: return "EntityFactory";
        case DDS_WRITERDATALIFECYCLE_QOS_POLICY_ID: return "WriterDataLifecycle";
        case DDS_READERDATALIFECYCLE_QOS_POLICY_ID: return "ReaderDataLifecycle";
        case DDS_TOPICDATA_QOS_POLICY_ID: return "TopicData";
        case DDS_GROUPDATA_QOS_POLICY_ID: return "GroupData";
        case DDS_TRANSPORTPRIORITY_QOS_POLICY_ID: return "TransportPriority";
        case DDS_LIFESPAN_QOS_POLICY_ID: return "Lifespan";
        case DDS_DURABILITYSERVICE_QOS_POLICY_ID: return "DurabilityService";
        default: return "Unknown";
    }
}

}  // namespace kelva::access
