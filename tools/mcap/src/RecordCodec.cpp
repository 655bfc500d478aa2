#include "RecordCodec.h"

namespace vantrel::mcap::detail {

namespace {
uint8_t op(Opcode o) {
    return static_cast<uint8_t>(o);
}
}  // namespace

void encodeHeader(ByteBuffer& out, const Header& header) {
    const auto at = out.beginRecord(op(Opcode::Header));
    out.string(header.profile);
    out.string(header.library);
    out.endRecord(at);
}

void encodeSchema(ByteBuffer& out, const Schema& schema) {
    const auto at = out.beginRecord(op(Opcode::Schema));
    out.u16(schema.id);
    out.string(schema.name);
    out.string(schema.encoding);
    out.string(schema.data);
    out.endRecord(at);
}

void encodeChannel(ByteBuffer& out, const Channel& channel) {
    const auto at = out.beginRecord(op(Opcode::Channel));
    out.u16(channel.id);
    out.u16(channel.schemaId);
    out.string(channel.topic);
    out.string(channel.messageEncoding);
    out.stringMap(channel.metadata);
    out.endRecord(at);
}

void encodeMessage(ByteBuffer& out, uint16_t channelId, uint32_t sequence, uint64_t logTime, uint64_t publishTime,
                   const void* data, std::size_t size) {
    out.u8(op(Opcode::Message));
    out.u64(kMessageFields + size);
    out.u16(channelId);
    out.u32(sequence);
    out.u64(logTime);
    out.u64(publishTime);
    out.raw(data, size);
}

void encodeChunkPrefix(ByteBuffer& out, const ChunkRecord& chunk, uint64_t compressedSize) {
    out.u8(op(Opcode::Chunk));
    out.u64(8 + 8 + 8 + 4 + 4 + chunk.compression.size() + 8 + compressedSize);
    out.u64(chunk.messageStartTime);
    out.u64(chunk.messageEndTime);
    out.u64(chunk.uncompressedSize);
    out.u32(chunk.uncompressedCrc);
    out.string(chunk.compression);
    out.u64(compressedSize);
}

void encodeMessageIndex(ByteBuffer& out, uint16_t channelId, const std::vector<std::pair<uint64_t, uint64_t>>& entries) {
    const auto at = out.beginRecord(op(Opcode::MessageIndex));
    out.u16(channelId);
    out.u32(static_cast<uint32_t>(entries.size() * 16));
    for (const auto& [logTime, offset] : entries) {
        out.u64(logTime);
        out.u64(offset);
    }
    out.endRecord(at);
}

void encodeChunkIndex(ByteBuffer& out, const ChunkIndex& index) {
    const auto at = out.beginRecord(op(Opcode::ChunkIndex));
    out.u64(index.messageStartTime);
    out.u64(index.messageEndTime);
    out.u64(index.chunkStartOffset);
    out.u64(index.chunkLength);
    out.u16u64Map(index.messageIndexOffsets);
    out.u64(index.messageIndexLength);
    out.string(index.compression);
    out.u64(index.compressedSize);
    out.u64(index.uncompressedSize);
    out.endRecord(at);
}

void encodeStatistics(ByteBuffer& out, const Statistics& s) {
    const auto at = out.beginRecord(op(Opcode::Statistics));
    out.u64(s.messageCount);
    out.u16(s.schemaCount);
    out.u32(s.channelCount);
    out.u32(s.attachmentCount);
    out.u32(s.metadataCount);
    out.u32(s.chunkCount);
    out.u64(s.messageStartTime);
    out.u64(s.messageEndTime);
    out.u16u64Map(s.channelMessageCounts);
    out.endRecord(at);
}

void encodeSummaryOffset(ByteBuffer& out, const SummaryOffset& offset) {
    const auto at = out.beginRecord(op(Opcode::SummaryOffset));
    out.u8(offset.groupOpcode);
    out.u64(offset.groupStart);
    out.u64(offset.groupLength);
    out.endRecord(at);
}

void encodeDataEnd(ByteBuffer& out, uint32_t dataSectionCrc) {
    const auto at = out.beginRecord(op(Opcode::DataEnd));
    out.u32(dataSectionCrc);
    out.endRecord(at);
}

void encodeFooterPrefix(ByteBuffer& out, uint64_t summaryStart, uint64_t summaryOffsetStart) {
    out.u8(op(Opcode::Footer));
    out.u64(8 + 8 + 4);
    out.u64(summaryStart);
    out.u64(summaryOffsetStart);
}

Header decodeHeader(ByteReader& in) {
    Header h;
    h.profile = in.string("header profile");
    h.library = in.string("header library");
    return h;
}

Schema decodeSchema(ByteReader& in) {
    Schema s;
    s.id = in.u16("schema id");
    s.name = in.string("schema name");
    s.encoding = in.string("schema encoding");
    s.data = in.bytes32("schema data");
    return s;
}

Channel decodeChannel(ByteReader& in) {
    Channel c;
    c.id = in.u16("channel id");
    c.schemaId = in.u16("channel schema id");
    c.topic = in.string("channel topic");
    c.messageEncoding = in.string("channel message encoding");
    c.metadata = in.stringMap("channel metadata");
    return c;
}

MessageRecord decodeMessage(ByteReader& in) {
    MessageRecord m;
    m.channelId = in.u16("message channel id");
    m.sequence = in.u32("message sequence");
    m.logTime = in.u64("message log time");
    m.publishTime = in.u64("message publish time");
    m.size = in.remaining();
    m.data = in.take(m.size, "message data");
    return m;
}

ChunkRecord decodeChunk(ByteReader& in) {
    ChunkRecord c;
    c.messageStartTime = in.u64("chunk start time");
    c.messageEndTime = in.u64("chunk end time");
    c.uncompressedSize = in.u64("chunk uncompressed size");
    c.uncompressedCrc = in.u32("chunk CRC");
    c.compression = in.string("chunk compression");
    const uint64_t size = in.u64("chunk records length");
    if (size > in.remaining()) {
        in.fail("chunk records length " + std::to_string(size) + " passes the end of the record (" +
                std::to_string(in.remaining()) + " bytes left)");
    }
    c.recordsSize = static_cast<std::size_t>(size);
    c.records = in.take(c.recordsSize, "chunk records");
    return c;
}

std::pair<uint16_t, std::vector<std::pair<uint64_t, uint64_t>>> decodeMessageIndex(ByteReader& in) {
    const uint16_t channel = in.u16("message index channel id");
    const uint32_t n = in.u32("message index entries");
    if (n % 16 != 0) {
        in.fail("message index entries length " + std::to_string(n) + " is no multiple of 16");
    }
    ByteReader entries(in.take(n, "message index entries"), n, in.offset() - n, in.context());
    std::vector<std::pair<uint64_t, uint64_t>> out;
    out.reserve(n / 16);
    while (entries.remaining() > 0) {
        const uint64_t logTime = entries.u64("message index log time");
        out.emplace_back(logTime, entries.u64("message index offset"));
    }
    return {channel, std::move(out)};
}

ChunkIndex decodeChunkIndex(ByteReader& in) {
    ChunkIndex c;
    c.messageStartTime = in.u64("chunk index start time");
    c.messageEndTime = in.u64("chunk index end time");
    c.chunkStartOffset = in.u64("chunk index chunk offset");
    c.chunkLength = in.u64("chunk index chunk length");
    c.messageIndexOffsets = in.u16u64Map("chunk index message index offsets");
    c.messageIndexLength = in.u64("chunk index message index length");
    c.compression = in.string("chunk index compression");
    c.compressedSize = in.u64("chunk index compressed size");
    c.uncompressedSize = in.u64("chunk index uncompressed size");
    return c;
}

Statistics decodeStatistics(ByteReader& in) {
    Statistics s;
    s.messageCount = in.u64("statistics message count");
    s.schemaCount = in.u16("statistics schema count");
    s.channelCount = in.u32("statistics channel count");
    s.attachmentCount = in.u32("statistics attachment count");
    s.metadataCount = in.u32("statistics metadata count");
    s.chunkCount = in.u32("statistics chunk count");
    s.messageStartTime = in.u64("statistics start time");
    s.messageEndTime = in.u64("statistics end time");
    s.channelMessageCounts = in.u16u64Map("statistics channel message counts");
    return s;
}

SummaryOffset decodeSummaryOffset(ByteReader& in) {
    SummaryOffset s;
    s.groupOpcode = in.u8("summary offset opcode");
    s.groupStart = in.u64("summary offset start");
    s.groupLength = in.u64("summary offset length");
    return s;
}

Footer decodeFooter(ByteReader& in) {
    Footer f;
    f.summaryStart = in.u64("footer summary start");
    f.summaryOffsetStart = in.u64("footer summary offset start");
    f.summaryCrc = in.u32("footer summary CRC");
    return f;
}

bool nextRecord(ByteReader& in, RawRecord& record) {
    if (in.remaining() == 0) {
        return false;
    }
    record.offset = in.offset();
    record.opcode = in.u8("record opcode");
    const uint64_t length = in.u64("record length");
    if (length > in.remaining()) {
        in.fail(std::string(opcodeName(record.opcode)) + " record at offset " + std::to_string(record.offset) +
                " claims " + std::to_string(length) + " bytes, only " + std::to_string(in.remaining()) + " follow");
    }
    record.length = static_cast<std::size_t>(length);
    record.content = in.take(record.length, "record content");
    return true;
}

ByteReader contentReader(const RawRecord& record, const std::string& context) {
    return ByteReader(record.content, record.length, record.offset + kRecordPrefix,
                      context + ": " + opcodeName(record.opcode) + " record at offset " + std::to_string(record.offset));
}

const char* opcodeName(uint8_t opcode) {
    switch (static_cast<Opcode>(opcode)) {
    case Opcode::Header: return "header";
    case Opcode::Footer: return "footer";
    case Opcode::Schema: return "schema";
    case Opcode::Channel: return "channel";
    case Opcode::Message: return "message";
    case Opcode::Chunk: return "chunk";
    case Opcode::MessageIndex: return "message index";
    case Opcode::ChunkIndex: return "chunk index";
    case Opcode::Attachment: return "attachment";
    case Opcode::AttachmentIndex: return "attachment index";
    case Opcode::Statistics: return "statistics";
    case Opcode::Metadata: return "metadata";
    case Opcode::MetadataIndex: return "metadata index";
    case Opcode::SummaryOffset: return "summary offset";
    case Opcode::DataEnd: return "data end";
    }
    return "unknown";
}

}  // namespace vantrel::mcap::detail
