// Records three messages of every operation built in, serialized by Cyclone DDS itself from C samples whose
// every member has a value of its own, and writes the values as the JSON lines mcap-check/check.mjs prints
// when it decodes the recording from the channel schemas: 64-bit integers as strings, enumerations as numbers,
// elements of sequences of enumerations as {"Value": n} and of sequences of sequences as {"Items": [...]}.
//
//   vantrel-mcap-samples OUT.mcap EXPECTED.jsonl zstd|lz4|none
#include "vantrel/catalog/Catalog.h"
#include "vantrel/mcap/Writer.h"

#include <dds/dds.h>
#include <dds/ddsi/ddsi_serdata.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace vantrel::catalog;
namespace mcap = vantrel::mcap;

// Variant 0: every sequence as long as its bound allows (up to 2 elements); variant 1: every sequence and
// unbounded string empty; variant 2: one element each. Numbers differ between members and variants.
class Filler {
public:
    explicit Filler(int variant) : variant_(variant), n_(1 + 1000 * static_cast<uint64_t>(variant)) {}

    nlohmann::json structure(const StructInfo& s, uint8_t* at, int depth) {
        nlohmann::json out = nlohmann::json::object();
        for (uint32_t i = 0; i < s.count; ++i) {
            out[s.members[i].name] = value(s.members[i].type, at + s.members[i].offset, depth);
        }
        return out;
    }

private:
    // Stores `v` in the C sample and gives it back for the JSON side.
    template <typename T>
    static T put(uint8_t* at, T v) {
        std::memcpy(at, &v, sizeof v);
        return v;
    }

    // Exactly representable numbers, so both sides print them alike; 64-bit ones beyond 2^53, so a decoder
    // that loses precision is caught. Strings and sequence buffers are malloc'ed for dds_sample_free.
    nlohmann::json value(const TypeInfo& t, uint8_t* at, int depth) {
        const uint64_t n = n_++;
        const int sign = n_ % 2 == 0 ? -1 : 1;
        switch (t.kind) {
        case Kind::Bool: return put<bool>(at, n % 2 == 1);
        case Kind::Octet: return put(at, static_cast<uint8_t>(n * 7));
        case Kind::Int16: return put(at, static_cast<int16_t>(sign * static_cast<int>(n * 131 % 32000)));
        case Kind::UInt16: return put(at, static_cast<uint16_t>(60000 + n % 5000));
        case Kind::Int32: return put(at, static_cast<int32_t>(sign * static_cast<int64_t>(2000000000 + n)));
        case Kind::UInt32: return put(at, static_cast<uint32_t>(4000000000U + n));
        case Kind::Int64:
            return std::to_string(put(at, static_cast<int64_t>(sign * static_cast<int64_t>(0x7000000000000000ULL + n))));
        case Kind::UInt64: return std::to_string(put(at, uint64_t{0xF000000000000000ULL + n}));
        case Kind::Float: return put(at, static_cast<float>(sign) * (static_cast<float>(n % 1000) + 0.5F));
        case Kind::Double: return put(at, sign * (1e10 + static_cast<double>(n) + 0.125));
        case Kind::String: {
            // Some text beyond ASCII: a decoder must read UTF-8.
            const std::string s = variant_ == 1 ? std::string() : "text " + std::to_string(n) + " \xC3\xA4\xE2\x82\xAC";
            char* copy = static_cast<char*>(std::malloc(s.size() + 1));
            std::memcpy(copy, s.c_str(), s.size() + 1);
            std::memcpy(at, &copy, sizeof copy);
            return s;
        }
        case Kind::BoundedString: {
            std::string s = "b" + std::to_string(n) + "xyz";
            s.resize(std::min<std::size_t>(s.size(), t.bound));
            std::memcpy(at, s.c_str(), s.size() + 1);
            return s;
        }
        case Kind::Enum: return put(at, static_cast<int32_t>(n % t.enumeration->count));
        case Kind::Struct: return structure(*t.structure, at, depth + 1);
        case Kind::Sequence: return sequence(t, at, depth);
        }
        return nullptr;
    }

    nlohmann::json sequence(const TypeInfo& t, uint8_t* at, int depth) {
        uint32_t length = variant_ == 0 ? 2U : variant_ == 1 ? 0U : 1U;
        length = std::min(length, depth > 3 ? 1U : 2U);  // keeps deep nestings small
        if (t.bound != 0) length = std::min(length, t.bound);
        dds_sequence_t seq{};
        seq._maximum = seq._length = length;
        seq._release = true;
        seq._buffer = length == 0 ? nullptr : static_cast<uint8_t*>(std::calloc(length, t.element->size));
        nlohmann::json out = nlohmann::json::array();
        for (uint32_t i = 0; i < length; ++i) {
            nlohmann::json element = value(*t.element, seq._buffer + i * t.element->size, depth + 1);
            // The channel schema spells these elements as one-member structs (generator/vantrel_gen/schema_idl.py).
            if (t.element->kind == Kind::Enum) {
                element = nlohmann::json{{"Value", element}};
            } else if (t.element->kind == Kind::Sequence) {
                element = nlohmann::json{{"Items", element}};
            }
            out.push_back(std::move(element));
        }
        std::memcpy(at, &seq, sizeof seq);
        return out;
    }

