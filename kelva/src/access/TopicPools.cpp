#include "kelva/access/TopicPoolRead.h"
#include "kelva/access/TopicPoolWrite.h"

namespace kelva::access {

TopicPoolWrite::TopicPoolWrite(dds_entity_t participant, const QosPatterns& qos, std::string prefix,
                               std::string moduleName)
    : TopicPool(participant, qos, std::move(prefix), std::move(moduleName)) {
    m_publisher = dds_create_publisher(participant, qos.forTopic("").qosPub(), nullptr);
    if (m_publisher < 0) throw std::runtime_error(std::string("dds_create_publisher: ") + dds_strretcode(m_publisher));
}

TopicPoolWrite::~TopicPoolWrite() {
    stop();
    dds_delete(m_publisher);
}

bool TopicPoolWrite::anyConnected() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const auto& [name, writer] : m_writers)
        if (writer->connectState().isConnected()) return true;
    return false;
}

bool TopicPoolWrite::hasWriters() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return !m_writers.empty();
}

void TopicPoolWrite::stop() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_stopped = true;
    m_byType.clear();
    m_writers.clear();
}

TopicPoolRead::TopicPoolRead(dds_entity_t participant, const QosPatterns& qos, std::string prefix,
                             std::string moduleName, Dispatcher& dispatcher)
    : TopicPool(participant, qos, std::move(prefix), std::move(moduleName)), m_dispatcher(dispatcher) {
    m_subscriber = dds_create_subscriber(participant, qos.forTopic("").qosSub(), nullptr);
    if (m_subscriber < 0) throw std::runtime_error(std::string("dds_create_subscriber: ") + dds_strretcode(m_subscriber));
}

TopicPoolRead::~TopicPoolRead() {
    stop();
    dds_delete(m_subscriber);
}

bool TopicPoolRead::hasReaders() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return !m_readers.empty();
}

void TopicPoolRead::removeReader(IReader& reader) {
    std::unique_ptr<IReader> removed;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (auto it = m_readers.begin(); it != m_readers.end(); ++it) {
            if (it->get() != &reader) continue;
            removed = std::move(*it);
            m_readers.erase(it);
            break;
        }
    }
    if (!removed) return;
    removed->stop();
    if (m_dispatcher.onDispatcherThread()) m_dispatcher.keepUntilHandlerReturns(std::shared_ptr<IReader>(std::move(removed)));
}

void TopicPoolRead::stop() {
    std::vector<std::unique_ptr<IReader>> readers;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopped = true;
        readers.swap(m_readers);
    }
    // A pool stopped before (its session shut it down) has nothing left and must not touch the
    // dispatcher, which may be gone with the session.
    if (readers.empty()) return;
    // Outside the pool lock: stopping waits for a running handler, which may itself use this pool.
    for (auto& reader : readers) reader->stop();
    // Stopped from one of this pool's own handlers: the reader running it is destroyed once it returned.
    if (m_dispatcher.onDispatcherThread())
        for (auto& reader : readers) m_dispatcher.keepUntilHandlerReturns(std::shared_ptr<IReader>(std::move(reader)));
}

}  // namespace kelva::access
