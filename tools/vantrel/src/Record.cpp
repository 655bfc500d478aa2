// vantrel record: every sample of the selected topics, as the serialized bytes the DDS layer received,
// into an MCAP file. Listeners only take the samples (a reference each) and queue them; one thread
// writes them, so a slow disk or compression never holds up the DDS layer's receive threads.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <memory>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include <dds/ddsi/ddsi_serdata.h>

#include "Progress.h"
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

// How a recording is cut into files; 0: no limit.
struct Split {
    uint64_t bytes = 0;
    uint64_t durationNs = 0;
    bool any() const { return bytes != 0 || durationNs != 0; }
};

// At most this much of a recording is lost when the machine loses power: the open chunk is closed,
// written and synced this often (one sync a second, never one per message).
constexpr auto kFlushInterval = std::chrono::seconds(1);

// "drive.mcap" -> "drive_0003.mcap": the counter sorts the files in recording order and never repeats,
// also when the clock jumps or two files start within the same second.
std::string splitName(const std::filesystem::path& base, unsigned index) {
    char counter[16];
    std::snprintf(counter, sizeof counter, "_%04u", index);
    std::filesystem::path name = base;
    name.replace_filename(base.stem().string() + counter + base.extension().string());
    return name.string();
}

// An earlier split recording under the same base name, or "".
std::string existingSplit(const std::filesystem::path& base) {
    const auto dir = base.parent_path().empty() ? std::filesystem::path(".") : base.parent_path();
    const std::string stem = base.stem().string() + "_", ext = base.extension().string();
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(dir, ec)) {
        const std::string name = entry.path().filename().string();
        if (name.size() > stem.size() + ext.size() && name.compare(0, stem.size(), stem) == 0 &&
            name.compare(name.size() - ext.size(), ext.size(), ext) == 0 &&
            std::all_of(name.begin() + static_cast<long>(stem.size()), name.end() - static_cast<long>(ext.size()),
                        [](char c) { return c >= '0' && c <= '9'; }))
            return entry.path().string();
    }
    return "";
}

class Recorder {
public:
    Recorder(const std::string& path, mcap::Compression compression, Split split, Bus& bus)
        : m_base(path), m_compression(compression), m_split(split), m_bus(bus) {
        open();
        m_thread = std::thread([this] { run(); });
    }

    ~Recorder() {
        try {
            finish();
        } catch (...) {  // NOLINT(bugprone-empty-catch): finish() reported it already, or nobody can
        }
    }

    void push(Pending p) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (!m_failed) {
                m_queue.push_back(p);
                p.data = nullptr;
            }
        }
        if (p.data) ddsi_serdata_unref(p.data);  // the writer failed: finish() reports it
        m_wake.notify_one();
    }

    // Writes what is queued, then closes the file; throws what made writing fail.
    void finish() {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_done) return;
            m_done = true;
        }
        m_wake.notify_one();
        m_thread.join();
        if (m_error) std::rethrow_exception(m_error);
        m_writer->close();
        m_files.push_back(m_writer->path());
    }

    bool failed() const { return m_failed; }
    uint64_t recorded() const { return m_messages; }
    uint64_t bytes() const { return m_bytes; }
    std::size_t channels() const { return m_metadata.size(); }
    const std::vector<std::string>& files() const { return m_files; }

