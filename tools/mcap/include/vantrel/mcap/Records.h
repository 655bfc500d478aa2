#pragma once
// The records of a recording file as plain values: what the writer writes and the reader hands back.
// Times are nanoseconds; all integers are little-endian on disk.
#include <cstddef>
#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>

namespace vantrel::mcap {

// A file that cannot be opened, read or written, a malformed or truncated file, or a misuse of the
// writer. The message names the file and, where it helps, the byte offset of what is wrong.
struct McapError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

enum class Compression { None, Zstd, Lz4 };

// The name a chunk record carries for a compression: "", "zstd" or "lz4".
const char* compressionName(Compression compression);

enum class Opcode : uint8_t {
    Header = 0x01,
    Footer = 0x02,
    Schema = 0x03,
    Channel = 0x04,
    Message = 0x05,
    Chunk = 0x06,
    MessageIndex = 0x07,
    ChunkIndex = 0x08,
    Attachment = 0x09,
    AttachmentIndex = 0x0A,
    Statistics = 0x0B,
    Metadata = 0x0C,
    MetadataIndex = 0x0D,
    SummaryOffset = 0x0E,
    DataEnd = 0x0F,
};

// The 8 bytes at both ends of every file.
inline constexpr uint8_t kMagic[8] = {0x89, 'M', 'C', 'A', 'P', 0x30, '\r', '\n'};

struct Header {
    std::string profile;
    std::string library;
};

struct Schema {
    uint16_t id = 0;  // never 0
    std::string name;
    std::string encoding;
    std::string data;
};

struct Channel {
    uint16_t id = 0;
    uint16_t schemaId = 0;  // 0: no schema
    std::string topic;
    std::string messageEncoding;
    std::map<std::string, std::string> metadata;
};

struct ChunkIndex {
    uint64_t messageStartTime = 0;
    uint64_t messageEndTime = 0;
    uint64_t chunkStartOffset = 0;
    uint64_t chunkLength = 0;  // the whole record, opcode and length included
    std::map<uint16_t, uint64_t> messageIndexOffsets;  // channel id -> offset of its message index record
    uint64_t messageIndexLength = 0;
    std::string compression;
    uint64_t compressedSize = 0;
    uint64_t uncompressedSize = 0;
};

struct Statistics {
    uint64_t messageCount = 0;
    uint16_t schemaCount = 0;
    uint32_t channelCount = 0;
    uint32_t attachmentCount = 0;
    uint32_t metadataCount = 0;
    uint32_t chunkCount = 0;
    uint64_t messageStartTime = 0;  // 0 when there are no messages
    uint64_t messageEndTime = 0;
    std::map<uint16_t, uint64_t> channelMessageCounts;
};

struct Footer {
    uint64_t summaryStart = 0;        // 0: no summary section
    uint64_t summaryOffsetStart = 0;  // 0: no summary offset records
    uint32_t summaryCrc = 0;          // 0: not computed
};

// One message as the reader hands it out. `data` points into the reader's buffers and stays valid only
// during the callback that receives it.
struct MessageView {
    const Channel* channel = nullptr;
    const Schema* schema = nullptr;  // null when the channel has no schema
    uint32_t sequence = 0;
    uint64_t logTime = 0;
    uint64_t publishTime = 0;
    const uint8_t* data = nullptr;
    std::size_t size = 0;
};

}  // namespace vantrel::mcap
