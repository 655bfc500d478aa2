// The bytes the writer lays down, checked record by record against the file format: what another
// reader relies on when it seeks through the summary and the indexes.
#include "ByteReader.h"
#include "Compression.h"
#include "Crc32.h"
#include "McapTestFiles.h"
#include "RecordCodec.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>

namespace vantrel::mcap {
namespace {

using namespace detail;
using testing::readBytes;
using testing::record;
using testing::sampleMessages;
using testing::TempDir;

constexpr uint8_t op(Opcode o) {
    return static_cast<uint8_t>(o);
}

// The record starting at `offset` of `file`.
RawRecord recordAt(const std::vector<uint8_t>& file, uint64_t offset) {
    EXPECT_LT(offset, file.size());
    ByteReader in(file.data() + offset, file.size() - offset, offset, "file");
    RawRecord r;
    EXPECT_TRUE(nextRecord(in, r));
    return r;
}

class FileLayout : public ::testing::TestWithParam<Compression> {
protected:
    void SetUp() override {
        WriterOptions options;
        options.compression = GetParam();
        options.chunkSize = 2048;
        record(dir.file("x.mcap"), sampleMessages(300), options);
        file = readBytes(dir.file("x.mcap"));
        ASSERT_GT(file.size(), 2 * sizeof kMagic + kFooterRecordSize);
        footerStart = file.size() - sizeof kMagic - kFooterRecordSize;
        ByteReader f(file.data() + footerStart + kRecordPrefix, 20, footerStart + kRecordPrefix, "footer");
        footer = decodeFooter(f);
    }

