#include "ToolStreams.h"

#include <dds/ddsi/ddsi_serdata.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <stdexcept>

#include "Child.h"
#include "Common.h"
#include "Parts.h"
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

void StreamWriter::waitMatched(int readers, double seconds) { bench::waitMatched(m_writer, readers, seconds); }

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

// Peer: a plain subscriber of the stream (reliable keep-all, the QoS the recorder's reader has) that
// takes every sample with loans on a waitset thread and counts them. Prints "ready", then "have <n>"
// once `expected` arrived, and "count <n>" when its stdin closes.
int peerSubscriber(const std::string& stream, int domain, long expected) {
    const StreamInfo& s = infoOf(streamNamed(stream));
    const dds_entity_t participant = dds_create_participant(domain, nullptr, nullptr);
    check(participant, "dds_create_participant");
    std::atomic<long> count{0};
    {
        dds_qos_t* qos = dds_create_qos();
        dds_copy_qos(qos, qosOf(s).qosRead());
        dds_qset_history(qos, DDS_HISTORY_KEEP_ALL, DDS_LENGTH_UNLIMITED);  // as the recorder's reader
        const dds_entity_t reader = dds_create_reader(participant, topicOf(participant, s), qos, nullptr);
        dds_delete_qos(qos);
        // Every sample taken as a loan on the reader's own thread, as a plain application reader does.
        RawReader counting(participant, reader, [&](const void*) {
            if (++count == expected) say("have " + std::to_string(expected));
        });
        say("ready");
        waitForStdinEof();
    }
    dds_delete(participant);
    say("count " + std::to_string(count.load()));
    return 0;
}

}  // namespace vantrel::bench
