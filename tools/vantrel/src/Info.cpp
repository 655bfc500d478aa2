// vantrel info: what a recording holds.
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <map>
#include <memory>
#include <set>

#include <nlohmann/json.hpp>

#include "SalvageText.h"
#include "vantrel/mcap/Reader.h"
#include "vantrel/mcap/Recovery.h"
#include "vantrel/tool/Errors.h"
#include "vantrel/tool/Verbs.h"

namespace vantrel::tool {

namespace {

// A file the reader refuses: what a recovery would keep of it, when it has anything to keep.
void describeBroken(const InfoOptions& o, const std::string& error) {
    mcap::Salvage s;
    try {
        s = mcap::inspect(o.file);
    } catch (const mcap::McapError&) {
        return;  // not even a header: the reader's error says it all
    }
    if (s.closed) return;  // its damage lies past the data: recovery would not help
    if (o.json) {
        std::cout << nlohmann::json{{"file", o.file}, {"bytes", s.fileBytes}, {"error", error},
                                    {"recoverable", {{"messages", s.messages}, {"chunks", s.chunks},
                                                     {"channels", s.channels}, {"bytes", s.keptBytes},
                                                     {"start_ns", s.messageStartTime}, {"end_ns", s.messageEndTime},
                                                     {"dropped_bytes", s.fileBytes - s.keptBytes},
                                                     {"dropped_reason", s.droppedReason}}}}
                         .dump(2)
                  << "\n";
        return;
    }
    std::cout << "file:        " << o.file << " (" << s.fileBytes << " bytes, not closed: no summary or footer)\n"
              << "recoverable: " << salvageText(s) << "\n"
              << "dropped:     " << droppedText(s) << "\n"
              << "recover it:  vantrel recover " << o.file << " -o FIXED.mcap" << std::endl;
}

}  // namespace

int info(const InfoOptions& o) {
    std::unique_ptr<mcap::Reader> opened;
    try {
        opened = std::make_unique<mcap::Reader>(o.file);
    } catch (const mcap::McapError& e) {
        describeBroken(o, e.what());
        throw InputError(e.what());
    }
    try {
        const mcap::Reader& reader = *opened;
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
