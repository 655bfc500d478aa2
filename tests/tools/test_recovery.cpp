// A recording whose writer died: cut at every byte after its last flushes, zero-filled, or with a
// damaged chunk, it is recovered to a complete file holding exactly the messages of its whole chunks.
#include "McapTestFiles.h"
#include "vantrel/mcap/Recovery.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>

namespace vantrel::mcap {
namespace {

using namespace testing;

constexpr std::size_t kMessages = 60;
constexpr std::size_t kPerFlush = 15;

// The bytes of a file whose writer flushed after every kPerFlush messages and then died (the summary is
// never written), and the file sizes (and message counts) at each flush.
struct Crashed {
    std::vector<uint8_t> bytes;
    std::vector<std::pair<std::size_t, std::size_t>> flushes;  // (file size, messages written)
};

Crashed crashAfterFlushes(const TempDir& dir, const std::vector<Recorded>& messages, Compression compression) {
    const std::string path = dir.file("live.mcap");
    Crashed crashed;
    record(path, messages, WriterOptions{compression, 1 << 20, "test"}, [&](Writer& writer, std::size_t written) {
        if (written % kPerFlush == 0) {
            writer.flush(written == messages.size());
            crashed.flushes.emplace_back(readBytes(path).size(), written);
        }
        if (written == messages.size()) crashed.bytes = readBytes(path);  // what a kill leaves now
    });
    return crashed;
}

// The messages a recovery of `bytes` keeps, read back through the recovered file's index.
std::vector<Recorded> recovered(const TempDir& dir, const std::vector<uint8_t>& bytes, Salvage& salvage) {
    const std::string broken = dir.file("broken.mcap"), fixed = dir.file("fixed.mcap");
    writeBytes(broken, bytes);
    salvage = recover(broken, fixed);
    const Reader reader(fixed);
    EXPECT_TRUE(reader.indexed());
    EXPECT_EQ(reader.statistics().messageCount, salvage.messages);
    return readAll(reader);
}

class Recovery : public ::testing::TestWithParam<Compression> {};

TEST_P(Recovery, KeepsEveryWholeChunkWhereverTheFileIsCut) {
    const TempDir dir;
    const auto messages = sampleMessages(kMessages);
    const Crashed crashed = crashAfterFlushes(dir, messages, GetParam());
    ASSERT_EQ(crashed.flushes.size(), kMessages / kPerFlush);
    writeBytes(dir.file("killed.mcap"), crashed.bytes);
    EXPECT_THROW(Reader{dir.file("killed.mcap")}, McapError);  // no summary, no footer

    std::size_t flush = 0;  // the last flush at or before the cut
    std::size_t previous = 0;
    const std::size_t firstFlush = crashed.flushes.front().first;
    // Every byte around each flush (where chunks and their indexes end), every 23rd between them.
    std::set<std::size_t> cuts;
    for (std::size_t cut = firstFlush; cut <= crashed.bytes.size(); cut += 23) cuts.insert(cut);
    for (const auto& [size, count] : crashed.flushes)
        for (std::size_t cut = size > 120 ? size - 120 : 0; cut <= std::min(size + 100, crashed.bytes.size()); ++cut)
            if (cut >= firstFlush) cuts.insert(cut);
    for (const std::size_t cut : cuts) {
        while (flush + 1 < crashed.flushes.size() && crashed.flushes[flush + 1].first <= cut) ++flush;
        Salvage s;
        const auto got = recovered(dir, {crashed.bytes.begin(), crashed.bytes.begin() + static_cast<long>(cut)}, s);
        const std::size_t atFlush = crashed.flushes[flush].second;
        const std::size_t atNext = flush + 1 < crashed.flushes.size() ? crashed.flushes[flush + 1].second : atFlush;
        ASSERT_GE(got.size(), atFlush) << "cut at " << cut;
        ASSERT_LE(got.size(), atNext) << "cut at " << cut;
        ASSERT_GE(got.size(), previous) << "cut at " << cut;  // a longer file never yields less
        ASSERT_TRUE(std::equal(got.begin(), got.end(), messages.begin())) << "cut at " << cut;
        ASSERT_EQ(s.keptBytes == cut, s.droppedReason.empty()) << "cut at " << cut << ": " << s.droppedReason;
        if (cut == crashed.flushes[flush].first) {
            ASSERT_EQ(got.size(), atFlush) << "cut at " << cut;
            ASSERT_TRUE(s.droppedReason.empty()) << s.droppedReason;
        }
        previous = got.size();
    }
    EXPECT_EQ(previous, kMessages);
}

INSTANTIATE_TEST_SUITE_P(Compressions, Recovery, ::testing::Values(Compression::None, Compression::Zstd, Compression::Lz4),
                         [](const auto& info) { return std::string(compressionName(info.param)).empty() ? "none" : compressionName(info.param); });

TEST(RecoveryDamage, StopsAtAZeroFilledTailOrADamagedChunkAndSaysWhyKeepsClosedFilesAndRefusesHeaderless) {
    const TempDir dir;
    const auto messages = sampleMessages(kMessages);
    const Crashed crashed = crashAfterFlushes(dir, messages, Compression::Zstd);
    const auto [secondEnd, secondCount] = crashed.flushes[1];

    // After a power loss the end of a file that was never written reads as zeros.
    std::vector<uint8_t> zeros(crashed.bytes.begin(), crashed.bytes.begin() + static_cast<long>(secondEnd));
    zeros.resize(secondEnd + 4096, 0);
    Salvage s;
    EXPECT_EQ(recovered(dir, zeros, s).size(), secondCount);
    EXPECT_EQ(s.keptBytes, secondEnd);
    EXPECT_NE(s.droppedReason.find("never written"), std::string::npos) << s.droppedReason;

    // A damaged third chunk: the two before it are kept, nothing after it.
    std::vector<uint8_t> damaged = crashed.bytes;
    for (std::size_t i = secondEnd + 56; i < secondEnd + 64; ++i) damaged[i] ^= 0x5A;
    const auto got = recovered(dir, damaged, s);
    EXPECT_EQ(got.size(), secondCount);
    EXPECT_TRUE(std::equal(got.begin(), got.end(), messages.begin()));
    EXPECT_EQ(s.keptBytes, secondEnd);
    EXPECT_FALSE(s.droppedReason.empty());

    // A closed file is kept whole; a file without a header is refused.
    record(dir.file("closed.mcap"), messages);
    const Salvage closed = inspect(dir.file("closed.mcap"));
    EXPECT_TRUE(closed.closed);
    EXPECT_EQ(closed.messages, kMessages);
    writeBytes(dir.file("short.mcap"), {0x89, 'M', 'C', 'A', 'P', 0x30, '\r', '\n', 0x01, 0x10});
    EXPECT_THROW(recover(dir.file("short.mcap"), dir.file("out.mcap")), McapError);
    EXPECT_FALSE(std::filesystem::exists(dir.file("out.mcap")));  // nothing half-made
}

}  // namespace
}  // namespace vantrel::mcap
