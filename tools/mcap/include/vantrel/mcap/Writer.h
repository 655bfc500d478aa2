#pragma once
// Writes a recording: messages go into chunks (compressed when full), each followed by its message
// indexes; close() adds the summary (schemas, channels, statistics, chunk indexes, their offsets) and
// the footer. Schemas and channels can be added at any time, also after messages were written.
// Not thread-safe: one thread writes.
#include "vantrel/mcap/Records.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace vantrel::mcap {

struct WriterOptions {
    Compression compression = Compression::Zstd;
    std::size_t chunkSize = 1 << 20;  // uncompressed bytes after which a chunk is closed
    std::string library = "vantrel-mcap";  // the header's writer identification
};

class Writer {
public:
    // Creates (or truncates) the file; throws McapError naming it when it cannot.
    explicit Writer(const std::string& path, WriterOptions options = {});
    ~Writer();  // closes; never throws (a failure there is lost: call close() to see it)
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    // Ids count up from 1. Throws McapError when the 65535 ids are used up or the writer is closed.
    uint16_t addSchema(const std::string& name, const std::string& encoding, const std::string& data);
    // schemaId 0: no schema; any other must have been added.
    uint16_t addChannel(uint16_t schemaId, const std::string& topic, const std::string& messageEncoding,
                        const std::map<std::string, std::string>& metadata = {});

    // `data` is stored as given (for CDR: the serialized message with its 4-byte encapsulation header).
    void write(uint16_t channelId, uint32_t sequence, uint64_t logTime, uint64_t publishTime, const void* data,
               std::size_t size);

    // Closes the open chunk (if it holds anything) and hands the file's buffered bytes to the system;
    // with `sync` also waits for the device. Everything written so far then survives a crash of the
    // process (with `sync`: a power loss) as complete chunks a recovery can read.
    void flush(bool sync = false);

    // Writes the open chunk, the summary and the footer, and closes the file. Later calls do nothing.
    void close();

    const std::string& path() const;
    uint64_t messageCount() const;
    // Bytes in the file so far plus the open chunk's uncompressed records: what the file would hold
    // about, were it closed now (without its summary).
    uint64_t size() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace vantrel::mcap
