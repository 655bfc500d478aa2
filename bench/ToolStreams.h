#pragma once
// The two message streams the tool parts measure, written and received by plain ddsc beside the tool:
//   small  M_Alert CmdRaiseAlarm, the benchmark's small message (152 bytes serialized)
//   large  M_SignalGenerator EventSensorOutput with 125000 doubles (1000048 bytes)
// Every message carries its number, so that no two are alike; its serialized size stays the same.
#include <dds/dds.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vantrel::bench {

enum class Stream { Small, Large };

struct StreamInfo {
    const char* name;       // "small" or "large", as a peer's argument
    const char* operation;  // the tool's name of the operation
    const char* topic;
    const dds_topic_descriptor_t* descriptor;
};

const StreamInfo& infoOf(Stream stream);
Stream streamNamed(const std::string& name);

// A raw ddsc writer of the stream with the toolkit's QoS for its topic (what a frame writer uses).
class StreamWriter {
public:
    StreamWriter(Stream stream, int domain);
    ~StreamWriter();
    StreamWriter(const StreamWriter&) = delete;
    StreamWriter& operator=(const StreamWriter&) = delete;

    // Throws unless `readers` readers match within `seconds`.
    void waitMatched(int readers, double seconds);
    // Writes message number `n`; throws when the DDS layer refuses it.
    void write(uint32_t n);
    // True when every reader acknowledged every message within `seconds`.
    bool flush(double seconds);
    // Message number `n` as the DDS layer serializes it (with its 4-byte header): what a recording holds
    // and what the tool counts. Taken from a reader of this process's own.
    std::vector<uint8_t> serialized(uint32_t n);

private:
    void writeTo(dds_entity_t writer, uint32_t n);

    Stream m_stream;
    dds_entity_t m_participant, m_topic, m_writer;
    dds_entity_t m_localWriter = 0, m_localReader = 0;
    std::vector<double> m_values;
};

}  // namespace vantrel::bench
