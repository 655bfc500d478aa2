#include "Monitor.h"

#include <sstream>

#include "PageFiles.h"
#include "vantrel/tool/JsonForm.h"
#include "vantrel/tool/Samples.h"
#include "vantrel/tool/WireSample.h"

namespace vantrel::tool::bridge {

using nlohmann::json;

namespace {

// How long the monitor's readers outlive the last poll of a page.
constexpr auto kPollLease = std::chrono::seconds(5);

std::string queryValue(const std::string& resource, const std::string& name) {
    const auto q = resource.find('?');
    if (q == std::string::npos) return "";
    std::istringstream pairs(resource.substr(q + 1));
    std::string pair;
    while (std::getline(pairs, pair, '&')) {
        if (pair.rfind(name + "=", 0) != 0) continue;
        std::string raw = pair.substr(name.size() + 1), value;
        for (std::size_t i = 0; i < raw.size(); ++i) {
            if (raw[i] == '%' && i + 2 < raw.size()) {
                value += static_cast<char>(std::stoi(raw.substr(i + 1, 2), nullptr, 16));
                i += 2;
            } else {
                value += raw[i] == '+' ? ' ' : raw[i];
            }
        }
        return value;
    }
    return "";
}

}  // namespace

// One topic read for the monitor: its arrivals and its last sample (a reference the DDS layer keeps).
struct Monitor::Watched {
    const catalog::OperationInfo* op;
    uint64_t since;  // samples written before the reader existed (a transient-local history) are not counted
    RateWindow window;
    std::mutex mutex;
    ddsi_serdata* last = nullptr;
    bool lastDisposed = false;
    int64_t lastTime = 0;
    dds_entity_t reader = 0;

    ~Watched() {
        if (reader) dds_delete(reader);  // waits for a running listener
        if (last) ddsi_serdata_unref(last);
    }
};

Monitor::Monitor(Bus& bus, ChannelTable& channels, std::function<json()> bridgeState)
    : m_bus(bus), m_view(bus), m_channels(channels), m_bridgeState(std::move(bridgeState)) {}

Monitor::~Monitor() { closeReaders(); }

void Monitor::onData(dds_entity_t reader, void* arg) {
    auto* w = static_cast<Watched*>(arg);
    takeSerialized(reader, [w](ddsi_serdata** data, const dds_sample_info_t* infos, dds_return_t n) {
        const auto now = RateWindow::Clock::now();
        forEachOperation(data, infos, n, [&](ddsi_serdata* d, const dds_sample_info_t& info, bool dispose) {
            if (!dispose && static_cast<uint64_t>(info.source_timestamp) >= w->since)
                w->window.add(now, ddsi_serdata_size(d));
            std::lock_guard<std::mutex> lock(w->mutex);
            if (w->last) ddsi_serdata_unref(w->last);
            w->last = d;
            w->lastDisposed = dispose;
            w->lastTime = info.source_timestamp;
        });
    });
}

HttpResponse Monitor::get(const std::string& resource) {
    const std::string path = resource.substr(0, resource.find('?'));
    try {
        if (path == "/api/ps") return {200, "application/json", m_view.snapshot().dump()};
        if (path == "/api/topics") return {200, "application/json", topics().dump()};
        if (path == "/api/sample") return {200, "application/json", sample(queryValue(resource, "topic")).dump()};
    } catch (const std::exception& e) {
        return {500, "application/json", json{{"error", e.what()}}.dump()};
    }
    if (const PageFile* file = findPageFile(path == "/" ? "/index.html" : path))
        return {200, file->type, std::string(file->data, file->size)};
    return {404, "text/plain", "not found\n"};
}

json Monitor::topics() {
    m_lastPoll = std::chrono::steady_clock::now();
    std::map<std::string, const catalog::OperationInfo*> live;
    for (const auto& c : m_channels.advertised())
        if (!c.dispose) live[c.topic] = c.op;
    std::vector<std::unique_ptr<Watched>> ended;  // deleted outside the lock
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (auto it = m_watched.begin(); it != m_watched.end();) {
            if (live.count(it->first)) {
                ++it;
                continue;
            }
            ended.push_back(std::move(it->second));
            it = m_watched.erase(it);
        }
    }
    ended.clear();
    json out = {{"topics", json::array()}};
    const auto now = RateWindow::Clock::now();
    for (const auto& [topic, op] : live) {
        Watched* w;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            auto& slot = m_watched[topic];
            if (!slot) {
                slot = std::make_unique<Watched>();
                slot->op = op;
                slot->since = nowNs();
                // Made without the listener, then given it, as the recorder does: a history may arrive first.
                slot->reader = m_bus.reader(*op, nullptr);
                dds_listener_t* listener = dds_create_listener(slot.get());
                dds_lset_data_available(listener, onData);
                dds_set_listener(slot->reader, listener);
                dds_delete_listener(listener);
                onData(slot->reader, slot.get());
            }
            w = slot.get();
        }
        const RateFigures f = w->window.measure(now, 5.0);
        int64_t lastTime;
        {
            std::lock_guard<std::mutex> lock(w->mutex);
            lastTime = w->last ? w->lastTime : 0;
        }
        out["topics"].push_back({{"topic", topic}, {"operation", op->qualifiedName()}, {"hz", f.hz},
                                 {"bytes_per_s", f.bytesPerSecond}, {"bandwidth", sizeText(f.bytesPerSecond) + "/s"},
                                 {"mean_bytes", f.meanBytes}, {"total", w->window.total()}, {"last_time_ns", lastTime}});
    }
    if (m_bridgeState) out["bridge"] = m_bridgeState();
    return out;
}

json Monitor::sample(const std::string& topic) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto it = m_watched.find(topic);
    if (it == m_watched.end()) return {{"topic", topic}, {"text", nullptr}};
    Watched& w = *it->second;
    std::lock_guard<std::mutex> sampleLock(w.mutex);
    if (!w.last) return {{"topic", topic}, {"operation", w.op->qualifiedName()}, {"text", nullptr}};
    WireSample message(*w.op);
    if (!ddsi_serdata_to_sample(w.last, message.data(), nullptr, nullptr))
        return {{"topic", topic}, {"operation", w.op->qualifiedName()}, {"text", "(not decodable)"}};
    std::ostringstream text;
    if (w.lastDisposed) text << "DISPOSED " << keysToJson(*w.op->message, message.data()).dump();
    else w.op->print(text, message.data());
    return {{"topic", topic}, {"operation", w.op->qualifiedName()}, {"time_ns", w.lastTime}, {"text", text.str()}};
}

void Monitor::tick() {
    if (std::chrono::steady_clock::now() - m_lastPoll > kPollLease) closeReaders();
}

void Monitor::closeReaders() {
    std::map<std::string, std::unique_ptr<Watched>> ended;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        ended.swap(m_watched);
    }
}

std::size_t Monitor::readers() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_watched.size();
}

}  // namespace vantrel::tool::bridge
