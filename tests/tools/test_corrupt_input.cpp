// Truncated, corrupted and hand-made files: the reader reports what is wrong as McapError and never reads
// outside what it was given (the sanitizer builds run these too).
#include "ByteBuffer.h"
#include "ByteReader.h"
#include "Crc32.h"
#include "McapTestFiles.h"
#include "RecordCodec.h"

#include <gtest/gtest.h>

namespace vantrel::mcap {
namespace {

using namespace detail;
using namespace testing;

// The message of the McapError that opening and reading everything throws; empty when none is thrown.
// Any other exception fails the test.
std::string readError(const std::string& path) {
    try {
        Reader reader(path);
        readAll(reader);
    } catch (const McapError& e) {
        return e.what();
    } catch (const std::exception& e) {
        ADD_FAILURE() << "not an McapError: " << e.what();
        return e.what();
    }
    return "";
}

Footer footerOf(const std::vector<uint8_t>& file) {
    const std::size_t at = file.size() - sizeof kMagic - kFooterRecordSize + kRecordPrefix;
    ByteReader in(file.data() + at, 20, at, "footer");
    return decodeFooter(in);
}

void put(std::vector<uint8_t>& file, std::size_t at, uint64_t v, int bytes) {
    for (int i = 0; i < bytes; ++i) file[at + i] = static_cast<uint8_t>(v >> (8 * i));
}

// The data section of `file` with a footer that announces no summary.
std::vector<uint8_t> withoutSummary(const std::vector<uint8_t>& file) {
    std::vector<uint8_t> out(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(footerOf(file).summaryStart));
    ByteBuffer tail;
    encodeFooterPrefix(tail, 0, 0);
    tail.u32(0);
    tail.raw(kMagic, sizeof kMagic);
    out.insert(out.end(), tail.data(), tail.data() + tail.size());
    return out;
}

// A file written record by record: messages outside chunks, no summary.
std::vector<uint8_t> handMade(const std::function<void(ByteBuffer&)>& records) {
    ByteBuffer b;
    b.raw(kMagic, sizeof kMagic);
    encodeHeader(b, Header{"", "by hand"});
    records(b);
    encodeDataEnd(b, 0);
    encodeFooterPrefix(b, 0, 0);
    b.u32(0);
    b.raw(kMagic, sizeof kMagic);
    return std::vector<uint8_t>(b.data(), b.data() + b.size());
}

class CorruptInput : public ::testing::Test {
protected:
    void SetUp() override {
        WriterOptions options;
        options.chunkSize = 400;
        record(dir.file("good.mcap"), sampleMessages(24), options);
        good = readBytes(dir.file("good.mcap"));
        path = dir.file("bad.mcap");
    }

