// Records, for each selected operation, messages serialized by Cyclone DDS itself (from a C sample
// filled by SampleValues) into a recording, and writes the values each message holds as the JSON lines
// that tests/tools/mcap-check/check.mjs prints when it decodes the recording from the channel schemas.
//
//   vantrel-mcap-samples OUT.mcap EXPECTED.jsonl [--compression zstd|lz4|none] [PATTERN...]
//
// PATTERN as `vantrel` takes it ("M_Alert", "M_Mount.IService.*"); none: every operation built in.
#include "SampleValues.h"
#include "vantrel/catalog/Catalog.h"
#include "vantrel/mcap/Writer.h"

#include <dds/dds.h>
#include <dds/ddsi/ddsi_serdata.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <set>
#include <string>
#include <vector>

namespace {

using vantrel::catalog::OperationInfo;
namespace mcap = vantrel::mcap;

constexpr int kVariants = 3;

// The bytes the bus carries: written by a DDS writer, taken serialized by a reader of the same
// participant, as the recorder takes them.
class Loop {
public:
    Loop(dds_entity_t participant, dds_entity_t topic) {
        dds_qos_t* qos = dds_create_qos();
        dds_qset_reliability(qos, DDS_RELIABILITY_RELIABLE, DDS_SECS(10));
        dds_qset_history(qos, DDS_HISTORY_KEEP_ALL, 0);
        writer_ = dds_create_writer(participant, topic, qos, nullptr);
        reader_ = dds_create_reader(participant, topic, qos, nullptr);
        dds_delete_qos(qos);
        if (writer_ < 0 || reader_ < 0) throw std::runtime_error("cannot create a writer and a reader");
        waitset_ = dds_create_waitset(participant);
        dds_waitset_attach(waitset_, reader_, reader_);
        dds_set_status_mask(reader_, DDS_DATA_AVAILABLE_STATUS);
    }
    ~Loop() {
        dds_delete(waitset_);
        dds_delete(reader_);
        dds_delete(writer_);
    }
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

    std::vector<uint8_t> roundTrip(const void* sample) {
        if (dds_write(writer_, sample) != DDS_RETCODE_OK) throw std::runtime_error("dds_write refused the sample");
        ddsi_serdata* data = nullptr;
        dds_sample_info_t info;
        const dds_time_t deadline = dds_time() + DDS_SECS(10);
        while (dds_takecdr(reader_, &data, 1, &info, DDS_ANY_STATE) != 1) {
            if (dds_time() > deadline) throw std::runtime_error("the written sample did not arrive within 10 s");
            dds_waitset_wait(waitset_, nullptr, 0, DDS_MSECS(100));
        }
        std::vector<uint8_t> bytes(ddsi_serdata_size(data));
        ddsi_serdata_to_ser(data, 0, bytes.size(), bytes.data());
        ddsi_serdata_unref(data);
        return bytes;
    }

private:
    dds_entity_t writer_ = 0;
    dds_entity_t reader_ = 0;
    dds_entity_t waitset_ = 0;
};

std::string topicName(const OperationInfo& op) {
    std::string name = op.qualifiedName();
    for (char& c : name) {
        if (c == '.') c = '_';
    }
    return "samples_" + name;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::cerr << "usage: " << argv[0] << " OUT.mcap EXPECTED.jsonl [--compression zstd|lz4|none] [PATTERN...]\n";
        return 2;
    }
    mcap::WriterOptions options;
    options.chunkSize = 64 * 1024;  // several chunks, so the indexed read has to merge
    std::vector<std::string> patterns;
    for (int i = 3; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--compression" && i + 1 < argc) {
            const std::string c = argv[++i];
            options.compression = c == "lz4" ? mcap::Compression::Lz4 : c == "none" ? mcap::Compression::None : mcap::Compression::Zstd;
        } else {
            patterns.push_back(arg);
        }
    }
    std::vector<const OperationInfo*> ops;
    std::set<const OperationInfo*> seen;
    for (const auto& p : patterns.empty() ? std::vector<std::string>{"*"} : patterns) {
        for (const OperationInfo* op : vantrel::catalog::matchOperations(p)) {
            if (seen.insert(op).second) ops.push_back(op);
        }
    }
    if (ops.empty()) {
        std::cerr << "no operation matches\n";
        return 2;
    }

    try {
        const dds_entity_t participant = dds_create_participant(DDS_DOMAIN_DEFAULT, nullptr, nullptr);
        if (participant < 0) throw std::runtime_error("cannot create a DDS participant");
        mcap::Writer writer(argv[1], options);
        std::ofstream expected(argv[2]);
        uint64_t time = 1'700'000'000'000'000'000ULL;
        for (const OperationInfo* op : ops) {
            const dds_entity_t topic = dds_create_topic(participant, op->descriptor, topicName(*op).c_str(), nullptr, nullptr);
            if (topic < 0) throw std::runtime_error("cannot create the topic of " + op->qualifiedName());
            Loop loop(participant, topic);
            const uint16_t schema = writer.addSchema(op->typeName, "omgidl", op->schema);
            const uint16_t channel = writer.addChannel(schema, topicName(*op), "cdr", {{"operation", op->qualifiedName()}});
            for (int variant = 0; variant < kVariants; ++variant) {
                void* sample = std::calloc(1, op->message->size);
                const nlohmann::json value = vantrel::mcap::samples::fill(*op->message, sample, variant);
                const std::vector<uint8_t> bytes = loop.roundTrip(sample);
                dds_sample_free(sample, op->descriptor, DDS_FREE_ALL);
                time += 1000;
                writer.write(channel, static_cast<uint32_t>(variant), time, time - 7, bytes.data(), bytes.size());
                expected << nlohmann::json{{"topic", topicName(*op)},
                                           {"logTime", std::to_string(time)},
                                           {"publishTime", std::to_string(time - 7)},
                                           {"value", value}}
                                .dump()
                         << "\n";
            }
        }
        writer.close();
        dds_delete(participant);
        if (!expected.good()) throw std::runtime_error(std::string("cannot write ") + argv[2]);
    } catch (const std::exception& e) {
        std::cerr << argv[0] << ": " << e.what() << "\n";
        return 1;
    }
    std::cout << ops.size() << " operations, " << ops.size() * kVariants << " messages\n";
    return 0;
}
