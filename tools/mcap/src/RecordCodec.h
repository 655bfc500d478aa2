#pragma once
// The layout of each record: encoders append a whole record (opcode, length, content) to a buffer;
// decoders read a record's content. Shared by the writer, the reader and the tests.
#include "ByteBuffer.h"
#include "ByteReader.h"
#include "vantrel/mcap/Records.h"

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace vantrel::mcap::detail {

// Opcode and content length before every record's content.
inline constexpr std::size_t kRecordPrefix = 1 + 8;
// The footer record (prefix and content) and the trailing magic.
inline constexpr std::size_t kFooterRecordSize = kRecordPrefix + 8 + 8 + 4;
// The message record's fields before its data.
inline constexpr std::size_t kMessageFields = 2 + 4 + 8 + 8;

struct MessageRecord {
    uint16_t channelId = 0;
    uint32_t sequence = 0;
    uint64_t logTime = 0;
    uint64_t publishTime = 0;
    const uint8_t* data = nullptr;
    std::size_t size = 0;
};

struct ChunkRecord {
    uint64_t messageStartTime = 0;
    uint64_t messageEndTime = 0;
    uint64_t uncompressedSize = 0;
    uint32_t uncompressedCrc = 0;
    std::string compression;
    const uint8_t* records = nullptr;
    std::size_t recordsSize = 0;
};

struct SummaryOffset {
    uint8_t groupOpcode = 0;
    uint64_t groupStart = 0;
    uint64_t groupLength = 0;
};

void encodeHeader(ByteBuffer& out, const Header& header);
void encodeSchema(ByteBuffer& out, const Schema& schema);
void encodeChannel(ByteBuffer& out, const Channel& channel);
void encodeMessage(ByteBuffer& out, uint16_t channelId, uint32_t sequence, uint64_t logTime, uint64_t publishTime,
                   const void* data, std::size_t size);
// The chunk record up to (and with) the uint64 length of its records; the compressed records follow.
void encodeChunkPrefix(ByteBuffer& out, const ChunkRecord& chunk, uint64_t compressedSize);
void encodeMessageIndex(ByteBuffer& out, uint16_t channelId, const std::vector<std::pair<uint64_t, uint64_t>>& entries);
void encodeChunkIndex(ByteBuffer& out, const ChunkIndex& index);
void encodeStatistics(ByteBuffer& out, const Statistics& statistics);
void encodeSummaryOffset(ByteBuffer& out, const SummaryOffset& offset);
void encodeDataEnd(ByteBuffer& out, uint32_t dataSectionCrc);
// Only the footer's fields up to summary_offset_start: the summary CRC covers them, then follows.
void encodeFooterPrefix(ByteBuffer& out, uint64_t summaryStart, uint64_t summaryOffsetStart);

Header decodeHeader(ByteReader& in);
Schema decodeSchema(ByteReader& in);
Channel decodeChannel(ByteReader& in);
MessageRecord decodeMessage(ByteReader& in);
ChunkRecord decodeChunk(ByteReader& in);
std::pair<uint16_t, std::vector<std::pair<uint64_t, uint64_t>>> decodeMessageIndex(ByteReader& in);
ChunkIndex decodeChunkIndex(ByteReader& in);
Statistics decodeStatistics(ByteReader& in);
SummaryOffset decodeSummaryOffset(ByteReader& in);
Footer decodeFooter(ByteReader& in);

// One record in a run of records: its opcode, where it starts and its content.
struct RawRecord {
    uint8_t opcode = 0;
    uint64_t offset = 0;  // of the opcode, in the reader's terms
    const uint8_t* content = nullptr;
    std::size_t length = 0;
};

// Reads the next record of a run; false at the end of the bytes. Throws when a record's length passes
// the end.
bool nextRecord(ByteReader& in, RawRecord& record);

// A reader over a record's content, with errors naming the record.
ByteReader contentReader(const RawRecord& record, const std::string& context);

const char* opcodeName(uint8_t opcode);

}  // namespace vantrel::mcap::detail
