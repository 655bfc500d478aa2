#include "vantrel/mcap/Reader.h"

#include "ChunkLoader.h"
#include "Crc32.h"
#include "DataWalk.h"
#include "InputFile.h"
#include "RecordCodec.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>

namespace vantrel::mcap {

using detail::ByteReader;
using detail::kFooterRecordSize;
using detail::kRecordPrefix;

namespace {

std::string at(uint64_t offset) {
    return " at offset " + std::to_string(offset);
}

// Schemas and channels, as a summary lists them or as a scan meets them.
struct Definitions {
    std::map<uint16_t, Schema> schemas;
    std::map<uint16_t, Channel> channels;
};

bool inRange(const ReadOptions& o, uint64_t logTime) {
    return logTime >= o.startTime && logTime <= o.endTime;
}

}  // namespace

struct Reader::Impl {
    explicit Impl(const std::string& path) : file(path) {}

    detail::InputFile file;
    Header header;
    Footer footer;
    uint64_t dataStart = 0;  // after the header record
    uint64_t dataEnd = 0;    // the summary's start, or the footer's when there is none
    bool indexed = false;
    Definitions definitions;
    Statistics statistics;
    std::vector<ChunkIndex> chunkIndexes;

    [[noreturn]] void fail(const std::string& what) const { throw McapError(file.path() + ": " + what); }

    void readEnds() {
        const uint64_t size = file.size();
        if (size < sizeof kMagic) {
            fail("not a recording: " + std::to_string(size) + " bytes, too short for the magic");
        }
        uint8_t magic[sizeof kMagic];
        file.read(0, magic, sizeof magic, "leading magic");
        if (std::memcmp(magic, kMagic, sizeof kMagic) != 0) {
            fail("not a recording: the file does not start with the magic bytes");
        }
        if (size < 2 * sizeof kMagic + kRecordPrefix + kFooterRecordSize) {
            fail("truncated: " + std::to_string(size) + " bytes cannot hold a header, a footer and the magic");
        }
        file.read(size - sizeof kMagic, magic, sizeof magic, "trailing magic");
        if (std::memcmp(magic, kMagic, sizeof kMagic) != 0) {
            fail("truncated or not closed: no magic bytes at the end of the file");
        }

        const uint64_t footerStart = size - sizeof kMagic - kFooterRecordSize;
        dataStart = detail::readHeader(file, footerStart, header);

        uint8_t footerBytes[kFooterRecordSize];
        file.read(footerStart, footerBytes, sizeof footerBytes, "footer record");
        ByteReader f(footerBytes, sizeof footerBytes, footerStart, file.path() + ": footer record");
        if (f.u8("footer opcode") != static_cast<uint8_t>(Opcode::Footer) || f.u64("footer length") != kFooterRecordSize - kRecordPrefix) {
            fail("no footer record" + at(footerStart) + " before the trailing magic");
        }
        footer = detail::decodeFooter(f);
        if (footer.summaryStart != 0 && (footer.summaryStart < dataStart || footer.summaryStart > footerStart)) {
            fail("footer: summary start " + std::to_string(footer.summaryStart) + " lies outside the file's records (" +
                 std::to_string(dataStart) + " to " + std::to_string(footerStart) + ")");
        }
        if (footer.summaryOffsetStart != 0 &&
            (footer.summaryOffsetStart < footer.summaryStart || footer.summaryOffsetStart > footerStart)) {
            fail("footer: summary offset start " + std::to_string(footer.summaryOffsetStart) +
                 " lies outside the summary section");
        }
        dataEnd = footer.summaryStart != 0 ? footer.summaryStart : footerStart;
    }

