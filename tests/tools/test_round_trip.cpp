// What the writer records, the reader gives back: every field, in log-time order, with the summary
// describing it, for each compression.
#include "McapTestFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <random>

namespace vantrel::mcap {
namespace {

using testing::readAll;
using testing::record;
using testing::Recorded;
using testing::sampleMessages;
using testing::TempDir;

class RoundTrip : public ::testing::TestWithParam<Compression> {};

TEST_P(RoundTrip, GivesBackEveryMessageAndASummaryThatDescribesThem) {
    TempDir dir;
    const auto messages = sampleMessages(500);
    WriterOptions options;
    options.compression = GetParam();
    options.chunkSize = 4096;  // many chunks
    record(dir.file("r.mcap"), messages, options);

    Reader reader(dir.file("r.mcap"));
    EXPECT_TRUE(reader.indexed());
    EXPECT_EQ(readAll(reader), messages);

    const Statistics& s = reader.statistics();
    EXPECT_EQ(s.messageCount, 500U);
    EXPECT_EQ(s.schemaCount, 3U);
    EXPECT_EQ(s.channelCount, 3U);
    EXPECT_EQ(s.messageStartTime, 1000U);
    EXPECT_EQ(s.messageEndTime, 1000U + 10 * 499);
    EXPECT_EQ(s.chunkCount, reader.chunkIndexes().size());
    EXPECT_GT(s.chunkCount, 10U);
    uint64_t perChannel = 0;
    for (const auto& [id, count] : s.channelMessageCounts) perChannel += count;
    EXPECT_EQ(perChannel, 500U);

    ASSERT_EQ(reader.channels().size(), 3U);
    for (const auto& [id, channel] : reader.channels()) {
        EXPECT_EQ(channel.messageEncoding, "cdr");
        EXPECT_EQ(channel.metadata.at("topic"), channel.topic);
        const Schema* schema = reader.schema(channel.schemaId);
        ASSERT_NE(schema, nullptr);
        EXPECT_EQ(schema->name, "Type::" + channel.topic);
        EXPECT_EQ(schema->encoding, "omgidl");
    }
    for (const ChunkIndex& ci : reader.chunkIndexes()) {
        EXPECT_EQ(ci.compression, compressionName(GetParam()));
    }
}

INSTANTIATE_TEST_SUITE_P(Compressions, RoundTrip, ::testing::Values(Compression::None, Compression::Zstd, Compression::Lz4),
                         [](const auto& info) { return std::string(info.param == Compression::None ? "None"
                                                                   : info.param == Compression::Zstd ? "Zstd" : "Lz4"); });

TEST(RoundTripOrder, MergesOverlappingChunksByLogTimeAndKeepsFileOrderForEqualTimes) {
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
}

TEST(RoundTripFilters, SelectsByInclusiveTimeRangeAndChannelAndStopsWhenAsked) {
    TempDir dir;
    const auto messages = sampleMessages(90);
    WriterOptions options;
    options.chunkSize = 1024;
    record(dir.file("f.mcap"), messages, options);
    Reader reader(dir.file("f.mcap"));

    ReadOptions range;
    range.startTime = messages[10].logTime;
    range.endTime = messages[20].logTime;
    const auto inRange = readAll(reader, range);
    EXPECT_EQ(inRange, std::vector<Recorded>(messages.begin() + 10, messages.begin() + 21));

    ReadOptions beta;
    beta.channelFilter = [](const Channel& c) { return c.topic == "beta"; };
    const auto betas = readAll(reader, beta);
    std::vector<Recorded> expected;
    std::copy_if(messages.begin(), messages.end(), std::back_inserter(expected), [](const auto& m) { return m.topic == "beta"; });
    EXPECT_EQ(betas, expected);

    int seen = 0;
    reader.forEachMessage([&seen](const MessageView&) { return ++seen < 5; });
    EXPECT_EQ(seen, 5);
}

TEST(RoundTripDefinitions, TopicsAddedDuringRecordingAreInTheSummary) {
    TempDir dir;
    {
        Writer writer(dir.file("d.mcap"), WriterOptions{Compression::Zstd, 256});
        const uint16_t first = writer.addChannel(writer.addSchema("A", "omgidl", "a"), "/a", "cdr");
        for (uint32_t i = 0; i < 20; ++i) writer.write(first, i, i, i, "0123456789012345678901234567890123456789", 40);
        // A new topic long after the first chunks were written, and a channel without a schema.
        const uint16_t late = writer.addChannel(writer.addSchema("B", "omgidl", "b"), "/b", "cdr", {{"k", "v"}});
        const uint16_t bare = writer.addChannel(0, "/raw", "application/octet-stream");
        writer.write(late, 0, 100, 100, "late", 4);
        writer.write(bare, 0, 101, 101, "raw", 3);
    }  // the destructor closes

    Reader reader(dir.file("d.mcap"));
    ASSERT_EQ(reader.channels().size(), 3U);
    ASSERT_EQ(reader.schemas().size(), 2U);
    std::vector<std::string> topics;
    reader.forEachMessage([&](const MessageView& m) {
        topics.push_back(m.channel->topic);
        if (m.channel->topic == "/b") {
            EXPECT_EQ(m.schema->name, "B");
            EXPECT_EQ(m.channel->metadata.at("k"), "v");
        }
        if (m.channel->topic == "/raw") {
            EXPECT_EQ(m.schema, nullptr);
        }
        return true;
    });
    ASSERT_EQ(topics.size(), 22U);
    EXPECT_EQ(topics[20], "/b");
    EXPECT_EQ(topics[21], "/raw");
}

TEST(RoundTripEdges, AnEmptyRecordingReadsAsEmpty) {
    TempDir dir;
    Writer(dir.file("e.mcap")).close();
    Reader reader(dir.file("e.mcap"));
    EXPECT_TRUE(readAll(reader).empty());
    EXPECT_EQ(reader.statistics().messageCount, 0U);
    EXPECT_EQ(reader.statistics().chunkCount, 0U);
    EXPECT_EQ(reader.header().profile, "");
    EXPECT_EQ(reader.header().library, "vantrel-mcap");
}

TEST(RoundTripEdges, LargeMessagesAndZeroTimesSurvive) {
    TempDir dir;
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
TEST_P(RoundTrip, ChunksThatDoNotCompressAreStoredAsTheyAre) {
    if (GetParam() == Compression::None) GTEST_SKIP() << "nothing to compress";
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

TEST(WriterMisuse, RefusesUnknownIdsAndUseAfterClose) {
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
}

TEST(WriterMisuse, NamesTheFileItCannotCreate) {
    TempDir dir;
    const std::string path = dir.file("no/such/folder/x.mcap");
    try {
        Writer writer(path);
        FAIL() << "no error";
    } catch (const McapError& e) {
        EXPECT_NE(std::string(e.what()).find(path), std::string::npos) << e.what();
    }
}

}  // namespace
}  // namespace vantrel::mcap
