// Receive-path fuzz target: arbitrary bytes as the serialized form of any of the operations' messages,
// through the whole receive path of a real session: the DDS layer's deserialization, the reader, our
// conversion and the dispatch to an implementation (the interfaces' default bodies).
//
// Input: two bytes (little-endian) select the operation (modulo their number); the rest is the sample as
// it travels on the wire (encapsulation header and CDR). What the DDS layer refuses never reaches the
// application and ends the input; what it accepts must be dispatched within a bound, or that is a finding.
//
// Both the harness's writers and the session's readers use the toolkit's guarded topic types, so every
// input is checked by the sample guard as a received sample is (kelva/access/GuardedTopic.h): inputs with
// mutated member headers (repeated, missing or swapped key members, other length codes or flags) are fed
// like any other. At the end the run prints how many inputs had member headers other than the default
// message's and how many samples the guard or the DDS layer refused as malformed.
//
// VANTREL_FUZZ_WRITE_SEEDS=DIR writes one seed per operation (a default message) into DIR and exits.
#include <dds/dds.h>
#include <dds/ddsi/ddsi_serdata.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "FuzzCatalog.h"
#include "kelva/access/DeliveryStats.h"
#include "kelva/access/GuardedTopic.h"
#include "kelva/utils/Log.h"
#include "vantrel/test/Support.h"

namespace {

std::atomic<unsigned long> g_dispatched{0};
unsigned long g_inputs = 0;
unsigned long g_mutatedHeaders = 0;

// The top-level member headers of a little-endian XCDR2 mutable message (encapsulation 0x000b): member id
// -> header without its length-code-dependent contents. Empty when the bytes are not such a message or
// end early; then nothing is concluded from them.
std::vector<std::pair<uint32_t, uint32_t>> memberHeaders(const uint8_t* p, std::size_t n) {
    std::vector<std::pair<uint32_t, uint32_t>> out;
    auto u32 = [&](std::size_t at) {
        uint32_t v;
        std::memcpy(&v, p + at, 4);
        return v;
    };
    if (n < 8 || p[0] != 0x00 || p[1] != 0x0b) return out;
    const std::size_t end = std::min<std::size_t>(n, 8 + static_cast<std::size_t>(u32(4)));
    for (std::size_t at = 8; at + 4 <= end;) {
        const uint32_t header = u32(at);
        const uint32_t lc = (header >> 28) & 7;
        at += 4;
        std::size_t length = lc < 4 ? (std::size_t{1} << lc) : 0;
        if (lc >= 4) {
            if (at + 4 > end) return {};
            const std::size_t next = u32(at);  // the contents follow it (LC 4, 5) or it counts elements (6, 7)
            length = 4 + (lc <= 5 ? next : next * (lc == 6 ? 4 : 8));
        }
        out.emplace_back(header & 0x0fffffff, header & 0xf0000000);
        at = (at + length + 3) & ~std::size_t{3};
    }
    return out;
}

// True when the top-level member headers of `input` differ from the seed's (the default message's) in
// number, order, member id, length code or flags, or cannot be walked to the end.
bool headersDiffer(const std::vector<std::pair<uint32_t, uint32_t>>& seed, const uint8_t* input, std::size_t n) {
    return memberHeaders(input, n) != seed;
}

void printCounts() {
    std::fprintf(stderr, "fuzz-receive: %lu inputs, %lu with mutated member headers, %llu samples refused as malformed\n",
                 g_inputs, g_mutatedHeaders,
                 static_cast<unsigned long long>(kelva::access::DeliveryStats::samplesMalformed()));
}

// The harness's own participant with one writer per operation, made on first use, and the topic's
// serialization type, the guarded one (taken from a sample of it, as the DDS layer offers no other public way).
class Feeder {
public:
    explicit Feeder(int domain) : m_participant(dds_create_participant(domain, nullptr, nullptr)) {
        if (m_participant < 0) std::abort();
        m_qos = dds_create_qos();
        // Offers what every reader of the system requests (reports are transient-local).
        dds_qset_reliability(m_qos, DDS_RELIABILITY_RELIABLE, DDS_SECS(1));
        dds_qset_durability(m_qos, DDS_DURABILITY_TRANSIENT_LOCAL);
        dds_qset_history(m_qos, DDS_HISTORY_KEEP_LAST, 1);
        m_slots.resize(vantrel::fuzz::operations().size());
    }

    struct Slot {
        dds_entity_t writer = 0;
        const ddsi_sertype* type = nullptr;
        std::vector<unsigned char> seed;  // a default message, serialized
        std::vector<std::pair<uint32_t, uint32_t>> seedHeaders;  // its top-level member headers
    };

