#pragma once
// Files for the recording tests: a fresh folder per test, whole-file reads and writes, and a small
// recording whose content the tests know.
#include "vantrel/mcap/Reader.h"
#include "vantrel/mcap/Writer.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace vantrel::mcap::testing {

// A folder of its own under the system's temporary folder, removed with the object.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    std::string file(const std::string& name) const { return (path_ / name).string(); }

private:
    std::filesystem::path path_;
};

std::vector<uint8_t> readBytes(const std::string& path);
void writeBytes(const std::string& path, const std::vector<uint8_t>& bytes);

// One message as the tests compare them.
struct Recorded {
    std::string topic;
    uint32_t sequence;
    uint64_t logTime;
    uint64_t publishTime;
    std::string data;
    bool operator==(const Recorded& o) const {
        return topic == o.topic && sequence == o.sequence && logTime == o.logTime && publishTime == o.publishTime &&
               data == o.data;
    }
};

// Writes `messages` on channels named by their topics (each added, with a schema, before its first
// message), in the order given.
void record(const std::string& path, const std::vector<Recorded>& messages, WriterOptions options = {});

// Every message the reader gives, in its order.
std::vector<Recorded> readAll(const Reader& reader, const ReadOptions& options = {});

// `count` messages on three topics with increasing log times and data of varying length (some empty,
// some larger than a small chunk).
std::vector<Recorded> sampleMessages(std::size_t count);

}  // namespace vantrel::mcap::testing