    void readSummary() {
        const uint64_t footerStart = file.size() - sizeof kMagic - kFooterRecordSize;
        // The summary CRC covers the summary and the footer up to its own field.
        const uint64_t crcEnd = footerStart + kRecordPrefix + 8 + 8;
        const auto bytes = file.read(footer.summaryStart, crcEnd - footer.summaryStart, "summary section");
        if (footer.summaryCrc != 0) {
            const uint32_t crc = detail::crc32(0, bytes.data(), bytes.size());
            if (crc != footer.summaryCrc) {
                fail("summary section" + at(footer.summaryStart) + " is corrupt: its CRC is " + detail::crcText(crc) +
                     ", the footer states " + detail::crcText(footer.summaryCrc));
            }
        }
        const std::size_t summarySize = static_cast<std::size_t>(footerStart - footer.summaryStart);
        ByteReader in(bytes.data(), summarySize, footer.summaryStart, file.path() + ": summary section");
        detail::RawRecord r;
        bool haveStatistics = false;
        while (detail::nextRecord(in, r)) {
            ByteReader c = detail::contentReader(r, file.path());
            switch (static_cast<Opcode>(r.opcode)) {
            case Opcode::Schema: {
                Schema s = detail::decodeSchema(c);
                if (s.id != 0) {
                    definitions.schemas.emplace(s.id, std::move(s));
                }
                break;
            }
            case Opcode::Channel: {
                Channel ch = detail::decodeChannel(c);
                definitions.channels.emplace(ch.id, std::move(ch));
                break;
            }
            case Opcode::ChunkIndex:
                chunkIndexes.push_back(detail::decodeChunkIndex(c));
                checkChunkRange(chunkIndexes.back(), r.offset);
                break;
            case Opcode::Statistics:
                statistics = detail::decodeStatistics(c);
                haveStatistics = true;
                break;
            default:
                break;  // summary offsets, attachment and metadata indexes: not needed here
            }
        }
        for (const auto& [id, ch] : definitions.channels) {
            if (ch.schemaId != 0 && definitions.schemas.count(ch.schemaId) == 0) {
                fail("summary: channel " + std::to_string(id) + " (" + ch.topic + ") refers to schema " +
                     std::to_string(ch.schemaId) + ", which the summary does not list");
            }
        }
        indexed = !chunkIndexes.empty();
        if (!haveStatistics) {
            countMessages();
        }
    }

    void checkChunkRange(const ChunkIndex& ci, uint64_t indexOffset) const {
        if (ci.chunkLength < kRecordPrefix || ci.chunkStartOffset < dataStart || ci.chunkLength > dataEnd ||
            ci.chunkStartOffset > dataEnd - ci.chunkLength) {
            fail("chunk index" + at(indexOffset) + " points at bytes " + std::to_string(ci.chunkStartOffset) + " to " +
                 std::to_string(ci.chunkStartOffset + ci.chunkLength) + ", outside the data section (" +
                 std::to_string(dataStart) + " to " + std::to_string(dataEnd) + ")");
        }
    }

    // Statistics by reading every message: for files whose summary has none.
    void countMessages() {
        Statistics s;
        Definitions seen;
        auto count = [&s](const MessageView& m) {
            if (s.messageCount == 0) {
                s.messageStartTime = s.messageEndTime = m.logTime;
            }
            s.messageStartTime = std::min(s.messageStartTime, m.logTime);
            s.messageEndTime = std::max(s.messageEndTime, m.logTime);
            ++s.messageCount;
            ++s.channelMessageCounts[m.channel->id];
            return true;
        };
        if (indexed) {
            readIndexed(count, ReadOptions{});
            s.chunkCount = static_cast<uint32_t>(chunkIndexes.size());
        } else {
            s.chunkCount = scan(seen, count, ReadOptions{});
            if (footer.summaryStart == 0) {
                definitions = seen;
            }
        }
        s.schemaCount = static_cast<uint16_t>(definitions.schemas.size());
        s.channelCount = static_cast<uint32_t>(definitions.channels.size());
        statistics = std::move(s);
    }

    MessageView view(const Definitions& defs, const detail::MessageRecord& m, const std::string& where) const {
        const auto ch = defs.channels.find(m.channelId);
        if (ch == defs.channels.end()) {
            fail(where + ": message on channel " + std::to_string(m.channelId) + ", which no channel record defines");
        }
        MessageView v;
        v.channel = &ch->second;
        const auto s = defs.schemas.find(ch->second.schemaId);
        v.schema = s == defs.schemas.end() ? nullptr : &s->second;
        v.sequence = m.sequence;
        v.logTime = m.logTime;
        v.publishTime = m.publishTime;
        v.data = m.data;
        v.size = m.size;
        return v;
    }

