#include "ChunkLoader.h"

#include "Compression.h"
#include "Crc32.h"


namespace vantrel::mcap::detail {

LoadedChunk loadChunk(const uint8_t* bytes, std::size_t size, uint64_t offset, const std::string& path) {
    const std::string where = path + ": chunk at offset " + std::to_string(offset);
    if (size < kRecordPrefix || bytes[0] != static_cast<uint8_t>(Opcode::Chunk)) {
        throw McapError(where + ": no chunk record there (" +
                        (size == 0 ? std::string("nothing") : std::string("a ") + opcodeName(bytes[0]) + " record") + ")");
    }
    ByteReader in(bytes, size, offset, path);
    RawRecord raw;
    nextRecord(in, raw);
    if (in.remaining() != 0) {
        throw McapError(where + ": the chunk record is " + std::to_string(size - in.remaining()) +
                        " bytes long, its index says " + std::to_string(size));
    }
    ByteReader content = contentReader(raw, path);
    LoadedChunk chunk;
    chunk.record = decodeChunk(content);
    if (chunk.record.messageStartTime > chunk.record.messageEndTime) {
        throw McapError(where + ": its start time " + std::to_string(chunk.record.messageStartTime) +
                        " lies after its end time " + std::to_string(chunk.record.messageEndTime));
    }
    chunk.records = decompress(chunk.record.compression, chunk.record.records, chunk.record.recordsSize,
                               chunk.record.uncompressedSize, where);
    chunk.record.records = nullptr;
    if (chunk.record.uncompressedCrc != 0) {
        const uint32_t crc = crc32(0, chunk.records.data(), chunk.records.size());
        if (crc != chunk.record.uncompressedCrc) {
            throw McapError(where + ": corrupt records: their CRC is " + crcText(crc) + ", the chunk states " +
                            crcText(chunk.record.uncompressedCrc));
        }
    }
    chunk.context = where + " (uncompressed)";
    return chunk;
}

}  // namespace vantrel::mcap::detail
