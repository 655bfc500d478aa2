#include "vantrel/mcap/Recovery.h"

#include "DataWalk.h"
#include "InputFile.h"
#include "RecordCodec.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>

namespace vantrel::mcap {

namespace {

using detail::ByteReader;

// Walks the file tolerantly; with a writer, copies what it reads into it (schema and channel ids as
// the writer gives them out, mapped from the old ones).
Salvage salvage(const std::string& path, Writer* out) {
    detail::InputFile file(path);
    Salvage s;
    s.fileBytes = file.size();
    uint8_t magic[sizeof kMagic] = {};
    if (file.size() >= sizeof kMagic) {
        file.read(0, magic, sizeof magic, "leading magic");
    }
    if (std::memcmp(magic, kMagic, sizeof kMagic) != 0) {
        throw McapError(path + ": not a recording: the file does not start with the magic bytes");
    }
    Header header;
    const uint64_t start = detail::readHeader(file, file.size(), header);

    std::map<uint16_t, uint16_t> schemaIds, channelIds;  // old -> new; all 0 without a writer
    auto onRecords = [&](ByteReader& in) {
        detail::RawRecord r;
        while (detail::nextRecord(in, r)) {
            ByteReader c = detail::contentReader(r, in.context());
            switch (static_cast<Opcode>(r.opcode)) {
            case Opcode::Schema: {
                const Schema schema = detail::decodeSchema(c);
                if (schema.id != 0 && schemaIds.count(schema.id) == 0) {
                    schemaIds[schema.id] = out ? out->addSchema(schema.name, schema.encoding, schema.data) : 0;
                }
                break;
            }
            case Opcode::Channel: {
                const Channel ch = detail::decodeChannel(c);
                if (channelIds.count(ch.id) != 0) {
                    break;
                }
                const auto schema = schemaIds.find(ch.schemaId);
                if (ch.schemaId != 0 && schema == schemaIds.end()) {
                    c.fail("channel " + std::to_string(ch.id) + " (" + ch.topic + ") refers to schema " +
                           std::to_string(ch.schemaId) + ", which no schema record before it defines");
                }
                channelIds[ch.id] = out ? out->addChannel(ch.schemaId == 0 ? 0 : schema->second, ch.topic,
                                                          ch.messageEncoding, ch.metadata)
                                        : 0;
                break;
            }
            case Opcode::Message: {
                const detail::MessageRecord m = detail::decodeMessage(c);
                const auto ch = channelIds.find(m.channelId);
                if (ch == channelIds.end()) {
                    c.fail("message on channel " + std::to_string(m.channelId) + ", which no channel record defines");
                }
                if (out) {
                    out->write(ch->second, m.sequence, m.logTime, m.publishTime, m.data, m.size);
                }
                s.messageStartTime = s.messages == 0 ? m.logTime : std::min(s.messageStartTime, m.logTime);
                s.messageEndTime = std::max(s.messageEndTime, m.logTime);
                ++s.messages;
                break;
            }
            default:
                break;
            }
        }
        return true;
    };
    detail::WalkStop stop;
    s.chunks = detail::walkData(file, start, file.size(), onRecords, &stop);
    s.keptBytes = stop.offset;
    s.droppedReason = stop.reason;
    s.closed = stop.reason.empty() && stop.offset < file.size();  // stopped at the data end record
    s.schemas = static_cast<uint16_t>(schemaIds.size());
    s.channels = static_cast<uint32_t>(channelIds.size());
    return s;
}

}  // namespace

Salvage inspect(const std::string& path) {
    return salvage(path, nullptr);
}

Salvage recover(const std::string& path, const std::string& output, WriterOptions options) {
    try {
        Writer out(output, std::move(options));
        Salvage s = salvage(path, &out);
        out.close();
        return s;
    } catch (...) {
        std::remove(output.c_str());  // nothing half-made
        throw;
    }
}

}  // namespace vantrel::mcap
