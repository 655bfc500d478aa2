// malformed-sender DOMAIN CORPUS_INPUT: a peer on plain ddsc writing raw bytes through a serialization type
// that carries them unchecked: the corpus input that crashed the DDS layer's key extraction, then mutations of
// a valid keyed and a valid keyless message. Prints "sent <n>" once every writer's samples are acknowledged.
#include <dds/dds.h>
#include <dds/ddsi/ddsi_serdata.h>
#include <dds/ddsi/ddsi_sertype.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "M_Alert.h"
#include "M_Sensor.h"

namespace {

using Bytes = std::vector<unsigned char>;

[[noreturn]] void fail(const char* what, dds_return_t rc) {
    std::fprintf(stderr, "malformed-sender: %s: %s\n", what, dds_strretcode(rc));
    std::exit(1);
}

struct RawSample {
    ddsi_serdata c;
    Bytes bytes;
};

RawSample* raw(const ddsi_serdata* d) { return reinterpret_cast<RawSample*>(const_cast<ddsi_serdata*>(d)); }

ddsi_serdata* makeRaw(const ddsi_sertype* type, ddsi_serdata_kind kind, Bytes bytes) {
    auto* d = new RawSample{};
    ddsi_serdata_init(&d->c, type, kind);
    d->bytes = std::move(bytes);
    d->c.hash = 0;  // one instance per writer: the bytes' key is never looked at here
    return &d->c;
}

const ddsi_serdata_ops& rawSerdataOps() {
    static const ddsi_serdata_ops ops = [] {
        ddsi_serdata_ops o{};
        o.eqkey = [](const ddsi_serdata*, const ddsi_serdata*) { return true; };
        o.get_size = [](const ddsi_serdata* d) { return static_cast<uint32_t>(raw(d)->bytes.size()); };
        o.to_ser = [](const ddsi_serdata* d, size_t off, size_t sz, void* buf) {
            std::memcpy(buf, raw(d)->bytes.data() + off, sz);
        };
        o.to_ser_ref = [](const ddsi_serdata* d, size_t off, size_t sz, ddsrt_iovec_t* ref) {
            ref->iov_base = raw(d)->bytes.data() + off;
            ref->iov_len = static_cast<ddsrt_iov_len_t>(sz);
            return ddsi_serdata_ref(d);
        };
        o.to_ser_unref = [](ddsi_serdata* d, const ddsrt_iovec_t*) { ddsi_serdata_unref(d); };
        o.to_sample = [](const ddsi_serdata*, void*, void**, void*) { return false; };
        o.to_untyped = [](const ddsi_serdata* d) {
            ddsi_serdata* copy = makeRaw(d->type, SDK_KEY, {});
            copy->type = nullptr;
            return copy;
        };
        o.untyped_to_sample = [](const ddsi_sertype*, const ddsi_serdata*, void*, void**, void*) { return false; };
        o.free = [](ddsi_serdata* d) { delete raw(d); };
        o.print = [](const ddsi_sertype*, const ddsi_serdata*, char* buf, size_t size) {
            return static_cast<size_t>(std::snprintf(buf, size, "(raw)"));
        };
        o.get_keyhash = [](const ddsi_serdata*, ddsi_keyhash* buf, bool) { std::memset(buf, 0, sizeof *buf); };
        return o;
    }();
    return ops;
}

const ddsi_sertype_ops& rawTypeOps() {
    static const ddsi_sertype_ops ops = [] {
        ddsi_sertype_ops o{};
        o.version = ddsi_sertype_v0;
        o.free = [](ddsi_sertype* t) {
            ddsi_sertype_fini(t);
            delete t;
        };
        o.zero_samples = [](const ddsi_sertype*, void*, size_t) {};
        o.realloc_samples = [](void** ptrs, const ddsi_sertype*, void*, size_t, size_t count) {
            for (size_t i = 0; i < count; ++i) ptrs[i] = nullptr;
        };
        o.free_samples = [](const ddsi_sertype*, void**, size_t, dds_free_op_t) {};
        o.equal = [](const ddsi_sertype*, const ddsi_sertype*) { return true; };
        o.hash = [](const ddsi_sertype*) { return 0u; };
        o.get_serialized_size = [](const ddsi_sertype*, const void*) { return SIZE_MAX; };
        o.serialize_into = [](const ddsi_sertype*, const void*, void*, size_t) { return false; };
        return o;
    }();
    return ops;
}

dds_qos_t* offeredQos() {
    dds_qos_t* qos = dds_create_qos();
    dds_qset_reliability(qos, DDS_RELIABILITY_RELIABLE, DDS_SECS(10));
    dds_qset_durability(qos, DDS_DURABILITY_TRANSIENT_LOCAL);
    dds_qset_history(qos, DDS_HISTORY_KEEP_ALL, 0);
    dds_data_representation_id_t xcdr2 = DDS_DATA_REPRESENTATION_XCDR2;
    dds_qset_data_representation(qos, 1, &xcdr2);
    return qos;
}

// A valid message serialized by the DDS layer, through a reader of this process. Its first member is a string.
Bytes validMessage(dds_entity_t participant, const dds_topic_descriptor_t* desc, const char* topicName) {
    dds_qos_t* qos = offeredQos();
    const dds_entity_t topic = dds_create_topic(participant, desc, topicName, qos, nullptr);
    if (topic < 0) fail("dds_create_topic", topic);
    const dds_entity_t writer = dds_create_writer(participant, topic, qos, nullptr);
    const dds_entity_t reader = dds_create_reader(participant, topic, qos, nullptr);
    if (writer < 0 || reader < 0) fail("seed endpoints", writer < 0 ? writer : reader);
    std::vector<unsigned char> sample(desc->m_size, 0);
    char actor[] = "malformed-sender";
    char* actorPtr = actor;
    std::memcpy(sample.data(), &actorPtr, sizeof actorPtr);
    if (dds_write(writer, sample.data()) != DDS_RETCODE_OK) fail("dds_write", DDS_RETCODE_ERROR);
    ddsi_serdata* taken = nullptr;
    dds_sample_info_t info;
    if (dds_takecdr(reader, &taken, 1, &info, DDS_ANY_STATE) != 1) fail("dds_takecdr", DDS_RETCODE_ERROR);
    Bytes bytes(ddsi_serdata_size(taken));
    ddsi_serdata_to_ser(taken, 0, bytes.size(), bytes.data());
    ddsi_serdata_unref(taken);
    dds_delete(reader);
    dds_delete(writer);
    dds_delete_qos(qos);
    return bytes;
}

int sendRaw(dds_entity_t participant, const dds_topic_descriptor_t* desc, const char* topicName, std::vector<Bytes> samples) {
    auto* type = new ddsi_sertype{};
    ddsi_sertype_init(type, desc->m_typename, &rawTypeOps(), &rawSerdataOps(), desc->m_nkeys == 0);
    type->allowed_data_representation = DDS_DATA_REPRESENTATION_FLAG_XCDR2;
    ddsi_sertype* registered = type;
    dds_qos_t* qos = offeredQos();
    const dds_entity_t topic = dds_create_topic_sertype(participant, topicName, &registered, qos, nullptr, nullptr);
    if (topic < 0) fail("dds_create_topic_sertype", topic);
    const dds_entity_t writer = dds_create_writer(participant, topic, qos, nullptr);
    if (writer < 0) fail("dds_create_writer", writer);
    dds_delete_qos(qos);
    dds_publication_matched_status_t matched{};
    for (int i = 0; i < 1000 && matched.current_count == 0; ++i) {
        dds_sleepfor(DDS_MSECS(10));
        dds_get_publication_matched_status(writer, &matched);
    }
    if (matched.current_count == 0) fail("no reader matched", DDS_RETCODE_TIMEOUT);
    for (Bytes& b : samples) {
        const dds_return_t rc = dds_writecdr(writer, makeRaw(registered, SDK_DATA, std::move(b)));
        if (rc != DDS_RETCODE_OK) fail("dds_writecdr", rc);
    }
    const dds_return_t rc = dds_wait_for_acks(writer, DDS_SECS(30));
    if (rc != DDS_RETCODE_OK) fail("dds_wait_for_acks", rc);
    return static_cast<int>(samples.size());
}

uint32_t get32(const Bytes& b, size_t at) {
    uint32_t v;
    std::memcpy(&v, b.data() + at, 4);
    return v;
}
void put32(Bytes& b, size_t at, uint32_t v) { std::memcpy(b.data() + at, &v, 4); }

// The header offsets of the top-level members of a valid little-endian XCDR2 message.
std::vector<size_t> members(const Bytes& b) {
    std::vector<size_t> out;
    const size_t end = 8 + get32(b, 4);
    for (size_t at = 8; at + 4 <= end;) {
        const uint32_t header = get32(b, at);
        const uint32_t lc = (header >> 28) & 7;
        size_t length = lc < 4 ? (size_t{1} << lc) : 0, contents = at + 4;
        if (lc == 4) length = get32(b, at + 4), contents += 4;
        else if (lc >= 5) length = 4 + (size_t{get32(b, at + 4)} << (lc == 5 ? 0 : lc - 4));
        out.push_back(at);
        at = (contents + length + 3) & ~size_t{3};
    }
    return out;
}

// Mutations of one valid message: each kind over every member it applies to, then random ones.
std::vector<Bytes> mutations(const Bytes& valid, const std::vector<uint32_t>& keyIds, std::mt19937& random) {
    std::vector<Bytes> out;
    for (const size_t at : members(valid)) {
        const uint32_t header = get32(valid, at);
        for (uint32_t lc = 0; lc < 8; ++lc) {  // every other length code
            if (lc == ((header >> 28) & 7)) continue;
            Bytes b = valid;
            put32(b, at, (header & 0x8fffffffu) | lc << 28);
            out.push_back(b);
        }
        for (uint32_t key : keyIds) {  // a key member's id in place of this member's
            if (key == (header & 0x0fffffffu)) continue;
            Bytes b = valid;
            put32(b, at, (header & 0xf0000000u) | key);
            out.push_back(b);
        }
        Bytes huge = valid;  // a huge member length or string length
        if (at + 8 <= huge.size()) put32(huge, at + 4, 0xffffffffu);
        out.push_back(huge);
    }
    for (size_t n = 4; n < valid.size(); n += 3) out.emplace_back(valid.begin(), valid.begin() + static_cast<long>(n));
    for (int i = 0; i < 80; ++i) {  // random bytes changed in the headers' region
        Bytes b = valid;
        for (int k = 0; k < 3; ++k) b[4 + random() % (b.size() - 4)] = static_cast<unsigned char>(random());
        out.push_back(b);
    }
    return out;
}

uint32_t memberId(const Bytes& valid, size_t index) { return get32(valid, members(valid)[index]) & 0x0fffffffu; }

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: malformed-sender DOMAIN CORPUS_INPUT\n");
        return 2;
    }
    const dds_entity_t participant = dds_create_participant(static_cast<dds_domainid_t>(std::atoi(argv[1])), nullptr, nullptr);
    if (participant < 0) fail("dds_create_participant", participant);

    std::ifstream file(argv[2], std::ios::binary);
    Bytes corpus((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (corpus.size() < 3) fail("corpus input unreadable", DDS_RETCODE_BAD_PARAMETER);
    corpus.erase(corpus.begin(), corpus.begin() + 2);  // the fuzz target's operation selector

    const Bytes keyed = validMessage(participant, &VendorData_M_Alert_IClient_ReportAlarmLog_desc, "M_Alert_IClient_ReportAlarmLog");
    const Bytes keyless = validMessage(participant, &VendorData_M_Alert_IService_CmdRaiseAlarm_desc, "M_Alert_IService_CmdRaiseAlarm");
    std::mt19937 random(20240607);
    // ReportAlarmLog: kelva_sending_actor and KeyAlarmId are its first two members and its keys.
    int sent = sendRaw(participant, &VendorData_M_Sensor_IClient_ReportSensorCoverage_desc,
                       "M_Sensor_IClient_ReportSensorCoverage", {corpus});
    sent += sendRaw(participant, &VendorData_M_Alert_IClient_ReportAlarmLog_desc, "M_Alert_IClient_ReportAlarmLog",
                    mutations(keyed, {memberId(keyed, 0), memberId(keyed, 1)}, random));
    sent += sendRaw(participant, &VendorData_M_Alert_IService_CmdRaiseAlarm_desc, "M_Alert_IService_CmdRaiseAlarm",
                    mutations(keyless, {}, random));
    std::printf("sent %d\n", sent);
    dds_delete(participant);
    return 0;
}
