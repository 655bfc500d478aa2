#pragma once
#include <memory>
#include <stdexcept>
#include <vector>

#include "kelva/Export.h"
#include "kelva/access/Reader.h"
#include "kelva/access/TopicPool.h"

namespace kelva::access {

class KELVA_EXPORT TopicPoolRead : public TopicPool {
public:
    TopicPoolRead(dds_entity_t participant, const QosPatterns& qos, std::string prefix, std::string moduleName,
                  Dispatcher& dispatcher);
    ~TopicPoolRead() override;

    // Creates a reader of T's topic whose samples go to the handlers on the dispatcher thread.
    template <class T>
    Reader<T>& createTopicRead(typename Reader<T>::DataHandler onData,
                               typename Reader<T>::DisposeHandler onDispose = {}) {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_stopped) throw std::logic_error("TopicPoolRead::createTopicRead: pool is stopped");
        auto topic = topicLocked<T>();
        auto reader = std::make_unique<Reader<T>>(m_subscriber, *topic, qosFor(topic->name()), m_dispatcher,
                                                  std::move(onData), std::move(onDispose));
        auto& ref = *reader;
        m_readers.push_back(std::move(reader));
        return ref;
    }

    bool hasReaders() const;
    // Stops and deletes one reader of this pool (a creation that failed half-way takes back what it made):
    // after it returns its handler is not running and never runs again (unless called from it).
    void removeReader(IReader& reader);
    // Stops every reader: after it returns no handler of this pool runs (unless called from one).
    void stop();

private:
    dds_entity_t m_subscriber = 0;
    Dispatcher& m_dispatcher;
    bool m_stopped = false;
    std::vector<std::unique_ptr<IReader>> m_readers;
};

}  // namespace kelva::access
