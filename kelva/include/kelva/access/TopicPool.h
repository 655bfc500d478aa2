#pragma once
// A pool of topics by mapped name, for one actor and one direction. The pool's mutex serialises topic
// lookup and creation (and, in the derived pools, writer lookup, write and dispose).
#include <dds/dds.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "kelva/Export.h"
#include "kelva/access/QosPattern.h"
#include "kelva/access/Topic.h"
#include "kelva/access/TopicStrategyMapChars.h"
#include "kelva/utils/Log.h"
#include "kelva/utils/System.h"

namespace kelva::access {

class KELVA_EXPORT TopicPool {
public:
    TopicPool(dds_entity_t participant, const QosPatterns& qos, std::string prefix, std::string moduleName)
        : m_participant(participant), m_qos(qos), m_prefix(std::move(prefix)), m_moduleName(std::move(moduleName)) {}
    virtual ~TopicPool() = default;
    TopicPool(const TopicPool&) = delete;
    TopicPool& operator=(const TopicPool&) = delete;

    // The mapped topic name of wire type T: the class name without the pool's prefix, mapped to the
    // characters DDS accepts.
    template <class T>
    std::string getTopicName() const {
        // topicNameOf() step by step, for the trace lines of each step.
        std::string className = TypeTraits<T>::className();
        const bool tracing = utils::log::Logger::isEnabled(utils::log::Level::trace);
        if (tracing) utils::log::trace() << "className" << "==" << className;
        std::string topicName = className;
        utils::string::removePrefixIf(topicName, m_prefix);
        if (tracing) utils::log::trace() << "topicName" << "==" << topicName;
        std::string safe = TopicStrategyMapChars().get(topicName);
        if (tracing) utils::log::trace() << "topicNameSafe" << "==" << safe;
        return safe;
    }

    bool hasTopic(const std::string& name) const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_topics.count(name) != 0;
    }
    std::shared_ptr<ITopic> getTopic(const std::string& name) const {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto it = m_topics.find(name);
        return it == m_topics.end() ? nullptr : it->second;
    }

    // Lookup-or-create of the topic of T; the DDS topic is created once per pool.
    template <class T>
    std::shared_ptr<Topic<T>> topic() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return topicLocked<T>();
    }

    const std::string& moduleName() const { return m_moduleName; }
    std::size_t topicCount() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_topics.size();
    }

protected:
    template <class T>
    std::shared_ptr<Topic<T>> topicLocked() {
        KELVA_TRACE_ENTRY();
        const std::string name = getTopicName<T>();
        auto it = m_topics.find(name);
        if (it != m_topics.end()) return std::static_pointer_cast<Topic<T>>(it->second);
        auto made = std::make_shared<Topic<T>>(m_participant, name, m_qos.forTopic(name).qosTopic());
        m_topics.emplace(name, made);
        return made;
    }

    const QosPattern& qosFor(const std::string& topicName) const { return m_qos.forTopic(topicName); }

    dds_entity_t m_participant;
    const QosPatterns& m_qos;
    std::string m_prefix;
    std::string m_moduleName;
    mutable std::mutex m_mutex;
    std::map<std::string, std::shared_ptr<ITopic>> m_topics;
};

}  // namespace kelva::access