    Slot& slot(std::size_t index) {
        Slot& s = m_slots[index];
        if (s.writer) return s;
        const auto& op = vantrel::fuzz::operations()[index];
        const dds_entity_t topic =
            kelva::access::createGuardedTopic(m_participant, op.descriptor, op.topic, m_qos, nullptr);
        s.writer = dds_create_writer(m_participant, topic, m_qos, nullptr);
        const dds_entity_t reader = dds_create_reader(m_participant, topic, m_qos, nullptr);
        if (topic < 0 || s.writer < 0 || reader < 0) std::abort();
        std::vector<unsigned char> zero(op.descriptor->m_size, 0);
        const unsigned long before = g_dispatched.load();
        if (dds_write(s.writer, zero.data()) != DDS_RETCODE_OK) std::abort();
        ddsi_serdata* sample = nullptr;
        dds_sample_info_t info;
        if (dds_takecdr(reader, &sample, 1, &info, DDS_ANY_STATE) != 1) std::abort();
        s.type = sample->type;
        s.seed.resize(ddsi_serdata_size(sample));
        ddsi_serdata_to_ser(sample, 0, s.seed.size(), s.seed.data());
        s.seedHeaders = memberHeaders(s.seed.data(), s.seed.size());
        ddsi_serdata_unref(sample);
        dds_delete(reader);
        awaitDispatch(before, op.name);
        return s;
    }

    static void awaitDispatch(unsigned long before, const char* operation) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (g_dispatched.load() == before) {
            if (std::chrono::steady_clock::now() > deadline) {
                std::fprintf(stderr, "accepted by the DDS layer but never dispatched: %s\n", operation);
                std::abort();
            }
            std::this_thread::yield();
        }
    }

private:
    dds_entity_t m_participant;
    dds_qos_t* m_qos;
    std::vector<Slot> m_slots;
};

std::shared_ptr<kelva::actors::Session> g_session;
std::vector<std::shared_ptr<void>> g_receivers;
Feeder* g_feeder = nullptr;

void writeSeeds(const char* dir) {
    const auto& ops = vantrel::fuzz::operations();
    for (std::size_t i = 0; i < ops.size(); ++i) {
        const auto& seed = g_feeder->slot(i).seed;
        std::ofstream out(std::string(dir) + "/" + std::to_string(i) + "-" + ops[i].name, std::ios::binary);
        const unsigned char index[2] = {static_cast<unsigned char>(i & 0xff), static_cast<unsigned char>(i >> 8)};
        out.write(reinterpret_cast<const char*>(index), 2);
        out.write(reinterpret_cast<const char*>(seed.data()), static_cast<std::streamsize>(seed.size()));
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    std::string why;
    if (!vantrel::test::detail::loopbackConfigured(why)) {
        std::fprintf(stderr, "refusing to run: %s\n", why.c_str());
        std::exit(2);
    }
    // Every dispatched operation reaches a default body, which warns: the tap counts them; the lines
    // themselves go nowhere.
    kelva::utils::log::Logger::setLevel(kelva::utils::log::Level::warn);
    kelva::utils::log::Logger::setSink("file:/dev/null");
    kelva::utils::log::Logger::setTap([](kelva::utils::log::Level, const std::string& line) {
        if (line.rfind("default implementation called: ", 0) == 0) g_dispatched.fetch_add(1);
    });
    const int domain = vantrel::test::domainId();
    g_session = std::make_shared<kelva::actors::Session>(domain);
    vantrel::fuzz::createReceivers(g_session, g_receivers);
    g_feeder = new Feeder(domain);
    std::atexit(&printCounts);
    if (const char* dir = std::getenv("VANTREL_FUZZ_WRITE_SEEDS")) {
        writeSeeds(dir);
        std::exit(0);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const std::size_t index = (data[0] | (data[1] << 8)) % vantrel::fuzz::operations().size();
    auto& slot = g_feeder->slot(index);
    ++g_inputs;
    if (headersDiffer(slot.seedHeaders, data + 2, size - 2)) ++g_mutatedHeaders;
    ddsrt_iovec_t iov;
    iov.iov_base = const_cast<uint8_t*>(data + 2);
    iov.iov_len = static_cast<decltype(iov.iov_len)>(size - 2);
    ddsi_serdata* sample = ddsi_serdata_from_ser_iov(slot.type, SDK_DATA, 1, &iov, size - 2);
    if (!sample) return 0;  // refused by the guard or the DDS layer, as a received one would be
    const unsigned long before = g_dispatched.load();
    if (dds_writecdr(slot.writer, sample) != DDS_RETCODE_OK) return 0;
    Feeder::awaitDispatch(before, vantrel::fuzz::operations()[index].name);
    return 0;
}
