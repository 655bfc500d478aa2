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
#include "vantrel/tool/Samples.h"
#include "vantrel/tool/Verbs.h"

namespace vantrel::tool {

using catalog::OperationInfo;

namespace {

using Clock = std::chrono::steady_clock;

struct Arrival {
    Clock::time_point time;
    uint32_t bytes;
};

struct TopicStats {
    const OperationInfo* op = nullptr;
    std::string topic;
    std::mutex mutex;
    std::deque<Arrival> window;
    uint64_t total = 0;
};

void onRateData(dds_entity_t reader, void* arg) {
    auto* stats = static_cast<TopicStats*>(arg);
    takeSerialized(reader, [stats](ddsi_serdata** data, const dds_sample_info_t* infos, dds_return_t n) {
        const auto now = Clock::now();
        std::lock_guard<std::mutex> lock(stats->mutex);
        for (dds_return_t i = 0; i < n; ++i) {
            if (infos[i].valid_data) {
                stats->window.push_back({now, ddsi_serdata_size(data[i])});
                ++stats->total;
            }
            ddsi_serdata_unref(data[i]);
        }
    });
}

struct Figures {
    std::size_t samples = 0;
    double hz = 0, minGap = 0, maxGap = 0, stdGap = 0;
    double bytesPerSecond = 0, meanBytes = 0, minBytes = 0, maxBytes = 0;
};

Figures measure(TopicStats& s, Clock::time_point now, double window) {
    std::lock_guard<std::mutex> lock(s.mutex);
    const auto horizon = now - std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(window));
    while (!s.window.empty() && s.window.front().time < horizon) s.window.pop_front();
    Figures f;
    f.samples = s.window.size();
    if (f.samples < 2) return f;
    const double span = std::chrono::duration<double>(s.window.back().time - s.window.front().time).count();
    double sumGap = 0, sumSq = 0, bytes = 0;
    f.minGap = 1e300;
    f.minBytes = 1e300;
    for (std::size_t i = 0; i < f.samples; ++i) {
        const double b = s.window[i].bytes;
        bytes += b;
        f.minBytes = std::min(f.minBytes, b);
        f.maxBytes = std::max(f.maxBytes, b);
        if (i == 0) continue;
        const double gap = std::chrono::duration<double>(s.window[i].time - s.window[i - 1].time).count();
        sumGap += gap;
        sumSq += gap * gap;
        f.minGap = std::min(f.minGap, gap);
        f.maxGap = std::max(f.maxGap, gap);
    }
    const double gaps = static_cast<double>(f.samples - 1);
    f.hz = span > 0 ? gaps / span : 0;
    const double mean = sumGap / gaps;
    f.stdGap = std::sqrt(std::max(0.0, sumSq / gaps - mean * mean));
    f.meanBytes = bytes / static_cast<double>(f.samples);
    // The bytes of the samples after the first arrived over the span.
    f.bytesPerSecond = span > 0 ? (bytes - s.window.front().bytes) / span : 0;
    return f;
}

std::string sizeText(double bytes) {
    std::ostringstream out;
    out << std::fixed << std::setprecision(2);
    if (bytes >= 1e6) out << bytes / 1e6 << " MB";
    else if (bytes >= 1e3) out << bytes / 1e3 << " kB";
    else out << bytes << " B";
    return out.str();
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
            const Figures f = measure(*s, now, o.window);
            if (f.samples < 2) continue;
            if (o.json) {
                nlohmann::json line = {{"topic", s->topic}, {"operation", s->op->qualifiedName()},
                                       {"samples", f.samples}, {"total", s->total}, {"hz", f.hz},
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