private:
    void open() {
        const std::string path = m_split.any() ? splitName(m_base, static_cast<unsigned>(m_files.size())) : m_base.string();
        m_writer = std::make_unique<mcap::Writer>(path, mcap::WriterOptions{m_compression});
        m_schemas.clear();
        m_channels.clear();
    }

    // The next file before `p` when this one is full; never an empty file.
    void splitBefore(const Pending& p, std::size_t size) {
        if (m_writer->messageCount() == 0) {
            m_fileStart = p.logTime;
            return;
        }
        const bool full = m_split.bytes != 0 && m_writer->size() + size > m_split.bytes;
        const bool long_ = m_split.durationNs != 0 && p.logTime >= m_fileStart + m_split.durationNs;
        if (!full && !long_) return;
        m_writer->close();
        m_closedBytes += std::filesystem::file_size(m_writer->path());
        m_files.push_back(m_writer->path());
        open();
        m_fileStart = p.logTime;
    }

    void run() {
        try {
            write();
        } catch (...) {
            m_error = std::current_exception();
            std::lock_guard<std::mutex> lock(m_mutex);
            m_failed = true;
            for (const Pending& p : m_queue) ddsi_serdata_unref(p.data);
            for (const Pending& p : m_batch)
                if (p.data) ddsi_serdata_unref(p.data);
            m_queue.clear();
        }
    }

    void write() {
        std::vector<Pending>& batch = m_batch;
        std::vector<unsigned char> bytes;
        auto nextFlush = std::chrono::steady_clock::now() + kFlushInterval;
        for (;;) {
            bool done;
            {
                std::unique_lock<std::mutex> lock(m_mutex);
                m_wake.wait_until(lock, nextFlush, [this] { return m_done || !m_queue.empty(); });
                done = m_done && m_queue.empty();
                batch.swap(m_queue);
            }
            for (std::size_t i = 0; i < batch.size(); ++i) {
                const Pending& p = batch[i];
                bytes.resize(ddsi_serdata_size(p.data));
                ddsi_serdata_to_ser(p.data, 0, bytes.size(), bytes.data());
                ddsi_serdata_unref(p.data);
                batch[i].data = nullptr;
                if (m_split.any()) splitBefore(p, bytes.size());
                const uint16_t channel = channelFor(p);
                m_writer->write(channel, ++m_sequences[{p.op, p.dispose}], p.logTime, p.publishTime, bytes.data(),
                                bytes.size());
            }
            m_messages += batch.size();
            batch.clear();
            if (done) return;
            const auto now = std::chrono::steady_clock::now();
            if (now >= nextFlush) {
                m_writer->flush(true);
                nextFlush = now + kFlushInterval;
            }
            m_bytes = m_closedBytes + m_writer->size();
        }
    }

    uint16_t channelFor(const Pending& p) {
        const auto key = std::make_pair(p.op, p.dispose);
        if (auto it = m_channels.find(key); it != m_channels.end()) return it->second;
        // A disposal is serialized as the key members only: its channel has a schema of those.
        auto schema = m_schemas.find(key);
        if (schema == m_schemas.end())
            schema = m_schemas.emplace(key, m_writer->addSchema(p.op->typeName, "omgidl",
                                                                p.dispose ? p.op->keySchema : p.op->schema)).first;
        auto metadata = m_metadata.find(key);
        if (metadata == m_metadata.end()) {
            std::map<std::string, std::string> m = {
                {"operation", p.op->qualifiedName()},
                {"interface_version", catalog::findModule(p.op->module)->version},
                {"keys", keysText(*p.op)},
                {"sample", p.dispose ? "dispose" : "data"}};
            // The writer of the channel's first sample: its GUID and its participant's. Kept for the
            // files after a split, when that writer may be gone.
            if (dds_builtintopic_endpoint_t* w = dds_get_matched_publication_data(p.reader, p.publication)) {
                m["writer_guid"] = guidText(w->key);
                m["writer_participant_guid"] = guidText(w->participant_key);
                dds_builtintopic_free_endpoint(w);
            }
            metadata = m_metadata.emplace(key, std::move(m)).first;
        }
        const uint16_t id = m_writer->addChannel(schema->second, m_bus.topicName(*p.op), "cdr", metadata->second);
        return m_channels.emplace(key, id).first->second;
    }

    using Key = std::pair<const OperationInfo*, bool>;  // the operation, and whether its disposals

    const std::filesystem::path m_base;
    const mcap::Compression m_compression;
    const Split m_split;
    Bus& m_bus;
    std::unique_ptr<mcap::Writer> m_writer;
    uint64_t m_fileStart = 0;   // log time of the open file's first message
    uint64_t m_closedBytes = 0;
    std::vector<std::string> m_files;  // closed ones
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::vector<Pending> m_queue;
    std::vector<Pending> m_batch;  // the writer thread's, taken from the queue
    bool m_done = false;
    std::atomic<bool> m_failed{false};
    std::exception_ptr m_error;
    std::atomic<uint64_t> m_messages{0}, m_bytes{0};
    std::map<Key, uint16_t> m_schemas, m_channels;  // of the open file
    std::map<Key, std::map<std::string, std::string>> m_metadata;
    std::map<Key, uint32_t> m_sequences;
    std::thread m_thread;
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
    if (o.splitSize < 0 || o.splitDuration < 0) throw InputError("--split-size and --split-duration must not be negative");
    Split split{static_cast<uint64_t>(o.splitSize * 1e6), static_cast<uint64_t>(o.splitDuration * 1e9)};
    if (!o.force) {
        const std::string existing = split.any() ? existingSplit(path) : std::filesystem::exists(path) ? path : "";
        if (!existing.empty()) throw InputError(existing + " exists (use --force to overwrite it)");
    }
    const auto compression = o.compression == "lz4"    ? mcap::Compression::Lz4
                             : o.compression == "none" ? mcap::Compression::None
                                                       : mcap::Compression::Zstd;
    std::vector<std::unique_ptr<Source>> sources;  // outlive the bus: its listeners point into them
    Bus bus(o.domain);
    Recorder recorder(path, compression, split, bus);
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
    std::cerr << "recording " << ops.size() << " topics of domain " << o.domain << " to "
              << (split.any() ? splitName(path, 0) + " and on" : path) << std::endl;
    Progress progress(o.quiet);
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(o.duration);
    while (!interrupted() && !recorder.failed() && (o.duration <= 0 || std::chrono::steady_clock::now() < end)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        progress.update(recorder.recorded(), recorder.bytes());
    }
    progress.finish();
    for (dds_entity_t r : readers) dds_set_listener(r, nullptr);  // waits for a running listener
    for (const auto& s : sources) onRecordData(s->reader, s.get());       // what is still in the readers
    recorder.finish();
    const auto& files = recorder.files();
    std::cout << "recorded " << recorder.recorded() << " messages on " << recorder.channels() << " channels to ";
    if (files.size() == 1)
        std::cout << files.front();
    else
        std::cout << files.size() << " files, " << files.front() << " to " << files.back();
    std::cout << std::endl;
    return 0;
}

}  // namespace vantrel::tool
