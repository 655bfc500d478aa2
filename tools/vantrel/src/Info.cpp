// vantrel info: what a recording holds.
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <map>
#include <set>

#include <nlohmann/json.hpp>

#include "vantrel/mcap/Reader.h"
#include "vantrel/tool/Errors.h"
#include "vantrel/tool/Verbs.h"

namespace vantrel::tool {

int info(const InfoOptions& o) {
    try {
        mcap::Reader reader(o.file);
        std::map<uint16_t, uint64_t> bytes, counts;
        reader.forEachMessage([&](const mcap::MessageView& m) {
            bytes[m.channel->id] += m.size;
            ++counts[m.channel->id];
            return true;
        });
        const auto& stats = reader.statistics();
        std::set<std::string> compressions;
        for (const auto& c : reader.chunkIndexes()) compressions.insert(c.compression.empty() ? "none" : c.compression);
        const double duration = stats.messageCount ? static_cast<double>(stats.messageEndTime - stats.messageStartTime) / 1e9 : 0;
        const auto size = std::filesystem::file_size(o.file);
        if (o.json) {
            nlohmann::json out = {{"file", o.file}, {"bytes", size}, {"library", reader.header().library},
                                  {"indexed", reader.indexed()}, {"chunks", stats.chunkCount},
                                  {"compression", compressions}, {"messages", stats.messageCount},
                                  {"start_ns", stats.messageStartTime}, {"end_ns", stats.messageEndTime},
                                  {"duration_s", duration}, {"channels", nlohmann::json::array()}};
            for (const auto& [id, c] : reader.channels()) {
                const auto* schema = reader.schema(c.schemaId);
                out["channels"].push_back({{"id", id}, {"topic", c.topic}, {"type", schema ? schema->name : ""},
                                           {"messages", counts[id]}, {"bytes", bytes[id]}, {"metadata", c.metadata}});
            }
            std::cout << out.dump(2) << "\n";
            return 0;
        }
        std::cout << "file:        " << o.file << " (" << size << " bytes, written by " << reader.header().library << ")\n"
                  << "messages:    " << stats.messageCount << " in " << stats.chunkCount << " chunks (";
        for (auto it = compressions.begin(); it != compressions.end(); ++it) std::cout << (it == compressions.begin() ? "" : ", ") << *it;
        std::cout << ")" << (reader.indexed() ? ", indexed" : ", no index") << "\n"
                  << "duration:    " << std::fixed << std::setprecision(3) << duration << " s\n"
                  << "channels:    " << reader.channels().size() << "\n";
        for (const auto& [id, c] : reader.channels()) {
            const auto sample = c.metadata.find("sample");
            std::cout << "  " << std::setw(4) << id << "  " << std::left << std::setw(56) << c.topic << std::right
                      << std::setw(9) << counts[id] << " msgs " << std::setw(12) << bytes[id] << " bytes"
                      << (sample != c.metadata.end() && sample->second == "dispose" ? "  (disposals)" : "") << "\n";
        }
        return 0;
    } catch (const mcap::McapError& e) {
        throw InputError(e.what());
    } catch (const std::filesystem::filesystem_error& e) {
        throw InputError(e.what());
    }
}

}  // namespace vantrel::tool