    bool wanted(const Definitions& defs, const detail::MessageRecord& m, const ReadOptions& o, const std::string& where) const {
        if (!inRange(o, m.logTime)) {
            return false;
        }
        if (!o.channelFilter) {
            return true;
        }
        return o.channelFilter(*view(defs, m, where).channel);
    }

    // Records of a run (the data section or a chunk's records) in file order. Returns false when the
    // callback stopped.
    bool scanRecords(Definitions& defs, ByteReader& in, const MessageCallback& callback, const ReadOptions& o) const {
        detail::RawRecord r;
        while (detail::nextRecord(in, r)) {
            ByteReader c = detail::contentReader(r, in.context());
            const std::string where = c.context();
            switch (static_cast<Opcode>(r.opcode)) {
            case Opcode::Schema:
                define(defs, detail::decodeSchema(c));
                break;
            case Opcode::Channel:
                define(defs, detail::decodeChannel(c), where);
                break;
            case Opcode::Message: {
                const detail::MessageRecord m = detail::decodeMessage(c);
                if (wanted(defs, m, o, where) && !callback(view(defs, m, where))) {
                    return false;
                }
                break;
            }
            default:
                break;
            }
        }
        return true;
    }

    static void define(Definitions& defs, Schema s) {
        if (s.id != 0) {
            defs.schemas.emplace(s.id, std::move(s));
        }
    }

    void define(Definitions& defs, Channel c, const std::string& where) const {
        if (c.schemaId != 0 && defs.schemas.count(c.schemaId) == 0) {
            fail(where + ": channel " + std::to_string(c.id) + " (" + c.topic + ") refers to schema " +
                 std::to_string(c.schemaId) + ", which no schema record before it defines");
        }
        defs.channels.emplace(c.id, std::move(c));
    }

    // The data section from the start, record by record; chunks are opened as they come. Returns the
    // number of chunks met.
    uint32_t scan(Definitions& defs, const MessageCallback& callback, const ReadOptions& o) const {
        return detail::walkData(
            file, dataStart, dataEnd, [&](ByteReader& records) { return scanRecords(defs, records, callback, o); },
            nullptr);
    }

    // Messages through the chunk indexes, in log-time order (equal times: in file order). A chunk is
    // opened when the earliest pending message is no earlier than the chunk's start, so only the
    // chunks overlapping in time are held at once.
    void readIndexed(const MessageCallback& callback, const ReadOptions& o) const {
        std::vector<const ChunkIndex*> selected;
        for (const ChunkIndex& ci : chunkIndexes) {
            if (ci.messageEndTime < o.startTime || ci.messageStartTime > o.endTime) {
                continue;
            }
            if (o.channelFilter && !ci.messageIndexOffsets.empty() &&
                std::none_of(ci.messageIndexOffsets.begin(), ci.messageIndexOffsets.end(), [&](const auto& entry) {
                    const auto ch = definitions.channels.find(entry.first);
                    return ch != definitions.channels.end() && o.channelFilter(ch->second);
                })) {
                continue;
            }
            selected.push_back(&ci);
        }
        std::stable_sort(selected.begin(), selected.end(), [](const ChunkIndex* a, const ChunkIndex* b) {
            return a->messageStartTime != b->messageStartTime ? a->messageStartTime < b->messageStartTime
                                                              : a->chunkStartOffset < b->chunkStartOffset;
        });

        struct Open {
            detail::LoadedChunk chunk;
            std::vector<detail::MessageRecord> messages;  // wanted ones, by log time
            std::size_t next = 0;
            uint64_t offset = 0;
            uint64_t time() const { return messages[next].logTime; }
        };
        // A min-heap on (time of the next message, chunk offset).
        auto later = [](const std::unique_ptr<Open>& a, const std::unique_ptr<Open>& b) {
            return a->time() != b->time() ? a->time() > b->time() : a->offset > b->offset;
        };
        std::vector<std::unique_ptr<Open>> heap;
        std::size_t nextChunk = 0;
        for (;;) {
            while (nextChunk < selected.size() &&
                   (heap.empty() || selected[nextChunk]->messageStartTime <= heap.front()->time())) {
                auto open = std::make_unique<Open>();
                open->offset = selected[nextChunk]->chunkStartOffset;
                open->chunk = openChunk(*selected[nextChunk]);
                collect(open->messages, open->chunk, o);
                ++nextChunk;
                if (!open->messages.empty()) {
                    heap.push_back(std::move(open));
                    std::push_heap(heap.begin(), heap.end(), later);
                }
            }
            if (heap.empty()) {
                return;
            }
            std::pop_heap(heap.begin(), heap.end(), later);
            Open& top = *heap.back();
            if (!callback(view(definitions, top.messages[top.next], top.chunk.context))) {
                return;
            }
            if (++top.next < top.messages.size()) {
                std::push_heap(heap.begin(), heap.end(), later);
            } else {
                heap.pop_back();
            }
        }
    }

