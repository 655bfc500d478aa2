#pragma once
// What the recording tests share: a folder of their own, whole-file reads and writes, and recordings whose
// messages they know.
#include "vantrel/mcap/Reader.h"
#include "vantrel/mcap/Writer.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

namespace vantrel::mcap::testing {

// A folder of its own under the system's temporary folder, removed with the object.
struct TempDir {
    TempDir() {
        std::string pattern = (std::filesystem::temp_directory_path() / "vantrel-mcap-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot create a temporary folder");
        path = pattern;
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    std::string file(const std::string& name) const { return (path / name).string(); }

    std::filesystem::path path;
};

inline std::vector<uint8_t> readBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot read " + path);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void writeBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!out) throw std::runtime_error("cannot write " + path);
}

// One message as the tests compare them.
struct Recorded {
    std::string topic;
    uint32_t sequence;
    uint64_t logTime;
    uint64_t publishTime;
    std::string data;
    bool operator==(const Recorded& o) const {
        return std::tie(topic, sequence, logTime, publishTime, data) == std::tie(o.topic, o.sequence, o.logTime, o.publishTime, o.data);
    }
};

// Writes `messages` in the order given on channels named by their topics (each added, with a schema, before
// its first message), calls `after(writer, messages written)` after each, and closes the file.
inline void record(const std::string& path, const std::vector<Recorded>& messages, WriterOptions options = {},
                   const std::function<void(Writer&, std::size_t)>& after = {}) {
    Writer writer(path, options);
    std::map<std::string, uint16_t> channels;
    for (std::size_t i = 0; i < messages.size(); ++i) {
        const Recorded& m = messages[i];
        auto it = channels.find(m.topic);
        if (it == channels.end()) {
            const uint16_t schema = writer.addSchema("Type::" + m.topic, "omgidl", "struct S { long x; };");
            it = channels.emplace(m.topic, writer.addChannel(schema, m.topic, "cdr", {{"topic", m.topic}})).first;
        }
        writer.write(it->second, m.sequence, m.logTime, m.publishTime, m.data.data(), m.data.size());
        if (after) after(writer, i + 1);
    }
    writer.close();
}

// Every message the reader gives, in its order.
inline std::vector<Recorded> readAll(const Reader& reader, const ReadOptions& options = {}) {
    std::vector<Recorded> out;
    reader.forEachMessage(
        [&out](const MessageView& m) {
            out.push_back({m.channel->topic, m.sequence, m.logTime, m.publishTime,
                           std::string(reinterpret_cast<const char*>(m.data), m.size)});
            return true;
        },
        options);
    return out;
}

// `count` messages on three topics with increasing log times and data of varying length (some empty, one
// larger than a small chunk).
inline std::vector<Recorded> sampleMessages(std::size_t count) {
    static const char* const topics[] = {"alpha", "beta", "gamma"};
    std::vector<Recorded> out;
    for (std::size_t i = 0; i < count; ++i) {
        std::string data(i == count / 2 ? 5000 : i % 7 == 0 ? 0 : 20 + (i * 37) % 300, 'x');
        for (std::size_t k = 0; k < data.size() && i != count / 2; ++k) data[k] = static_cast<char>((i * 31 + k * 7) & 0xFF);
        out.push_back({topics[i % 3], static_cast<uint32_t>(i), 1000 + 10 * i, 995 + 10 * i, data});
    }
    return out;
}

}  // namespace vantrel::mcap::testing
