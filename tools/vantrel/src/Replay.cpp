// vantrel replay: a recording's bytes written onto the bus again, with the recorded timing scaled by
// --rate; disposals are disposed again.
#include <chrono>
#include <iostream>
#include <map>
#include <thread>

#include <dds/ddsi/ddsi_serdata.h>

#include "Progress.h"
#include "kelva/utils/System.h"
#include "vantrel/catalog/Catalog.h"
#include "vantrel/mcap/Reader.h"
#include "vantrel/tool/Bus.h"
#include "vantrel/tool/Describe.h"
#include "vantrel/tool/Errors.h"
#include "vantrel/tool/Verbs.h"

namespace vantrel::tool {

using catalog::OperationInfo;

namespace {

struct Target {
    const OperationInfo* op = nullptr;
    bool dispose = false;
    dds_entity_t writer = 0;
    const ddsi_sertype* type = nullptr;
};

// The channels to replay, each with its operation; InputError for a channel nobody here can write.
std::map<uint16_t, Target> targets(const mcap::Reader& reader, const std::string& topics) {
    std::map<uint16_t, Target> out;
    for (const auto& [id, channel] : reader.channels()) {
        const mcap::Schema* schema = reader.schema(channel.schemaId);
        if (!schema || schema->encoding != "omgidl" || channel.messageEncoding != "cdr")
            throw InputError(reader.path() + ": channel " + std::to_string(id) + " (" + channel.topic +
                             ") is not a recorded operation (schema omgidl, messages cdr)");
        const OperationInfo* op = catalog::findOperationByType(schema->name);
        if (!op)
            throw InputError(reader.path() + ": channel " + std::to_string(id) + " (" + channel.topic +
                             "): unknown type " + schema->name);
        if (!topics.empty() && !kelva::utils::string::globMatch(topics, op->qualifiedName()) &&
            !kelva::utils::string::globMatch(topics, channel.topic))
            continue;
        auto sample = channel.metadata.find("sample");
        out[id] = Target{op, sample != channel.metadata.end() && sample->second == "dispose"};
    }
    return out;
}

bool allMatched(const std::map<const OperationInfo*, dds_entity_t>& writers) {
    for (const auto& [op, w] : writers) {
        dds_publication_matched_status_t status;
        if (dds_get_publication_matched_status(w, &status) != DDS_RETCODE_OK || status.current_count == 0) return false;
    }
    return true;
}

}  // namespace

int replay(const ReplayOptions& o) {
    if (o.rate < 0) throw InputError("--rate must not be negative");
    std::unique_ptr<mcap::Reader> reader;
    try {
        reader = std::make_unique<mcap::Reader>(o.file);
    } catch (const mcap::McapError& e) {
        throw InputError(e.what());
    }
    auto channels = targets(*reader, o.topics);
    if (channels.empty()) throw InputError(o.file + ": no channel selected");

    Bus bus(o.domain);
    std::map<const OperationInfo*, dds_entity_t> writers;
    for (auto& [id, t] : channels) {
        auto& w = writers[t.op];
        if (!w) w = bus.writer(*t.op);
        t.writer = w;
        t.type = bus.sertype(*t.op);
    }
    const auto matchDeadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(o.waitMatch);
    while (!allMatched(writers) && std::chrono::steady_clock::now() < matchDeadline && !interrupted())
        std::this_thread::sleep_for(std::chrono::milliseconds(10));

    const uint64_t first = reader->statistics().messageStartTime;
    const uint64_t from = first + static_cast<uint64_t>(o.start * 1e9);
    uint64_t written = 0, refused = 0, bytes = 0;
    Progress progress(o.quiet);
    mcap::ReadOptions options;
    options.startTime = from;
    options.channelFilter = [&](const mcap::Channel& c) { return channels.count(c.id) > 0; };
    do {
        const auto wallStart = std::chrono::steady_clock::now();
        try {
            reader->forEachMessage(
                [&](const mcap::MessageView& m) {
                    if (interrupted()) return false;
                    const Target& t = channels.at(m.channel->id);
                    if (o.rate > 0) {
                        const double offset = static_cast<double>(m.logTime - from) / 1e9 / o.rate;
                        std::this_thread::sleep_until(wallStart + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                                                      std::chrono::duration<double>(offset)));
                    }
                    ddsrt_iovec_t iov;
                    iov.iov_base = const_cast<uint8_t*>(m.data);
                    iov.iov_len = static_cast<decltype(iov.iov_len)>(m.size);
                    ddsi_serdata* data = ddsi_serdata_from_ser_iov(t.type, t.dispose ? SDK_KEY : SDK_DATA, 1, &iov, m.size);
                    if (!data) {
                        ++refused;
                        return true;
                    }
                    dds_return_t rc;
                    if (t.dispose) {
                        void* sample = dds_alloc(t.op->descriptor->m_size);
                        ddsi_serdata_to_sample(data, sample, nullptr, nullptr);
                        ddsi_serdata_unref(data);
                        rc = dds_dispose(t.writer, sample);
                        dds_sample_free(sample, t.op->descriptor, DDS_FREE_ALL);
                    } else {
                        rc = dds_writecdr(t.writer, data);  // takes the reference
                    }
                    if (rc == DDS_RETCODE_OK) ++written;
                    else ++refused;
                    bytes += m.size;
                    progress.update(written, bytes);
                    return true;
                },
                options);
        } catch (const mcap::McapError& e) {
            throw InputError(e.what());
        }
    } while (o.loop && !interrupted());
    progress.finish();
    for (const auto& [op, w] : writers) dds_wait_for_acks(w, DDS_SECS(5));
    std::cout << "replayed " << written << " messages from " << o.file;
    if (refused) std::cout << " (" << refused << " could not be written)";
    std::cout << std::endl;
    return refused ? 1 : 0;
}

}  // namespace vantrel::tool
