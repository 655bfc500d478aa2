// vantrel echo: decoded live traffic, one line per sample.
#include <chrono>
#include <ctime>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <vector>

#include "vantrel/tool/Bus.h"
#include "vantrel/tool/Describe.h"
#include "vantrel/tool/JsonForm.h"
#include "vantrel/tool/Samples.h"
#include "vantrel/tool/Verbs.h"

namespace vantrel::tool {

using catalog::OperationInfo;

namespace {

std::string clockText(int64_t ns) {
    const std::time_t seconds = static_cast<std::time_t>(ns / 1000000000);
    std::tm tm{};
    localtime_r(&seconds, &tm);
    std::ostringstream out;
    out << std::put_time(&tm, "%H:%M:%S") << '.' << std::setw(6) << std::setfill('0') << (ns % 1000000000) / 1000;
    return out.str();
}

std::string senderOf(const OperationInfo& op, const void* sample) {
    const char* actor = *static_cast<char* const*>(static_cast<const void*>(
        static_cast<const char*>(sample) + op.message->members[0].offset));
    return actor ? actor : "";
}

void printSample(const OperationInfo& op, const void* sample, const dds_sample_info_t& info, const EchoOptions& o) {
    const bool dispose = !info.valid_data;
    const int64_t time = info.source_timestamp;
    if (o.json) {
        nlohmann::json line = {{"time", clockText(time)}, {"time_ns", time}, {"operation", op.qualifiedName()},
                               {"sender", senderOf(op, sample)}, {"dispose", dispose}};
        line["value"] = (dispose || o.keys) ? keysToJson(*op.message, sample) : toJson(*op.message, sample, false);
        std::cout << line.dump() << "\n";
    } else {
        std::cout << clockText(time) << " " << op.qualifiedName() << " from " << senderOf(op, sample)
                  << (dispose ? " DISPOSED " : " ");
        if (dispose || o.keys) std::cout << keysToJson(*op.message, sample).dump();
        else op.print(std::cout, sample);
        std::cout << "\n";
    }
    std::cout.flush();
}

}  // namespace

int echo(const EchoOptions& o) {
    const auto ops = selectOperations(o.patterns);
    Bus bus(o.domain);
    const dds_entity_t waitset = dds_create_waitset(bus.participant());
    std::vector<std::pair<dds_entity_t, const OperationInfo*>> readers;
    for (const auto* op : ops) {
        const dds_entity_t reader = bus.reader(*op);
        dds_waitset_attach(waitset, reader, static_cast<dds_attach_t>(readers.size()));
        dds_set_status_mask(reader, DDS_DATA_AVAILABLE_STATUS);
        readers.emplace_back(reader, op);
    }
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(o.duration);
    sayWaiting(readers.size(), o.domain);
    long shown = 0;
    std::vector<dds_attach_t> triggered(readers.size());
    constexpr int kBatch = 64;
    while (!interrupted() && (o.count == 0 || shown < o.count)) {
        if (o.duration > 0 && std::chrono::steady_clock::now() >= end) break;
        const dds_return_t n = dds_waitset_wait(waitset, triggered.data(), triggered.size(), DDS_MSECS(200));
        for (dds_return_t t = 0; t < n; ++t) {
            const auto& [reader, op] = readers[static_cast<std::size_t>(triggered[static_cast<std::size_t>(t)])];
            void* samples[kBatch] = {};
            dds_sample_info_t infos[kBatch];
            const dds_return_t got = dds_take(reader, samples, infos, kBatch, kBatch);  // loaned
            for (dds_return_t i = 0; i < got && (o.count == 0 || shown < o.count); ++i, ++shown) {
                printSample(*op, samples[i], infos[i], o);
                // A disposal that arrived while this, the instance's last sample, was unread marks it
                // instead of coming as a sample of its own: shown after it.
                if (disposedAfter(infos, got, i) && (o.count == 0 || shown + 1 < o.count)) {
                    dds_sample_info_t disposal = infos[i];
                    disposal.valid_data = false;
                    printSample(*op, samples[i], disposal, o);
                    ++shown;
                }
            }
            if (got > 0) dds_return_loan(reader, samples, got);
        }
    }
    return 0;
}

}  // namespace vantrel::tool
