#include "ToolStreams.h"

#include <dds/ddsi/ddsi_serdata.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <thread>

#include "M_Alert.h"  // the idlc C types
#include "M_SignalGenerator.h"
#include "kelva/access/QosPattern.h"
#include "kelva/config/Config.h"

namespace vantrel::bench {

namespace {

constexpr uint32_t kLargeValues = 125000;  // 1 MB of doubles
const char* const kActor = "bench-tool-writer";

const StreamInfo kSmall{"small", "M_Alert.IService.CmdRaiseAlarm", "M_Alert_IService_CmdRaiseAlarm",
                        &VendorData_M_Alert_IService_CmdRaiseAlarm_desc};
const StreamInfo kLarge{"large", "M_SignalGenerator.IClient.EventSensorOutput", "M_SignalGenerator_IClient_EventSensorOutput",
                        &VendorData_M_SignalGenerator_IClient_EventSensorOutput_desc};

void check(dds_return_t rc, const char* what) {
    if (rc < 0) throw std::runtime_error(std::string(what) + ": " + dds_strretcode(rc));
}

// The toolkit's QoS for the topic, read from the same configuration the tool reads (KELVA_CONFIG).
const kelva::access::QosPattern& qosOf(const StreamInfo& s) {
    static const kelva::config::Config config = kelva::config::Config::fromEnvironment();
    static const kelva::access::QosPatterns patterns(config);
    return patterns.forTopic(s.topic);
}

dds_entity_t topicOf(dds_entity_t participant, const StreamInfo& s) {
    const dds_entity_t topic = dds_create_topic(participant, s.descriptor, s.topic, qosOf(s).qosTopic(), nullptr);
    check(topic, "dds_create_topic");
    return topic;
}

}  // namespace

const StreamInfo& infoOf(Stream stream) { return stream == Stream::Small ? kSmall : kLarge; }

Stream streamNamed(const std::string& name) {
    if (name == "small") return Stream::Small;
    if (name == "large") return Stream::Large;
    throw std::runtime_error("unknown stream " + name);
}

StreamWriter::StreamWriter(Stream stream, int domain)
    : m_stream(stream), m_participant(dds_create_participant(domain, nullptr, nullptr)) {
    check(m_participant, "dds_create_participant");
    m_topic = topicOf(m_participant, infoOf(stream));
    m_writer = dds_create_writer(m_participant, m_topic, qosOf(infoOf(stream)).qosWrite(), nullptr);
    check(m_writer, "dds_create_writer");
    if (stream == Stream::Large) {
        m_values.resize(kLargeValues);
        for (uint32_t i = 0; i < kLargeValues; ++i) m_values[i] = std::sin(i * 0.001) * 100.0;  // a sensor's signal
    }
}

StreamWriter::~StreamWriter() { dds_delete(m_participant); }

void StreamWriter::waitMatched(int readers, double seconds) {
    const auto t0 = std::chrono::steady_clock::now();
    dds_publication_matched_status_t st{};
    for (;;) {
        check(dds_get_publication_matched_status(m_writer, &st), "dds_get_publication_matched_status");
        if (static_cast<int>(st.current_count) >= readers) return;
        if (std::chrono::steady_clock::now() - t0 > std::chrono::duration<double>(seconds))
            throw std::runtime_error(std::string(infoOf(m_stream).topic) + ": " + std::to_string(st.current_count) + " of " +
                                     std::to_string(readers) + " readers matched after " + std::to_string(seconds) + " s");
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

void StreamWriter::write(uint32_t n) { writeTo(m_writer, n); }

void StreamWriter::writeTo(dds_entity_t writer, uint32_t n) {
    dds_return_t rc = 0;  // a full history for longer than the maximum blocking time fails the part
    if (m_stream == Stream::Small) {
        char number[16];
        std::snprintf(number, sizeof number, "%010u", n);
        const VendorData_M_Alert_IService_CmdRaiseAlarm m{
            const_cast<char*>(kActor),
            {const_cast<char*>("Power"), const_cast<char*>("Battery"), const_cast<char*>("Voltage"), number,
             const_cast<char*>("battery voltage below limit")}};
        rc = dds_write(writer, &m);
    } else {
        m_values[0] = n;
        const VendorData_M_SignalGenerator_IClient_EventSensorOutput m{
            const_cast<char*>(kActor), {kLargeValues, kLargeValues, m_values.data(), false}};
        rc = dds_write(writer, &m);
    }
    check(rc, "dds_write");
}

bool StreamWriter::flush(double seconds) {
    return dds_wait_for_acks(m_writer, static_cast<dds_duration_t>(seconds * 1e9)) == DDS_RETCODE_OK;
}

std::vector<uint8_t> StreamWriter::serialized(uint32_t n) {
    if (!m_localWriter) {
        // A writer and a reader in a partition no other process shares: delivery to them is immediate.
        const std::string partition = "vantrel-bench-local-" + std::to_string(getpid());
        dds_qos_t* qos = dds_create_qos();
        dds_qset_partition1(qos, partition.c_str());
        dds_qset_reliability(qos, DDS_RELIABILITY_RELIABLE, DDS_SECS(1));
        const dds_entity_t pub = dds_create_publisher(m_participant, qos, nullptr);
        const dds_entity_t sub = dds_create_subscriber(m_participant, qos, nullptr);
        m_localWriter = dds_create_writer(pub, m_topic, qos, nullptr);
        m_localReader = dds_create_reader(sub, m_topic, qos, nullptr);
        dds_delete_qos(qos);
        check(m_localWriter, "dds_create_writer");
        check(m_localReader, "dds_create_reader");
    }
    writeTo(m_localWriter, n);
    ddsi_serdata* data = nullptr;
    dds_sample_info_t info;
    if (dds_takecdr(m_localReader, &data, 1, &info, DDS_ANY_STATE) != 1)
        throw std::runtime_error("cannot take a serialized sample of " + std::string(infoOf(m_stream).topic));
    std::vector<uint8_t> bytes(ddsi_serdata_size(data));
    ddsi_serdata_to_ser(data, 0, bytes.size(), bytes.data());
    ddsi_serdata_unref(data);
    return bytes;
}

namespace {

void say(const std::string& line) {
    std::fputs((line + "\n").c_str(), stdout);
    std::fflush(stdout);
}

// Takes every sample as a loan on its own thread, as a plain application reader does.
class CountingReader {
public:
    CountingReader(dds_entity_t participant, const StreamInfo& s, long expected) : m_expected(expected) {
        dds_qos_t* qos = dds_create_qos();
        dds_copy_qos(qos, qosOf(s).qosRead());
        dds_qset_history(qos, DDS_HISTORY_KEEP_ALL, DDS_LENGTH_UNLIMITED);  // as the recorder's reader
        m_reader = dds_create_reader(participant, topicOf(participant, s), qos, nullptr);
        dds_delete_qos(qos);
        check(m_reader, "dds_create_reader");
        m_condition = dds_create_readcondition(m_reader, DDS_ANY_STATE);
        m_waitset = dds_create_waitset(participant);
        m_wakeup = dds_create_guardcondition(participant);
        check(dds_waitset_attach(m_waitset, m_condition, 0), "dds_waitset_attach");
        check(dds_waitset_attach(m_waitset, m_wakeup, 0), "dds_waitset_attach");
        m_thread = std::thread([this] { run(); });
    }
    ~CountingReader() {
        m_stop = true;
        dds_set_guardcondition(m_wakeup, true);
        m_thread.join();
    }
    long count() const { return m_count; }

private:
    void run() {
        while (!m_stop) {
            dds_waitset_wait(m_waitset, nullptr, 0, DDS_INFINITY);
            void* samples[16];
            dds_sample_info_t infos[16];
            for (;;) {
                samples[0] = nullptr;
                const dds_return_t n = dds_take(m_condition, samples, infos, 16, 16);
                if (n <= 0) break;
                for (dds_return_t i = 0; i < n; ++i)
                    if (infos[i].valid_data && ++m_count == m_expected) say("have " + std::to_string(m_expected));
                dds_return_loan(m_reader, samples, n);
            }
        }
    }

    long m_expected;
    std::atomic<long> m_count{0};
    dds_entity_t m_reader = 0, m_condition = 0, m_waitset = 0, m_wakeup = 0;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

}  // namespace

int peerSubscriber(const std::string& stream, int domain, long expected) {
    const dds_entity_t participant = dds_create_participant(domain, nullptr, nullptr);
    check(participant, "dds_create_participant");
    long count = 0;
    {
        CountingReader reader(participant, infoOf(streamNamed(stream)), expected);
        say("ready");
        char buffer[64];
        while (read(0, buffer, sizeof buffer) > 0) {
        }
        count = reader.count();
    }
    dds_delete(participant);
    say("count " + std::to_string(count));
    return 0;
}

}  // namespace vantrel::bench
