#pragma once
// Reads a recording. Opening checks the magic at both ends, the header and the footer, and reads the
// summary. Messages come through the chunk index in log-time order; a file without a summary (or
// without chunk indexes) is scanned from the start instead and its messages come in file order.
// Anything malformed or truncated throws McapError saying what is wrong and where.
#include "vantrel/mcap/Records.h"

#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace vantrel::mcap {

struct ReadOptions {
    uint64_t startTime = 0;  // log times in [startTime, endTime], both inclusive
    uint64_t endTime = std::numeric_limits<uint64_t>::max();
    std::function<bool(const Channel&)> channelFilter;  // empty: every channel
};

// Returns false to stop the iteration.
using MessageCallback = std::function<bool(const MessageView&)>;

class Reader {
public:
    explicit Reader(const std::string& path);
    ~Reader();
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    const std::string& path() const;
    const Header& header() const;
    const Footer& footer() const;
    // True when messages are read through chunk indexes in the summary.
    bool indexed() const;

    const std::map<uint16_t, Schema>& schemas() const;
    const std::map<uint16_t, Channel>& channels() const;
    // Null for schema id 0 or an unknown id.
    const Schema* schema(uint16_t id) const;
    // From the summary; counted by a full read when the summary has none.
    const Statistics& statistics() const;
    const std::vector<ChunkIndex>& chunkIndexes() const;

    void forEachMessage(const MessageCallback& callback, const ReadOptions& options = {}) const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace vantrel::mcap
