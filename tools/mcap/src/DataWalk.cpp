#include "DataWalk.h"

#include "ChunkLoader.h"
#include "RecordCodec.h"

#include <cstring>

namespace vantrel::mcap::detail {

namespace {

std::string at(uint64_t offset) {
    return " at offset " + std::to_string(offset);
}

}  // namespace

uint64_t readHeader(const InputFile& file, uint64_t limit, Header& header) {
    const uint64_t contentAt = sizeof kMagic + kRecordPrefix;
    if (limit < contentAt) {
        throw McapError(file.path() + ": truncated: " + std::to_string(file.size()) + " bytes cannot hold a header");
    }
    uint8_t prefix[kRecordPrefix];
    file.read(sizeof kMagic, prefix, sizeof prefix, "header record");
    ByteReader p(prefix, sizeof prefix, sizeof kMagic, file.path());
    if (p.u8("header opcode") != static_cast<uint8_t>(Opcode::Header)) {
        throw McapError(file.path() + ": the first record" + at(sizeof kMagic) + " is no header record");
    }
    const uint64_t length = p.u64("header length");
    if (length > limit - contentAt) {
        throw McapError(file.path() + ": header record" + at(sizeof kMagic) + " claims " + std::to_string(length) +
                        " bytes, more than the file holds");
    }
    const auto bytes = file.read(contentAt, length, "header record");
    ByteReader h(bytes.data(), bytes.size(), contentAt, file.path() + ": header record");
    header = decodeHeader(h);
    return contentAt + length;
}

uint32_t walkData(const InputFile& file, uint64_t start, uint64_t end,
                  const std::function<bool(ByteReader& records)>& onRecords, WalkStop* stop) {
    uint32_t chunks = 0;
    uint64_t pos = start;
    auto halt = [&](const std::string& reason) {
        if (stop == nullptr) {
            throw McapError(file.path() + ": " + reason);
        }
        stop->offset = pos;
        stop->reason = reason;
        return chunks;
    };
    while (pos < end) {
        if (end - pos < kRecordPrefix) {
            return halt("truncated record" + at(pos) + ": " + std::to_string(end - pos) +
                        " bytes before the end of the data section");
        }
        uint8_t prefix[kRecordPrefix];
        file.read(pos, prefix, sizeof prefix, "record");
        ByteReader p(prefix, sizeof prefix, pos, file.path());
        const uint8_t opcode = p.u8("record opcode");
        const uint64_t length = p.u64("record length");
        const uint64_t contentAt = pos + kRecordPrefix;
        if (opcode == 0 && stop != nullptr) {
            // No record has opcode 0: after a power loss the unwritten end of a file reads as zeros.
            return halt("zero bytes" + at(pos) + " where a record should start: the rest was never written");
        }
        if (length > end - contentAt) {
            return halt(std::string(opcodeName(opcode)) + " record" + at(pos) + " claims " + std::to_string(length) +
                        " bytes, only " + std::to_string(end - contentAt) + " follow in the data section");
        }
        const auto op = static_cast<Opcode>(opcode);
        if (op == Opcode::DataEnd) {
            break;
        }
        if (op == Opcode::Schema || op == Opcode::Channel || op == Opcode::Message || op == Opcode::Chunk) {
            bool more = true;
            try {
                const auto bytes = file.read(pos, kRecordPrefix + length, opcodeName(opcode));
                if (op == Opcode::Chunk) {
                    const LoadedChunk chunk = loadChunk(bytes.data(), bytes.size(), pos, file.path());
                    ++chunks;
                    ByteReader records(chunk.records.data(), chunk.records.size(), 0, chunk.context);
                    more = onRecords(records);
                } else {
                    ByteReader one(bytes.data(), bytes.size(), pos, file.path());
                    more = onRecords(one);
                }
            } catch (const McapError& e) {
                if (stop == nullptr) {
                    throw;
                }
                return halt(e.what());
            }
            if (!more) {
                break;
            }
        }
        pos = contentAt + length;
    }
    if (stop != nullptr) {
        stop->offset = pos;
    }
    return chunks;
}

}  // namespace vantrel::mcap::detail
