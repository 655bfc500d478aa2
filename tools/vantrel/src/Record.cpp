// vantrel record: every sample of the selected topics, as the serialized bytes the DDS layer received,
// into an MCAP file. Listeners only take the samples (a reference each) and queue them; one thread
// writes them, so a slow disk or compression never holds up the DDS layer's receive threads.
#include <condition_variable>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include <dds/ddsi/ddsi_serdata.h>

#include "vantrel/mcap/Writer.h"
#include "vantrel/tool/Bus.h"
#include "vantrel/tool/Describe.h"
#include "vantrel/tool/Errors.h"
#include "vantrel/tool/Samples.h"
#include "vantrel/tool/Verbs.h"

namespace vantrel::tool {

using catalog::OperationInfo;

namespace {

struct Pending {
    const OperationInfo* op;
    dds_entity_t reader;
    ddsi_serdata* data;
    uint64_t logTime;
    uint64_t publishTime;
    dds_instance_handle_t publication;
    bool dispose;
};

class Recorder {
public:
    Recorder(const std::string& path, mcap::Compression compression, Bus& bus)
        : m_writer(path, mcap::WriterOptions{compression}), m_bus(bus), m_thread([this] { run(); }) {}

    ~Recorder() { finish(); }

    void push(Pending p) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_queue.push_back(p);
        }
        m_wake.notify_one();
    }

    // Writes what is queued, then closes the file.
    void finish() {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_done) return;
            m_done = true;
        }
        m_wake.notify_one();
        m_thread.join();
        m_writer.close();
    }

    uint64_t recorded() const { return m_writer.messageCount(); }
    std::size_t channels() const { return m_channels.size(); }

private:
    void run() {
        std::vector<Pending> batch;
        std::vector<unsigned char> bytes;
        for (;;) {
            {
                std::unique_lock<std::mutex> lock(m_mutex);
                m_wake.wait(lock, [this] { return m_done || !m_queue.empty(); });
                if (m_queue.empty() && m_done) return;
                batch.swap(m_queue);
            }
            for (const Pending& p : batch) {
                bytes.resize(ddsi_serdata_size(p.data));
                ddsi_serdata_to_ser(p.data, 0, bytes.size(), bytes.data());
                ddsi_serdata_unref(p.data);
                auto& [channel, sequence] = channelFor(p);
                m_writer.write(channel, ++sequence, p.logTime, p.publishTime, bytes.data(), bytes.size());
            }
            batch.clear();
        }
    }

    std::pair<uint16_t, uint32_t>& channelFor(const Pending& p) {
        const auto key = std::make_pair(p.op, p.dispose);
        if (auto it = m_channels.find(key); it != m_channels.end()) return it->second;
        // A disposal is serialized as the key members only: its channel has a schema of those.
        auto schema = m_schemas.find(key);
        if (schema == m_schemas.end())
            schema = m_schemas.emplace(key, m_writer.addSchema(p.op->typeName, "omgidl",
                                                               p.dispose ? p.op->keySchema : p.op->schema)).first;
        std::map<std::string, std::string> metadata = {
            {"operation", p.op->qualifiedName()},
            {"interface_version", catalog::findModule(p.op->module)->version},
            {"keys", keysText(*p.op)},
            {"sample", p.dispose ? "dispose" : "data"}};
        // The writer of the channel's first sample: its GUID and its participant's.
        if (dds_builtintopic_endpoint_t* w = dds_get_matched_publication_data(p.reader, p.publication)) {
            metadata["writer_guid"] = guidText(w->key);
            metadata["writer_participant_guid"] = guidText(w->participant_key);
            dds_builtintopic_free_endpoint(w);
        }
        const uint16_t id = m_writer.addChannel(schema->second, m_bus.topicName(*p.op), "cdr", metadata);
        return m_channels.emplace(key, std::make_pair(id, 0u)).first->second;
    }


    mcap::Writer m_writer;
    Bus& m_bus;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::vector<Pending> m_queue;
    bool m_done = false;
    std::map<std::pair<const OperationInfo*, bool>, uint16_t> m_schemas;
    std::map<std::pair<const OperationInfo*, bool>, std::pair<uint16_t, uint32_t>> m_channels;
    std::thread m_thread;  // last: starts when everything above exists
};

struct Source {
    Recorder* recorder;
    const OperationInfo* op;
    dds_entity_t reader = 0;
};

void onRecordData(dds_entity_t reader, void* arg) {
    auto* source = static_cast<Source*>(arg);
    takeSerialized(reader, [source, reader](ddsi_serdata** data, const dds_sample_info_t* infos, dds_return_t n) {
        const uint64_t now = nowNs();
        forEachOperation(data, infos, n, [&](ddsi_serdata* d, const dds_sample_info_t& info, bool dispose) {
            source->recorder->push({source->op, reader, d, now, static_cast<uint64_t>(info.source_timestamp),
                                    info.publication_handle, dispose});
        });
    });
}

std::string defaultName() {
    char name[64];
    const std::time_t now = std::time(nullptr);
    std::tm tm{};
    localtime_r(&now, &tm);
    std::strftime(name, sizeof name, "vantrel-%Y%m%d-%H%M%S.mcap", &tm);
    return name;
}

}  // namespace

int record(const RecordOptions& o) {
    const auto ops = selectOperations(o.patterns);
    const std::string path = o.output.empty() ? defaultName() : o.output;
    if (std::filesystem::exists(path) && !o.force)
        throw InputError(path + " exists (use --force to overwrite it)");
    const auto compression = o.compression == "lz4"    ? mcap::Compression::Lz4
                             : o.compression == "none" ? mcap::Compression::None
                                                       : mcap::Compression::Zstd;
    std::vector<std::unique_ptr<Source>> sources;  // outlive the bus: its listeners point into them
    Bus bus(o.domain);
    Recorder recorder(path, compression, bus);
    std::vector<dds_entity_t> readers;
    for (const auto* op : ops) {
        auto source = std::make_unique<Source>(Source{&recorder, op});
        dds_listener_t* listener = dds_create_listener(source.get());
        dds_lset_data_available(listener, onRecordData);
        // Created without the listener, then given it: a transient-local writer's history may arrive
        // before dds_create_reader returns, and the listener must know its reader.
        source->reader = bus.reader(*op, nullptr);
        dds_set_listener(source->reader, listener);
        dds_delete_listener(listener);
        onRecordData(source->reader, source.get());  // what arrived before the listener was set
        readers.push_back(source->reader);
        sources.push_back(std::move(source));
    }
    std::cerr << "recording " << ops.size() << " topics of domain " << o.domain << " to " << path << std::endl;
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(o.duration);
    while (!interrupted() && (o.duration <= 0 || std::chrono::steady_clock::now() < end))
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    for (dds_entity_t r : readers) dds_set_listener(r, nullptr);  // waits for a running listener
    for (const auto& s : sources) onRecordData(s->reader, s.get());       // what is still in the readers
    recorder.finish();
    std::cout << "recorded " << recorder.recorded() << " messages on " << recorder.channels() << " channels to "
              << path << std::endl;
    return 0;
}

}  // namespace vantrel::tool
