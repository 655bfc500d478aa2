// vantrel hz / vantrel bw: per-topic rate and bandwidth. Every sample is counted where the DDS layer
// hands it over (its serialized size, its reception time), never decoded, so large samples read right.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <deque>
#include <iomanip>
#include <iostream>
#include <memory>
#include <mutex>
#include <sstream>
#include <thread>
#include <vector>

#include <dds/ddsi/ddsi_serdata.h>
#include <nlohmann/json.hpp>

#include "vantrel/tool/Bus.h"
#include "vantrel/tool/Describe.h"
#include "vantrel/tool/RateWindow.h"
#include "vantrel/tool/Samples.h"
#include "vantrel/tool/Verbs.h"

namespace vantrel::tool {

using catalog::OperationInfo;

namespace {

using Clock = std::chrono::steady_clock;

struct TopicStats {
    const OperationInfo* op = nullptr;
    std::string topic;
    RateWindow window;
};

void onRateData(dds_entity_t reader, void* arg) {
    auto* stats = static_cast<TopicStats*>(arg);
    takeSerialized(reader, [stats](ddsi_serdata** data, const dds_sample_info_t* infos, dds_return_t n) {
        const auto now = Clock::now();
        for (dds_return_t i = 0; i < n; ++i) {
            if (infos[i].valid_data) stats->window.add(now, ddsi_serdata_size(data[i]));
            ddsi_serdata_unref(data[i]);
        }
    });
}

}  // namespace

int rate(const RateOptions& o) {
    const auto ops = selectOperations(o.patterns);
    std::vector<std::unique_ptr<TopicStats>> stats;  // outlives the bus: its listeners point into it
    Bus bus(o.domain);
    for (const auto* op : ops) {
        auto s = std::make_unique<TopicStats>();
        s->op = op;
        s->topic = bus.topicName(*op);
        dds_listener_t* listener = dds_create_listener(s.get());
        dds_lset_data_available(listener, onRateData);
        bus.reader(*op, listener, /*liveOnly=*/true);
        dds_delete_listener(listener);
        stats.push_back(std::move(s));
    }
    sayWaiting(stats.size(), o.domain);
    const auto start = Clock::now();
    auto next = start;
    while (!interrupted()) {
        next += std::chrono::seconds(1);
        while (Clock::now() < next && !interrupted()) std::this_thread::sleep_for(std::chrono::milliseconds(20));
        const auto now = Clock::now();
        for (auto& s : stats) {
            const RateFigures f = s->window.measure(now, o.window);
            if (f.samples < 2) continue;
            if (o.json) {
                nlohmann::json line = {{"topic", s->topic}, {"operation", s->op->qualifiedName()},
                                       {"samples", f.samples}, {"total", s->window.total()}, {"hz", f.hz},
                                       {"min_gap_s", f.minGap}, {"max_gap_s", f.maxGap}, {"std_gap_s", f.stdGap},
                                       {"bytes_per_s", f.bytesPerSecond}, {"mean_bytes", f.meanBytes},
                                       {"min_bytes", f.minBytes}, {"max_bytes", f.maxBytes}};
                std::cout << line.dump() << "\n";
            } else if (o.bandwidth) {
                std::cout << s->topic << ": " << sizeText(f.bytesPerSecond) << "/s  mean " << sizeText(f.meanBytes)
                          << "  min " << sizeText(f.minBytes) << "  max " << sizeText(f.maxBytes) << "  window "
                          << f.samples << "\n";
            } else {
                std::cout << s->topic << ": average rate " << std::fixed << std::setprecision(3) << f.hz
                          << " Hz  min " << f.minGap * 1e3 << " ms  max " << f.maxGap * 1e3 << " ms  std dev "
                          << f.stdGap * 1e3 << " ms  window " << f.samples << "\n";
                std::cout.unsetf(std::ios::fixed);
            }
        }
        std::cout.flush();
        if (o.duration > 0 && std::chrono::duration<double>(now - start).count() >= o.duration) break;
    }
    return 0;
}

}  // namespace vantrel::tool
