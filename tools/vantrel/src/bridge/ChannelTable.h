#pragma once
// The bridge's channels: per operation of the catalogue (those the patterns select), a data channel and,
// for an operation with a dispose flag, a channel of its disposals (the key members, as recordings carry
// them). A topic's channels are advertised when its first writer appears on the bus and unadvertised when
// its last one goes. A topic is read from the bus only while a client is subscribed to one of its
// channels: its raw reader is made on the first subscription and deleted on the last unsubscription.
#include <dds/dds.h>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "ClientQueue.h"
#include "vantrel/catalog/Catalog.h"
#include "vantrel/tool/Bus.h"

namespace vantrel::tool::bridge {

struct Channel {
    uint32_t id;
    const catalog::OperationInfo* op;
    std::string topic;
    bool dispose;  // the channel of the topic's disposals
};

// Called on the DDS layer's threads, without the table's lock held.
struct ChannelEvents {
    std::function<void(const std::vector<Channel>&)> advertised;
    std::function<void(const std::vector<uint32_t>&)> unadvertised;
    std::function<void(uint32_t channel, const Payload& payload, uint64_t logTime)> message;
};

class ChannelTable {
public:
    ChannelTable(Bus& bus, const std::vector<const catalog::OperationInfo*>& ops, ChannelEvents events);
    ~ChannelTable();
    ChannelTable(const ChannelTable&) = delete;
    ChannelTable& operator=(const ChannelTable&) = delete;

    // The channels advertised now (topics with at least one writer).
    std::vector<Channel> advertised() const;
    // Null when no such channel is advertised.
    std::unique_ptr<Channel> find(uint32_t id) const;
    // Counts a client's subscription to an advertised channel; the first of a topic makes its reader.
    // False for a channel that is not advertised. Called from one thread (the protocol server's).
    bool subscribe(uint32_t id);
    void unsubscribe(uint32_t id);
    // Detaches every listener (waiting for running ones): no event is called after it returns.
    void quiesce();
    // The number of topics read from the bus now.
    std::size_t readers() const;

private:
    struct Topic {
        ChannelTable* table;
        const catalog::OperationInfo* op;
        std::string name;
        uint32_t dataChannel, disposeChannel;  // disposeChannel 0: none
        std::set<dds_instance_handle_t> writers;
        int subscriptions = 0;
        dds_entity_t reader = 0;
    };
    static void onPublications(dds_entity_t reader, void* arg);
    static void onData(dds_entity_t reader, void* arg);
    std::vector<Channel> channelsOf(const Topic& t) const;
    Topic* topicOf(uint32_t channel) const;

    Bus& m_bus;
    ChannelEvents m_events;
    mutable std::mutex m_mutex;
    std::vector<std::unique_ptr<Topic>> m_topics;
    std::map<std::string, Topic*> m_byName;
    std::map<dds_instance_handle_t, Topic*> m_writerTopics;  // the publications seen alive
    dds_entity_t m_publications = 0;
};

}  // namespace vantrel::tool::bridge
