// Records three messages of every operation built in, serialized by Cyclone DDS itself from C samples whose
// every member has a value of its own (filled through the catalogue's wire walk), and writes the values as
// the JSON lines mcap-check/check.mjs prints when it decodes the recording from the channel schemas: 64-bit
// integers as strings, enumerations as numbers, elements of sequences of enumerations as {"Value": n} and of
// sequences of sequences as {"Items": [...]}.
//
//   vantrel-mcap-samples OUT.mcap EXPECTED.jsonl zstd|lz4|none
#include "vantrel/catalog/Catalog.h"
#include "vantrel/catalog/WireVisitor.h"
#include "vantrel/mcap/Writer.h"

#include <dds/dds.h>
#include <dds/ddsi/ddsi_serdata.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <limits>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using namespace vantrel::catalog;
namespace mcap = vantrel::mcap;

// Gives the wire walk its values (Value: the nesting depth). Variant 0: every sequence as long as its bound
// allows (up to 2 elements); variant 1: every sequence and string empty; variant 2: one element each.
// Integers near their limits (64-bit ones beyond 2^53: a decoder that loses precision is caught), exactly
// representable floats, text beyond ASCII (a decoder must read UTF-8). Buffers are malloc'ed for dds_sample_free.
class Values {
public:
    using Value = int;
    static constexpr bool kReleases = true;

    explicit Values(int variant) : variant_(variant), n_(1 + 1000 * static_cast<uint64_t>(variant)) {}

    bool boolean(Value, const WirePath&) { return n_++ % 2 == 1; }
    template <class T>
    T number(Value, const WirePath&, Kind) {
        const uint64_t n = n_++;
        const bool negative = std::is_signed_v<T> && n % 2 == 0;
        if constexpr (std::is_floating_point_v<T>) {
            return (negative ? T(-1) : T(1)) * (T(sizeof(T) == 8 ? 1e10 : 0) + T(n % 10000) + T(0.125));
        } else {
            return negative ? T(std::numeric_limits<T>::min() + T(n % 10000)) : T(std::numeric_limits<T>::max() - n % 10000);
        }
    }
    std::string_view text(Value, const WirePath&) {
        text_ = variant_ == 1 ? std::string() : "text " + std::to_string(n_++) + " \xC3\xA4\xE2\x82\xAC";
        return text_;
    }
    int32_t enumeration(const EnumInfo& e, Value, const WirePath&) { return static_cast<int32_t>(n_++ % e.count); }
    bool octets(const TypeInfo&, Value, std::string_view&) { return false; }
    std::vector<int> items(const TypeInfo& t, Value depth, const WirePath&) {
        uint32_t length = variant_ == 0 ? 2U : variant_ == 1 ? 0U : 1U;
        length = std::min(length, depth > 3 ? 1U : 2U);  // keeps deep nestings small
        return std::vector<int>(t.bound != 0 ? std::min(length, t.bound) : length, depth + 1);
    }
    template <class Fill>
    void structure(const StructInfo& s, Value depth, const WirePath&, Fill fill) {
        for (uint32_t i = 0; i < s.count; ++i) fill(i, depth + 1);
    }
    void* allocate(std::size_t bytes) { return std::calloc(1, bytes); }
    char* copyText(std::string_view s) { return strndup(s.data(), s.size()); }
    [[noreturn]] void fail(WireFault, const WirePath& path, const std::string& problem) {
        throw std::runtime_error(path.text() + ": " + problem);
    }

private:
    int variant_;
    uint64_t n_;
    std::string text_;
};

// The filled sample as check.mjs prints its decoding. The channel schema spells elements of sequences of
// enumerations and of sequences as one-member structs (generator/vantrel_gen/schema_idl.py).
struct Expected {
    using Value = nlohmann::json;
    Value boolean(bool b) { return b; }
    template <class T>
    Value number(T v) {
        if constexpr (std::is_integral_v<T> && sizeof(T) == 8) return std::to_string(v);
        else return v;
    }
    Value text(const char* data, std::size_t size) { return std::string(data, size); }
    Value enumeration(const EnumInfo&, int32_t raw) { return raw; }
    template <class Items>
    Value sequence(const TypeInfo& t, const dds_sequence_t& seq, Items items) {
        const Kind kind = t.element->kind;
        const char* wrap = kind == Kind::Enum ? "Value" : kind == Kind::Sequence ? "Items" : nullptr;
        Value out = Value::array();
        for (uint32_t i = 0; i < seq._length; ++i) out.push_back(wrap ? Value{{wrap, items(i)}} : items(i));
        return out;
    }
    template <class Members>
    Value structure(const StructInfo& s, Members members) {
        Value out = Value::object();
        for (uint32_t i = 0; i < s.count; ++i) out[s.members[i].name] = members(i);
        return out;
    }
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
                Values values(variant);
                WireFiller<Values>(values).structure(*op->message, sample, 0, kWireRoot);
                Expected expectedForm;
                const nlohmann::json value = readWireStruct(expectedForm, *op->message, sample);
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
