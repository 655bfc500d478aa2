#include "ChannelTable.h"

#include <dds/ddsi/ddsi_serdata.h>

#include "vantrel/tool/Samples.h"

namespace vantrel::tool::bridge {

ChannelTable::ChannelTable(Bus& bus, const std::vector<const catalog::OperationInfo*>& ops, ChannelEvents events)
    : m_bus(bus), m_events(std::move(events)) {
    uint32_t next = 1;
    for (const auto* op : ops) {
        auto t = std::make_unique<Topic>();
        t->table = this;
        t->op = op;
        t->name = bus.topicName(*op);
        t->dataChannel = next++;
        t->disposeChannel = op->dispose ? next++ : 0;
        m_byName[t->name] = t.get();
        m_topics.push_back(std::move(t));
    }
    dds_listener_t* listener = dds_create_listener(this);
    dds_lset_data_available(listener, onPublications);
    m_publications = dds_create_reader(bus.participant(), DDS_BUILTIN_TOPIC_DCPSPUBLICATION, nullptr, nullptr);
    if (m_publications < 0) throw std::runtime_error(ddsError("dds_create_reader(DCPSPublication)", m_publications));
    dds_set_listener(m_publications, listener);
    dds_delete_listener(listener);
    onPublications(m_publications, this);  // what discovery knew before the listener was set
}

ChannelTable::~ChannelTable() {
    // Waits for running listeners; the readers go with the bus's participant.
    dds_set_listener(m_publications, nullptr);
    for (auto& t : m_topics)
        if (t->reader) dds_delete(t->reader);
}

std::vector<Channel> ChannelTable::channelsOf(const Topic& t) const {
    std::vector<Channel> out{{t.dataChannel, t.op, t.name, false}};
    if (t.disposeChannel) out.push_back({t.disposeChannel, t.op, t.name, true});
    return out;
}

ChannelTable::Topic* ChannelTable::topicOf(uint32_t channel) const {
    for (const auto& t : m_topics)
        if (t->dataChannel == channel || t->disposeChannel == channel) return t.get();
    return nullptr;
}

std::vector<Channel> ChannelTable::advertised() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<Channel> out;
    for (const auto& t : m_topics)
        if (!t->writers.empty())
            for (auto& c : channelsOf(*t)) out.push_back(std::move(c));
    return out;
}

std::unique_ptr<Channel> ChannelTable::find(uint32_t id) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    const Topic* t = topicOf(id);
    if (!t || t->writers.empty()) return nullptr;
    return std::make_unique<Channel>(Channel{id, t->op, t->name, id == t->disposeChannel});
}

void ChannelTable::onPublications(dds_entity_t reader, void* arg) {
    auto* self = static_cast<ChannelTable*>(arg);
    std::vector<Channel> appeared;
    std::vector<uint32_t> gone;
    {
        std::lock_guard<std::mutex> lock(self->m_mutex);
        constexpr int kBatch = 64;
        void* samples[kBatch] = {};
        dds_sample_info_t infos[kBatch];
        for (;;) {
            const dds_return_t n = dds_take(reader, samples, infos, kBatch, kBatch);
            if (n <= 0) break;
            for (dds_return_t i = 0; i < n; ++i) {
                const auto handle = infos[i].instance_handle;
                if (infos[i].instance_state == DDS_IST_ALIVE) {
                    if (!infos[i].valid_data || self->m_writerTopics.count(handle)) continue;
                    const auto* e = static_cast<const dds_builtintopic_endpoint_t*>(samples[i]);
                    const auto found = self->m_byName.find(e->topic_name);
                    if (found == self->m_byName.end()) continue;
                    Topic* t = found->second;
                    self->m_writerTopics[handle] = t;
                    t->writers.insert(handle);
                    if (t->writers.size() == 1)
                        for (auto& c : self->channelsOf(*t)) appeared.push_back(std::move(c));
                } else if (const auto it = self->m_writerTopics.find(handle); it != self->m_writerTopics.end()) {
                    Topic* t = it->second;
                    self->m_writerTopics.erase(it);
                    t->writers.erase(handle);
                    if (t->writers.empty())
                        for (const auto& c : self->channelsOf(*t)) gone.push_back(c.id);
                }
            }
            dds_return_loan(reader, samples, n);
        }
    }
    if (!appeared.empty() && self->m_events.advertised) self->m_events.advertised(appeared);
    if (!gone.empty() && self->m_events.unadvertised) self->m_events.unadvertised(gone);
}

void ChannelTable::onData(dds_entity_t reader, void* arg) {
    auto* t = static_cast<Topic*>(arg);
    takeSerialized(reader, [t](ddsi_serdata** data, const dds_sample_info_t* infos, dds_return_t n) {
        forEachOperation(data, infos, n, [t](ddsi_serdata* d, const dds_sample_info_t& info, bool dispose) {
            auto bytes = std::make_shared<std::vector<uint8_t>>(ddsi_serdata_size(d));
            ddsi_serdata_to_ser(d, 0, bytes->size(), bytes->data());
            ddsi_serdata_unref(d);
            const uint32_t channel = dispose ? t->disposeChannel : t->dataChannel;
            if (channel == 0) return;  // a disposal of an operation without a dispose flag
            t->table->m_events.message(channel, bytes, static_cast<uint64_t>(info.source_timestamp));
        });
    });
}

bool ChannelTable::subscribe(uint32_t id) {
    Topic* t;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        t = topicOf(id);
        if (!t || t->writers.empty()) return false;
        if (t->subscriptions++ > 0) return true;
    }
    // Made without the listener, then given it: a transient-local writer's history may arrive before
    // dds_create_reader returns, and the listener must know its reader.
    const dds_entity_t reader = m_bus.reader(*t->op, nullptr);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        t->reader = reader;
    }
    dds_listener_t* listener = dds_create_listener(t);
    dds_lset_data_available(listener, onData);
    dds_set_listener(reader, listener);
    dds_delete_listener(listener);
    onData(reader, t);
    return true;
}

void ChannelTable::unsubscribe(uint32_t id) {
    dds_entity_t reader = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        Topic* t = topicOf(id);
        if (!t || t->subscriptions == 0 || --t->subscriptions > 0) return;
        reader = t->reader;
        t->reader = 0;
    }
    if (reader) dds_delete(reader);  // waits for a running listener
}

void ChannelTable::quiesce() {
    dds_set_listener(m_publications, nullptr);
    std::vector<dds_entity_t> readers;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const auto& t : m_topics)
            if (t->reader) readers.push_back(t->reader);
    }
    for (dds_entity_t r : readers) dds_set_listener(r, nullptr);
}

std::size_t ChannelTable::readers() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::size_t n = 0;
    for (const auto& t : m_topics) n += t->reader != 0;
    return n;
}

}  // namespace vantrel::tool::bridge
