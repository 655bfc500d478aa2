#include "vantrel/mcap/Writer.h"

#include "ByteBuffer.h"
#include "Compression.h"
#include "Crc32.h"
#include "OutputFile.h"
#include "RecordCodec.h"

#include <algorithm>
#include <limits>
#include <utility>
#include <vector>

namespace vantrel::mcap {

using detail::ByteBuffer;

namespace {
constexpr uint16_t kMaxId = std::numeric_limits<uint16_t>::max();
}

struct Writer::Impl {
    Impl(const std::string& path, WriterOptions opts) : options(std::move(opts)), file(path), compressor(options.compression) {}

    WriterOptions options;
    detail::OutputFile file;
    detail::Compressor compressor;
    bool closed = false;

    std::vector<Schema> schemas;    // id = index + 1
    std::vector<Channel> channels;  // id = index + 1
    Statistics statistics;
    std::vector<ChunkIndex> chunkIndexes;

    // The open chunk: its uncompressed records, time range and, per channel, (log time, offset) of its
    // messages. `chunkChannels` lists the channels with messages in it, for the message indexes.
    ByteBuffer chunk;
    uint64_t chunkStart = 0;
    uint64_t chunkEnd = 0;
    bool chunkHasMessages = false;
    std::vector<std::vector<std::pair<uint64_t, uint64_t>>> messageIndex;  // by channel id
    std::vector<uint16_t> chunkChannels;

    void requireOpen(const char* what) const {
        if (closed) {
            throw McapError(file.path() + ": " + what + " after close");
        }
    }

    void writeBuffer(const ByteBuffer& b) { file.write(b.data(), b.size()); }

    void flushChunk() {
        if (chunk.empty()) {
            return;
        }
        detail::ChunkRecord record;
        record.messageStartTime = chunkHasMessages ? chunkStart : 0;
        record.messageEndTime = chunkHasMessages ? chunkEnd : 0;
        record.uncompressedSize = chunk.size();
        record.uncompressedCrc = detail::crc32(0, chunk.data(), chunk.size());
        const detail::Compressor::Packed packed = compressor.pack(chunk.data(), chunk.size());
        record.compression = packed.compression;

        ChunkIndex index;
        index.messageStartTime = record.messageStartTime;
        index.messageEndTime = record.messageEndTime;
        index.chunkStartOffset = file.position();
        index.compression = record.compression;
        index.compressedSize = packed.size;
        index.uncompressedSize = record.uncompressedSize;

        ByteBuffer prefix;
        detail::encodeChunkPrefix(prefix, record, packed.size);
        writeBuffer(prefix);
        file.write(packed.data, packed.size);
        index.chunkLength = file.position() - index.chunkStartOffset;

        // One message index per channel with messages in the chunk, in channel order.
        std::sort(chunkChannels.begin(), chunkChannels.end());
        const uint64_t indexStart = file.position();
        ByteBuffer indexes;
        for (uint16_t id : chunkChannels) {
            index.messageIndexOffsets[id] = indexStart + indexes.size();
            detail::encodeMessageIndex(indexes, id, messageIndex[id]);
            messageIndex[id].clear();
        }
        writeBuffer(indexes);
        index.messageIndexLength = indexes.size();

        chunkIndexes.push_back(std::move(index));
        ++statistics.chunkCount;
        chunk.clear();
        chunkChannels.clear();
        chunkHasMessages = false;
    }

    template <typename Group, typename Encode>
    void writeGroup(ByteBuffer& summary, uint64_t summaryStart, Opcode opcode, const Group& group, Encode encode,
                    std::vector<detail::SummaryOffset>& offsets) {
        if (group.empty()) {
            return;
        }
        const std::size_t start = summary.size();
        for (const auto& item : group) {
            encode(summary, item);
        }
        offsets.push_back({static_cast<uint8_t>(opcode), summaryStart + start, summary.size() - start});
    }

