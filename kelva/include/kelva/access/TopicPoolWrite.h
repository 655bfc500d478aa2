#pragma once
#include <memory>
#include <stdexcept>
#include <unordered_map>

#include "kelva/Export.h"
#include "kelva/access/TopicPool.h"
#include "kelva/access/Writer.h"

namespace kelva::access {

class KELVA_EXPORT TopicPoolWrite : public TopicPool {
public:
    TopicPoolWrite(dds_entity_t participant, const QosPatterns& qos, std::string prefix, std::string moduleName);
    ~TopicPoolWrite() override;

    // Creates the writer of T's topic (once); later calls return the existing one.
    template <class T>
    Writer<T>& createTopicWrite() {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_stopped) throw std::logic_error("TopicPoolWrite::createTopicWrite: pool is stopped");
        auto topic = topicLocked<T>();
        auto it = m_writers.find(topic->name());
        if (it != m_writers.end()) return static_cast<Writer<T>&>(*it->second);
        auto writer = std::make_unique<Writer<T>>(m_publisher, *topic, qosFor(topic->name()), m_moduleName);
        auto& ref = *writer;
        m_byType[TypeTraits<T>::descriptor()] = &ref;
        m_writers.emplace(topic->name(), std::move(writer));
        return ref;
    }

    // The writer of T's topic, or null (logged at error level) when there is none.
    template <class T>
    Writer<T>* writer() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return writerLocked<T>();
    }

    // Writes `sample` under the pool's lock; with no writer logs and returns.
    template <class T>
    void write(const T& sample, bool logQuietly, bool throwIfUnconnected) {
        std::lock_guard<std::mutex> lock(m_mutex);
        Writer<T>* w = writerLocked<T>();
        if (!w) {
            utils::log::error() << "TopicPoolWrite::writeIntern: no writer in topic pool";
            return;
        }
        if (utils::log::Logger::isEnabled(utils::log::Level::trace))
            utils::log::trace() << "writing " << TypeTraits<T>::className() << ":" << render(sample);
        w->write(sample, logQuietly, throwIfUnconnected);
    }

    // Disposes the instance that the key members of `keyHolder` select; with no writer logs and returns.
    template <class T>
    void dispose(const T& keyHolder) {
        std::lock_guard<std::mutex> lock(m_mutex);
        Writer<T>* w = writerLocked<T>();
        if (!w) {
            utils::log::error() << "TopicPoolWrite::dispose: no writer in topic pool";
            return;
        }
        w->dispose(keyHolder);
    }

    // True when at least one writer of the pool has a matched reader.
    bool anyConnected() const;
    bool hasWriters() const;
    // Deletes all writers; later writes and disposes log "no writer".
    void stop();

private:
    // The hot path finds the writer by its type's descriptor (no string work); the lookup by name only
    // runs to tell why there is none.
    template <class T>
    Writer<T>* writerLocked() {
        auto hit = m_byType.find(TypeTraits<T>::descriptor());
        if (hit != m_byType.end()) return static_cast<Writer<T>*>(hit->second);
        const std::string name = getTopicName<T>();
        if (m_topics.find(name) == m_topics.end()) {
            utils::log::error() << "TopicPoolWrite::writer: no topic in topic pool";
            return nullptr;
        }
        auto it = m_writers.find(name);
        if (it == m_writers.end()) {
            utils::log::error() << "TopicPoolWrite::writer: no writer in topic";
            return nullptr;
        }
        return static_cast<Writer<T>*>(it->second.get());
    }

    dds_entity_t m_publisher = 0;
    bool m_stopped = false;
    std::unordered_map<std::string, std::unique_ptr<IWriter>> m_writers;
    std::unordered_map<const dds_topic_descriptor_t*, IWriter*> m_byType;
};

}  // namespace kelva::access