    int variant_;
    uint64_t n_;
};

// The bytes the bus carries: written by a DDS writer, taken serialized by a reader of the same participant,
// as the recorder takes them.
std::vector<uint8_t> roundTrip(dds_entity_t writer, dds_entity_t reader, const void* sample) {
    if (dds_write(writer, sample) != DDS_RETCODE_OK) throw std::runtime_error("dds_write refused the sample");
    ddsi_serdata* data = nullptr;
    dds_sample_info_t info;
    const dds_time_t deadline = dds_time() + DDS_SECS(10);
    while (dds_takecdr(reader, &data, 1, &info, DDS_ANY_STATE) != 1) {
        if (dds_time() > deadline) throw std::runtime_error("the written sample did not arrive within 10 s");
        dds_sleepfor(DDS_MSECS(10));
    }
    std::vector<uint8_t> bytes(ddsi_serdata_size(data));
    ddsi_serdata_to_ser(data, 0, bytes.size(), bytes.data());
    ddsi_serdata_unref(data);
    return bytes;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "usage: " << argv[0] << " OUT.mcap EXPECTED.jsonl zstd|lz4|none\n";
        return 2;
    }
    mcap::WriterOptions options;
    options.chunkSize = 64 * 1024;  // several chunks, so the indexed read has to merge
    const std::string compression = argv[3];
    options.compression = compression == "lz4"    ? mcap::Compression::Lz4
                          : compression == "none" ? mcap::Compression::None
                                                  : mcap::Compression::Zstd;
    try {
        const dds_entity_t participant = dds_create_participant(DDS_DOMAIN_DEFAULT, nullptr, nullptr);
        dds_qos_t* qos = dds_create_qos();
        dds_qset_reliability(qos, DDS_RELIABILITY_RELIABLE, DDS_SECS(10));
        dds_qset_history(qos, DDS_HISTORY_KEEP_ALL, 0);
        mcap::Writer writer(argv[1], options);
        std::ofstream expected(argv[2]);
        uint64_t time = 1'700'000'000'000'000'000ULL;
        const auto ops = matchOperations("*");
        for (const OperationInfo* op : ops) {
            std::string topicName = "samples_" + op->qualifiedName();
            std::replace(topicName.begin(), topicName.end(), '.', '_');
            const dds_entity_t topic = dds_create_topic(participant, op->descriptor, topicName.c_str(), nullptr, nullptr);
            const dds_entity_t ddsWriter = dds_create_writer(participant, topic, qos, nullptr);
            const dds_entity_t ddsReader = dds_create_reader(participant, topic, qos, nullptr);
            if (participant < 0 || topic < 0 || ddsWriter < 0 || ddsReader < 0) {
                throw std::runtime_error("cannot create the DDS entities of " + topicName);
            }
            const uint16_t schema = writer.addSchema(op->typeName, "omgidl", op->schema);
            const uint16_t channel = writer.addChannel(schema, topicName, "cdr", {{"operation", op->qualifiedName()}});
            for (int variant = 0; variant < 3; ++variant) {
                void* sample = std::calloc(1, op->message->size);
                const nlohmann::json value = Filler(variant).structure(*op->message, static_cast<uint8_t*>(sample), 0);
                const std::vector<uint8_t> bytes = roundTrip(ddsWriter, ddsReader, sample);
                dds_sample_free(sample, op->descriptor, DDS_FREE_ALL);
                time += 1000;
                writer.write(channel, static_cast<uint32_t>(variant), time, time - 7, bytes.data(), bytes.size());
                expected << nlohmann::json{{"topic", topicName}, {"logTime", std::to_string(time)},
                                           {"publishTime", std::to_string(time - 7)}, {"value", value}}
                                .dump()
                         << "\n";
            }
        }
        dds_delete_qos(qos);
        writer.close();
        dds_delete(participant);
        if (!expected.good()) throw std::runtime_error(std::string("cannot write ") + argv[2]);
        std::cout << ops.size() << " operations, " << ops.size() * 3 << " messages\n";
    } catch (const std::exception& e) {
        std::cerr << argv[0] << ": " << e.what() << "\n";
        return 1;
    }
    return 0;
}