    TempDir dir;
    std::vector<uint8_t> good;
    std::string path;
};

TEST_F(CorruptInput, EveryTruncationIsReported) {
    for (std::size_t size = 0; size < good.size(); ++size) {
        writeBytes(path, std::vector<uint8_t>(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size)));
        EXPECT_FALSE(readError(path).empty()) << "cut to " << size << " bytes";
    }
}

TEST_F(CorruptInput, EveryChangedByteIsReportedOrChangesNothing) {
    // The chunks are checked against their index, their records by CRC and decompression, the summary
    // and footer by the summary CRC. What a reader through the index does not use (message indexes, the
    // data end CRC, the header's strings) may change unnoticed, and so may a bit a decompressor ignores:
    // then the messages read are still exactly those recorded. Nothing changed passes as other data.
    const std::vector<Recorded> recorded = sampleMessages(24);
    for (uint8_t flip : {uint8_t(0x01), uint8_t(0xFF)}) {
        for (std::size_t at = 0; at < good.size(); ++at) {
            std::vector<uint8_t> bad = good;
            bad[at] ^= flip;
            writeBytes(path, bad);
            std::vector<Recorded> read;
            try {
                Reader reader(path);
                read = readAll(reader);
            } catch (const McapError&) {
                continue;
            }
            EXPECT_EQ(read, recorded) << "byte " << at << " ^ " << int(flip) << " gave other messages";
        }
    }
}

TEST_F(CorruptInput, ErrorsSayWhatIsWrong) {
    // A chunk whose records do not match its CRC (uncompressed, so that only the CRC can tell).
    record(dir.file("plain.mcap"), sampleMessages(10), WriterOptions{Compression::None, 1 << 20});
    std::vector<uint8_t> badCrc = readBytes(dir.file("plain.mcap"));
    const ChunkIndex plain = Reader(dir.file("plain.mcap")).chunkIndexes().at(0);
    badCrc[plain.chunkStartOffset + plain.chunkLength - 3] ^= 0x10;

    // Chunk indexes that point elsewhere, in a summary whose CRC is made right again.
    const Footer f = footerOf(good);
    ByteReader summary(good.data() + f.summaryStart, f.summaryOffsetStart - f.summaryStart, f.summaryStart, "summary");
    RawRecord r;
    while (nextRecord(summary, r) && r.opcode != static_cast<uint8_t>(Opcode::ChunkIndex)) {
    }
    ASSERT_EQ(r.opcode, static_cast<uint8_t>(Opcode::ChunkIndex));
    const std::size_t chunkOffsetField = r.offset + kRecordPrefix + 16;  // after the start and end times
    const ChunkIndex first = Reader(dir.file("good.mcap")).chunkIndexes().at(0);
    const auto indexing = [&](uint64_t offset, uint64_t length) {
        std::vector<uint8_t> bad = good;
        put(bad, chunkOffsetField, offset, 8);
        put(bad, chunkOffsetField + 8, length, 8);
        const std::size_t footerStart = bad.size() - sizeof kMagic - kFooterRecordSize;
        put(bad, footerStart + kRecordPrefix + 16,
            crc32(0, bad.data() + f.summaryStart, footerStart + kRecordPrefix + 16 - f.summaryStart), 4);
        return bad;
    };
    std::vector<uint8_t> badSummary = good;
    badSummary[f.summaryStart + 12] ^= 0x01;
    // Without the summary's CRC, a damaged chunk is still caught by its own.
    std::vector<uint8_t> unindexed = withoutSummary(good);
    const ChunkIndex second = Reader(dir.file("good.mcap")).chunkIndexes().at(1);
    unindexed[second.chunkStartOffset + second.chunkLength - 2] ^= 0x40;

    const struct {
        std::vector<uint8_t> bytes;
        std::vector<std::string> parts;  // of the error message
    } cases[] = {
        {{}, {"not a recording"}},
        {std::vector<uint8_t>(100, 'a'), {"not a recording"}},
        {std::vector<uint8_t>(good.begin(), good.end() - 1), {"not closed"}},
        {badCrc, {"CRC", "chunk at offset " + std::to_string(plain.chunkStartOffset)}},
        {badSummary, {"summary section"}},
        {indexing(first.chunkStartOffset + 1, first.chunkLength), {"no chunk record"}},  // into the chunk
        {indexing(f.summaryStart - 10, first.chunkLength), {"outside the data section"}},
        {indexing(first.chunkStartOffset, first.chunkLength + 1), {}},  // a length the record does not have
        {unindexed, {}},
        {handMade([](ByteBuffer& b) { encodeMessage(b, 4, 1, 300, 299, "one", 3); }), {"channel 4"}},
        {handMade([](ByteBuffer& b) { encodeChannel(b, Channel{4, 9, "/t", "cdr", {}}); }), {"schema 9"}},
        {handMade([](ByteBuffer& b) {
             b.u8(static_cast<uint8_t>(Opcode::Schema));
             b.u64(1000);  // past the end of the data section
         }),
         {"claims 1000 bytes"}},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        writeBytes(path, cases[i].bytes);
        const std::string error = readError(path);
        EXPECT_FALSE(error.empty()) << "case " << i;
        for (const std::string& part : cases[i].parts) EXPECT_NE(error.find(part), std::string::npos) << "case " << i << ": " << error;
    }
    EXPECT_NE(readError(dir.file("missing.mcap")).find("missing.mcap"), std::string::npos);
    EXPECT_NE(readError(dir.file("")).find("not a regular file"), std::string::npos);
}

TEST_F(CorruptInput, FilesWithoutSummaryAreReadFromTheStartMessagesOutsideChunksInFileOrder) {
    writeBytes(path, withoutSummary(good));
    Reader reader(path);
    EXPECT_FALSE(reader.indexed());
    EXPECT_EQ(readAll(reader), sampleMessages(24));
    EXPECT_EQ(reader.statistics().messageCount, 24U);
    EXPECT_EQ(reader.statistics().messageStartTime, 1000U);
    EXPECT_EQ(reader.channels().size(), 3U);
    EXPECT_EQ(reader.schemas().size(), 3U);
    EXPECT_GT(reader.statistics().chunkCount, 1U);
    ReadOptions gamma;
    gamma.channelFilter = [](const Channel& c) { return c.topic == "gamma"; };
    EXPECT_EQ(readAll(reader, gamma).size(), 8U);

    writeBytes(dir.file("hand.mcap"), handMade([](ByteBuffer& b) {
                   encodeSchema(b, Schema{1, "S", "omgidl", "struct S {};"});
                   encodeChannel(b, Channel{4, 1, "/t", "cdr", {}});
                   encodeMessage(b, 4, 1, 300, 299, "one", 3);
                   encodeMessage(b, 4, 2, 100, 99, "two", 3);
               }));
    Reader handMadeReader(dir.file("hand.mcap"));
    EXPECT_EQ(handMadeReader.header().library, "by hand");
    const std::vector<Recorded> expected = {{"/t", 1, 300, 299, "one"}, {"/t", 2, 100, 99, "two"}};
    EXPECT_EQ(readAll(handMadeReader), expected);
    EXPECT_EQ(handMadeReader.statistics().messageStartTime, 100U);
    EXPECT_EQ(handMadeReader.statistics().messageEndTime, 300U);
}

}  // namespace
}  // namespace vantrel::mcap