    TempDir dir;
    std::vector<uint8_t> file;
    std::size_t footerStart = 0;
    Footer footer;
};

TEST_P(FileLayout, MagicHeaderAndFooterFrameTheFile) {
    EXPECT_EQ(std::memcmp(file.data(), kMagic, sizeof kMagic), 0);
    EXPECT_EQ(std::memcmp(file.data() + file.size() - sizeof kMagic, kMagic, sizeof kMagic), 0);
    const RawRecord header = recordAt(file, sizeof kMagic);
    EXPECT_EQ(header.opcode, op(Opcode::Header));
    ByteReader h = contentReader(header, "file");
    EXPECT_EQ(decodeHeader(h).profile, "");
    EXPECT_EQ(file[footerStart], op(Opcode::Footer));
    EXPECT_GT(footer.summaryStart, 0U);
    EXPECT_GT(footer.summaryOffsetStart, footer.summaryStart);
}

TEST_P(FileLayout, CrcsCoverTheDataSectionAndTheSummary) {
    // The data end record closes the data section, right before the summary.
    const uint64_t dataEnd = footer.summaryStart - (kRecordPrefix + 4);
    const RawRecord end = recordAt(file, dataEnd);
    ASSERT_EQ(end.opcode, op(Opcode::DataEnd));
    ByteReader e = contentReader(end, "file");
    EXPECT_EQ(e.u32("crc"), crc32(0, file.data(), dataEnd));

    const std::size_t covered = footerStart + kRecordPrefix + 16 - footer.summaryStart;
    EXPECT_EQ(footer.summaryCrc, crc32(0, file.data() + footer.summaryStart, covered));
}

TEST_P(FileLayout, SummaryOffsetsPointAtGroupsOfOneOpcode) {
    ByteReader offsets(file.data() + footer.summaryOffsetStart, footerStart - footer.summaryOffsetStart,
                       footer.summaryOffsetStart, "summary offsets");
    std::map<uint8_t, uint64_t> groups;
    RawRecord r;
    while (nextRecord(offsets, r)) {
        ASSERT_EQ(r.opcode, op(Opcode::SummaryOffset));
        ByteReader c = contentReader(r, "file");
        const SummaryOffset so = decodeSummaryOffset(c);
        ByteReader group(file.data() + so.groupStart, so.groupLength, so.groupStart, "group");
        RawRecord member;
        int count = 0;
        while (nextRecord(group, member)) {
            EXPECT_EQ(member.opcode, so.groupOpcode) << "at offset " << member.offset;
            ++count;
        }
        EXPECT_GT(count, 0);
        groups[so.groupOpcode] = so.groupStart;
    }
    for (Opcode o : {Opcode::Schema, Opcode::Channel, Opcode::Statistics, Opcode::ChunkIndex}) {
        EXPECT_EQ(groups.count(op(o)), 1U) << opcodeName(op(o));
    }
    // Channels come before the statistics that count messages per channel.
    EXPECT_LT(groups[op(Opcode::Channel)], groups[op(Opcode::Statistics)]);
}

TEST_P(FileLayout, ChunkIndexesAndMessageIndexesPointAtWhatTheyDescribe) {
    Reader reader(dir.file("x.mcap"));
    ASSERT_GT(reader.chunkIndexes().size(), 3U);
    uint64_t messagesSeen = 0;
    for (const ChunkIndex& ci : reader.chunkIndexes()) {
        const RawRecord chunkRecord = recordAt(file, ci.chunkStartOffset);
        ASSERT_EQ(chunkRecord.opcode, op(Opcode::Chunk)) << "chunk index offset " << ci.chunkStartOffset;
        EXPECT_EQ(kRecordPrefix + chunkRecord.length, ci.chunkLength);
        ByteReader c = contentReader(chunkRecord, "file");
        const ChunkRecord chunk = decodeChunk(c);
        EXPECT_EQ(chunk.compression, compressionName(GetParam()));
        EXPECT_EQ(chunk.recordsSize, ci.compressedSize);
        EXPECT_EQ(chunk.uncompressedSize, ci.uncompressedSize);
        const auto records = decompress(chunk.compression, chunk.records, chunk.recordsSize, chunk.uncompressedSize, "chunk");
        EXPECT_EQ(chunk.uncompressedCrc, crc32(0, records.data(), records.size()));

        // Per channel: the messages of the chunk, by offset in its uncompressed records.
        std::map<uint16_t, std::map<uint64_t, uint64_t>> messages;  // channel -> offset -> log time
        uint64_t first = UINT64_MAX, last = 0;
        ByteReader in(records.data(), records.size(), 0, "records");
        RawRecord r;
        while (nextRecord(in, r)) {
            if (r.opcode != op(Opcode::Message)) continue;
            ByteReader m = contentReader(r, "records");
            const MessageRecord message = decodeMessage(m);
            messages[message.channelId][r.offset] = message.logTime;
            first = std::min(first, message.logTime);
            last = std::max(last, message.logTime);
            ++messagesSeen;
        }
        EXPECT_EQ(chunk.messageStartTime, first);
        EXPECT_EQ(chunk.messageEndTime, last);
        EXPECT_EQ(ci.messageStartTime, first);
        EXPECT_EQ(ci.messageEndTime, last);

        // The message indexes follow the chunk, one per channel with messages in it.
        EXPECT_EQ(ci.messageIndexOffsets.size(), messages.size());
        uint64_t expectedAt = ci.chunkStartOffset + ci.chunkLength;
        uint64_t total = 0;
        for (const auto& [channel, at] : ci.messageIndexOffsets) {
            EXPECT_EQ(at, expectedAt);
            const RawRecord indexRecord = recordAt(file, at);
            ASSERT_EQ(indexRecord.opcode, op(Opcode::MessageIndex));
            ByteReader ir = contentReader(indexRecord, "file");
            const auto [indexChannel, entries] = decodeMessageIndex(ir);
            EXPECT_EQ(indexChannel, channel);
            std::map<uint64_t, uint64_t> indexed;
            for (const auto& [logTime, offset] : entries) indexed[offset] = logTime;
            EXPECT_EQ(indexed, messages[channel]) << "channel " << channel;
            expectedAt += kRecordPrefix + indexRecord.length;
            total += kRecordPrefix + indexRecord.length;
        }
        EXPECT_EQ(ci.messageIndexLength, total);
    }
    EXPECT_EQ(messagesSeen, 300U);
}

INSTANTIATE_TEST_SUITE_P(Compressions, FileLayout, ::testing::Values(Compression::None, Compression::Zstd, Compression::Lz4),
                         [](const auto& info) { return std::string(info.param == Compression::None ? "None"
                                                                   : info.param == Compression::Zstd ? "Zstd" : "Lz4"); });

}  // namespace
}  // namespace vantrel::mcap
