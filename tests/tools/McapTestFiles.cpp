#include "McapTestFiles.h"


#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>

namespace vantrel::mcap::testing {

TempDir::TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "vantrel-mcap-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("cannot create a temporary folder");
    }
    path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::vector<uint8_t> readBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot read " + path);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!out) throw std::runtime_error("cannot write " + path);
}

void record(const std::string& path, const std::vector<Recorded>& messages, WriterOptions options) {
    Writer writer(path, options);
    std::map<std::string, uint16_t> channels;
    for (const Recorded& m : messages) {
        auto it = channels.find(m.topic);
        if (it == channels.end()) {
            const uint16_t schema = writer.addSchema("Type::" + m.topic, "omgidl", "struct S { long x; };");
            it = channels.emplace(m.topic, writer.addChannel(schema, m.topic, "cdr", {{"topic", m.topic}})).first;
        }
        writer.write(it->second, m.sequence, m.logTime, m.publishTime, m.data.data(), m.data.size());
    }
    writer.close();
}

std::vector<Recorded> readAll(const Reader& reader, const ReadOptions& options) {
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

std::vector<Recorded> sampleMessages(std::size_t count) {
    static const char* const topics[] = {"alpha", "beta", "gamma"};
    std::vector<Recorded> out;
    for (std::size_t i = 0; i < count; ++i) {
        std::string data(i % 7 == 0 ? 0 : 20 + (i * 37) % 300, '\0');
        for (std::size_t k = 0; k < data.size(); ++k) {
            data[k] = static_cast<char>((i * 31 + k * 7) & 0xFF);
        }
        if (i == count / 2) {
            data.assign(5000, 'x');  // larger than the small chunks some tests use
        }
        out.push_back({topics[i % 3], static_cast<uint32_t>(i), 1000 + 10 * i, 995 + 10 * i, data});
    }
    return out;
}

}  // namespace vantrel::mcap::testing
