#pragma once
// The five QoS sets a topic's entities are created with, built from one configuration rule.
#include <dds/dds.h>

#include <memory>
#include <string>
#include <vector>

#include "kelva/Export.h"
#include "kelva/config/Config.h"

namespace kelva::access {

class KELVA_EXPORT QosPattern {
public:
    explicit QosPattern(const config::QosRule& rule);
    ~QosPattern();
    QosPattern(const QosPattern&) = delete;
    QosPattern& operator=(const QosPattern&) = delete;

    const dds_qos_t* qosTopic() const { return m_topic; }
    const dds_qos_t* qosPub() const { return m_pub; }
    const dds_qos_t* qosSub() const { return m_sub; }
    const dds_qos_t* qosWrite() const { return m_write; }
    const dds_qos_t* qosRead() const { return m_read; }

private:
    dds_qos_t* m_topic;
    dds_qos_t* m_pub;
    dds_qos_t* m_sub;
    dds_qos_t* m_write;
    dds_qos_t* m_read;
};

// Name of a DDS QoS policy id, for log texts ("Reliability", "Durability", ...).
KELVA_EXPORT const char* policyName(unsigned policyId);

}  // namespace kelva::access

namespace kelva::access {

// One QosPattern per configured rule, built once per session; looked up by topic name.
class KELVA_EXPORT QosPatterns {
public:
    explicit QosPatterns(const config::Config& config);
    const QosPattern& forTopic(const std::string& topicName) const;

private:
    std::vector<config::QosRule> m_rules;
    std::vector<std::unique_ptr<QosPattern>> m_patterns;
};

}  // namespace kelva::access