    detail::LoadedChunk openChunk(const ChunkIndex& ci) const {
        const auto bytes = file.read(ci.chunkStartOffset, ci.chunkLength, "chunk");
        detail::LoadedChunk chunk = detail::loadChunk(bytes.data(), bytes.size(), ci.chunkStartOffset, file.path());
        const detail::ChunkRecord& c = chunk.record;
        if (c.messageStartTime != ci.messageStartTime || c.messageEndTime != ci.messageEndTime ||
            c.compression != ci.compression || c.uncompressedSize != ci.uncompressedSize ||
            c.recordsSize != ci.compressedSize) {
            fail("the chunk index disagrees with the chunk" + at(ci.chunkStartOffset) +
                 " (time range, compression or sizes)");
        }
        return chunk;
    }

    void collect(std::vector<detail::MessageRecord>& out, const detail::LoadedChunk& chunk, const ReadOptions& o) const {
        ByteReader in(chunk.records.data(), chunk.records.size(), 0, chunk.context);
        detail::RawRecord r;
        while (detail::nextRecord(in, r)) {
            if (r.opcode != static_cast<uint8_t>(Opcode::Message)) {
                continue;  // schemas and channels: the summary lists them
            }
            ByteReader c = detail::contentReader(r, chunk.context);
            const detail::MessageRecord m = detail::decodeMessage(c);
            if (m.logTime < chunk.record.messageStartTime || m.logTime > chunk.record.messageEndTime) {
                c.fail("message log time " + std::to_string(m.logTime) + " lies outside the chunk's range " +
                       std::to_string(chunk.record.messageStartTime) + " to " + std::to_string(chunk.record.messageEndTime));
            }
            if (wanted(definitions, m, o, c.context())) {
                out.push_back(m);
            }
        }
        std::stable_sort(out.begin(), out.end(), [](const auto& a, const auto& b) { return a.logTime < b.logTime; });
    }
};

Reader::Reader(const std::string& path) : impl_(std::make_unique<Impl>(path)) {
    impl_->readEnds();
    if (impl_->footer.summaryStart != 0) {
        impl_->readSummary();
    } else {
        impl_->countMessages();
    }
}

Reader::~Reader() = default;

const std::string& Reader::path() const {
    return impl_->file.path();
}

const Header& Reader::header() const {
    return impl_->header;
}

const Footer& Reader::footer() const {
    return impl_->footer;
}

bool Reader::indexed() const {
    return impl_->indexed;
}

const std::map<uint16_t, Schema>& Reader::schemas() const {
    return impl_->definitions.schemas;
}

const std::map<uint16_t, Channel>& Reader::channels() const {
    return impl_->definitions.channels;
}

const Schema* Reader::schema(uint16_t id) const {
    const auto it = impl_->definitions.schemas.find(id);
    return it == impl_->definitions.schemas.end() ? nullptr : &it->second;
}

const Statistics& Reader::statistics() const {
    return impl_->statistics;
}

const std::vector<ChunkIndex>& Reader::chunkIndexes() const {
    return impl_->chunkIndexes;
}

void Reader::forEachMessage(const MessageCallback& callback, const ReadOptions& options) const {
    if (impl_->indexed) {
        impl_->readIndexed(callback, options);
    } else {
        Definitions seen;
        impl_->scan(seen, callback, options);
    }
}

}  // namespace vantrel::mcap