    void finish() {
        flushChunk();

        ByteBuffer end;
        detail::encodeDataEnd(end, file.crc());
        writeBuffer(end);

        // The summary: records grouped by opcode, then one summary offset per group, then the footer;
        // the summary CRC runs from the first summary record to the footer's summary_offset_start.
        const uint64_t summaryStart = file.position();
        ByteBuffer summary;
        std::vector<detail::SummaryOffset> offsets;
        writeGroup(summary, summaryStart, Opcode::Schema, schemas, detail::encodeSchema, offsets);
        writeGroup(summary, summaryStart, Opcode::Channel, channels, detail::encodeChannel, offsets);
        writeGroup(summary, summaryStart, Opcode::Statistics, std::vector<Statistics>{statistics},
                   detail::encodeStatistics, offsets);
        writeGroup(summary, summaryStart, Opcode::ChunkIndex, chunkIndexes, detail::encodeChunkIndex, offsets);
        const uint64_t summaryOffsetStart = summaryStart + summary.size();
        for (const auto& offset : offsets) {
            detail::encodeSummaryOffset(summary, offset);
        }
        detail::encodeFooterPrefix(summary, summaryStart, summaryOffsetStart);
        const uint32_t summaryCrc = detail::crc32(0, summary.data(), summary.size());
        summary.u32(summaryCrc);
        summary.raw(kMagic, sizeof kMagic);
        writeBuffer(summary);
        file.close();
    }
};

Writer::Writer(const std::string& path, WriterOptions options) {
    if (options.chunkSize == 0) {
        options.chunkSize = 1;  // a chunk per message
    }
    impl_ = std::make_unique<Impl>(path, std::move(options));
    impl_->chunk.reserve(std::min<std::size_t>(impl_->options.chunkSize, 64 << 20) + 4096);
    ByteBuffer start;
    start.raw(kMagic, sizeof kMagic);
    detail::encodeHeader(start, Header{"", impl_->options.library});
    impl_->writeBuffer(start);
}

Writer::~Writer() {
    try {
        close();
    } catch (...) {  // NOLINT(bugprone-empty-catch): a destructor must not throw
    }
}

uint16_t Writer::addSchema(const std::string& name, const std::string& encoding, const std::string& data) {
    Impl& w = *impl_;
    w.requireOpen("addSchema");
    if (w.schemas.size() >= kMaxId) {
        throw McapError(w.file.path() + ": more than " + std::to_string(kMaxId) + " schemas");
    }
    Schema s{static_cast<uint16_t>(w.schemas.size() + 1), name, encoding, data};
    // Into the open chunk, so that the chunks alone (read from the start) define everything they use.
    detail::encodeSchema(w.chunk, s);
    w.schemas.push_back(std::move(s));
    w.statistics.schemaCount = static_cast<uint16_t>(w.schemas.size());
    return w.schemas.back().id;
}

uint16_t Writer::addChannel(uint16_t schemaId, const std::string& topic, const std::string& messageEncoding,
                            const std::map<std::string, std::string>& metadata) {
    Impl& w = *impl_;
    w.requireOpen("addChannel");
    if (schemaId > w.schemas.size()) {
        throw McapError(w.file.path() + ": channel " + topic + " refers to schema " + std::to_string(schemaId) +
                        ", which was not added");
    }
    if (w.channels.size() >= kMaxId) {
        throw McapError(w.file.path() + ": more than " + std::to_string(kMaxId) + " channels");
    }
    Channel c{static_cast<uint16_t>(w.channels.size() + 1), schemaId, topic, messageEncoding, metadata};
    detail::encodeChannel(w.chunk, c);
    w.channels.push_back(std::move(c));
    w.messageIndex.resize(w.channels.size() + 1);
    w.statistics.channelCount = static_cast<uint32_t>(w.channels.size());
    return w.channels.back().id;
}

void Writer::write(uint16_t channelId, uint32_t sequence, uint64_t logTime, uint64_t publishTime, const void* data,
                   std::size_t size) {
    Impl& w = *impl_;
    w.requireOpen("write");
    if (channelId == 0 || channelId > w.channels.size()) {
        throw McapError(w.file.path() + ": message on channel " + std::to_string(channelId) + ", which was not added");
    }
    auto& entries = w.messageIndex[channelId];
    if (entries.empty()) {
        w.chunkChannels.push_back(channelId);
    }
    entries.emplace_back(logTime, w.chunk.size());
    detail::encodeMessage(w.chunk, channelId, sequence, logTime, publishTime, data, size);

    if (!w.chunkHasMessages) {
        w.chunkStart = w.chunkEnd = logTime;
        w.chunkHasMessages = true;
    } else {
        w.chunkStart = std::min(w.chunkStart, logTime);
        w.chunkEnd = std::max(w.chunkEnd, logTime);
    }
    Statistics& s = w.statistics;
    if (s.messageCount == 0) {
        s.messageStartTime = s.messageEndTime = logTime;
    } else {
        s.messageStartTime = std::min(s.messageStartTime, logTime);
        s.messageEndTime = std::max(s.messageEndTime, logTime);
    }
    ++s.messageCount;
    ++s.channelMessageCounts[channelId];

    if (w.chunk.size() >= w.options.chunkSize) {
        w.flushChunk();
    }
}

void Writer::flush(bool sync) {
    Impl& w = *impl_;
    w.requireOpen("flush");
    w.flushChunk();
    w.file.flush(sync);
}

void Writer::close() {
    Impl& w = *impl_;
    if (w.closed) {
        return;
    }
    w.closed = true;  // also after a failure: a half-written summary is not retried
    w.finish();
}

const std::string& Writer::path() const {
    return impl_->file.path();
}

uint64_t Writer::size() const {
    return impl_->file.position() + impl_->chunk.size();
}

uint64_t Writer::messageCount() const {
    return impl_->statistics.messageCount;
}

}  // namespace vantrel::mcap
