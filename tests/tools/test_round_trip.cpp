// What the reader adds to what the writer records: log-time order across overlapping chunks, filters,
// edges, chunks stored uncompressed, and misuse of the writer. That a recording holds what was written,
// with a summary describing it, is checked by an independent reader (mcap-check/check.mjs).
#include "McapTestFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <random>

namespace vantrel::mcap {
namespace {

using namespace testing;

TEST(RoundTripRead, MergesOverlappingChunksByLogTimeKeepsFileOrderForEqualTimesAndFiltersByTimeAndChannel) {
    TempDir dir;
    // Times go back and forth across chunk borders; the three at 500 keep the order they were written in.
    std::vector<Recorded> written;
    const uint64_t times[] = {900, 100, 500, 800, 200, 500, 700, 300, 500, 600, 400, 1000};
    for (uint32_t i = 0; i < 12; ++i) {
        written.push_back({i % 2 ? "odd" : "even", i, times[i], times[i], std::string(60, static_cast<char>('a' + i))});
    }
    WriterOptions options;
    options.chunkSize = 150;  // two messages per chunk
    record(dir.file("o.mcap"), written, options);

    Reader reader(dir.file("o.mcap"));
    ASSERT_GT(reader.chunkIndexes().size(), 4U);
    std::vector<Recorded> expected = written;
    std::stable_sort(expected.begin(), expected.end(), [](const auto& a, const auto& b) { return a.logTime < b.logTime; });
    EXPECT_EQ(readAll(reader), expected);

    // Inclusive time ranges, channels, and a stop when the callback asks.
    const auto messages = sampleMessages(90);
    options.chunkSize = 1024;
    record(dir.file("f.mcap"), messages, options);
    Reader filtered(dir.file("f.mcap"));
    ReadOptions range;
    range.startTime = messages[10].logTime;
    range.endTime = messages[20].logTime;
    EXPECT_EQ(readAll(filtered, range), std::vector<Recorded>(messages.begin() + 10, messages.begin() + 21));
    ReadOptions beta;
    beta.channelFilter = [](const Channel& c) { return c.topic == "beta"; };
    std::vector<Recorded> betas;
    std::copy_if(messages.begin(), messages.end(), std::back_inserter(betas), [](const auto& m) { return m.topic == "beta"; });
    EXPECT_EQ(readAll(filtered, beta), betas);
    int seen = 0;
    filtered.forEachMessage([&seen](const MessageView&) { return ++seen < 5; });
    EXPECT_EQ(seen, 5);
}

TEST(RoundTripEdges, EmptyRecordingsLargeMessagesAndZeroTimesSurvive) {
    TempDir dir;
    Writer(dir.file("e.mcap")).close();
    Reader empty(dir.file("e.mcap"));
    EXPECT_TRUE(readAll(empty).empty());
    EXPECT_EQ(empty.statistics().messageCount, 0U);
    EXPECT_EQ(empty.statistics().chunkCount, 0U);

    std::vector<Recorded> messages = {{"big", 1, 0, 0, std::string(3 << 20, 'q')},
                                      {"big", 2, 0, 0, ""},
                                      {"big", 3, UINT64_MAX, UINT64_MAX, "last"}};
    record(dir.file("l.mcap"), messages, WriterOptions{Compression::Lz4, 1024});
    Reader reader(dir.file("l.mcap"));
    EXPECT_EQ(readAll(reader), messages);
    EXPECT_EQ(reader.statistics().messageEndTime, UINT64_MAX);
}

// Noise does not compress: such chunks are stored as they are, and the writer stops trying for a while
// (every 16th chunk tries again); text around them still compresses. Everything reads back.
class Compressed : public ::testing::TestWithParam<Compression> {};

TEST_P(Compressed, ChunksThatDoNotCompressAreStoredAsTheyAre) {
    TempDir dir;
    std::mt19937_64 random(7);
    std::vector<Recorded> messages;
    for (uint32_t i = 0; i < 40; ++i) {
        std::string noise(64 * 1024, '\0');
        for (char& c : noise) c = static_cast<char>(random());
        messages.push_back({"noise", i, 10 + 2 * uint64_t(i), 0, noise});
    }
    // After the noise: text, which compresses once the writer tries again.
    for (uint32_t i = 0; i < 40; ++i) messages.push_back({"text", i, 100 + uint64_t(i), 0, std::string(64 * 1024, 'a' + i % 26)});
    record(dir.file("n.mcap"), messages, WriterOptions{GetParam(), 64 * 1024});
    Reader reader(dir.file("n.mcap"));
    EXPECT_EQ(readAll(reader), messages);
    std::size_t stored = 0, compressed = 0;
    for (const ChunkIndex& ci : reader.chunkIndexes()) {
        if (ci.compression.empty()) {
            ++stored;
            EXPECT_EQ(ci.compressedSize, ci.uncompressedSize);
        } else {
            ++compressed;
            EXPECT_EQ(ci.compression, compressionName(GetParam()));
            EXPECT_LT(ci.compressedSize, ci.uncompressedSize / 2);
        }
    }
    EXPECT_GE(stored, 40U);       // every noise chunk
    EXPECT_GE(compressed, 20U);   // most text chunks
}

INSTANTIATE_TEST_SUITE_P(Compressions, Compressed, ::testing::Values(Compression::Zstd, Compression::Lz4),
                         [](const auto& info) { return std::string(compressionName(info.param)); });

TEST(WriterMisuse, RefusesUnknownIdsUseAfterCloseAndNamesTheFileItCannotCreate) {
    TempDir dir;
    Writer writer(dir.file("m.mcap"));
    EXPECT_THROW(writer.addChannel(7, "/x", "cdr"), McapError);
    EXPECT_THROW(writer.write(1, 0, 0, 0, "x", 1), McapError);
    const uint16_t c = writer.addChannel(0, "/x", "cdr");
    EXPECT_THROW(writer.write(static_cast<uint16_t>(c + 1), 0, 0, 0, "x", 1), McapError);
    writer.write(c, 0, 0, 0, "x", 1);
    writer.close();
    writer.close();  // a second close does nothing
    EXPECT_THROW(writer.write(c, 0, 0, 0, "x", 1), McapError);
    EXPECT_THROW(writer.addSchema("s", "omgidl", ""), McapError);
    EXPECT_EQ(Reader(dir.file("m.mcap")).statistics().messageCount, 1U);

    const std::string path = dir.file("no/such/folder/x.mcap");
    try {
        Writer refused(path);
        ADD_FAILURE() << "no error";
    } catch (const McapError& e) {
        EXPECT_NE(std::string(e.what()).find(path), std::string::npos) << e.what();
    }
}

}  // namespace
}  // namespace vantrel::mcap
