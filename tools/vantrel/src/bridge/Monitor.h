#pragma once
// The bridge's web monitor over plain HTTP: the page (its files embedded in the tool) and the JSON it
// polls. /api/ps is who takes part (BusView); /api/topics every advertised topic with its rate and
// bandwidth; /api/sample?topic=NAME the topic's last sample in the text form. Topics are read for the
// monitor only while a page polls: the readers are made on a page's first request and deleted when no
// page has asked for a while, so with no page open and no client subscribed the bridge reads nothing.
#include <dds/dds.h>
#include <dds/ddsi/ddsi_serdata.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "ChannelTable.h"
#include "vantrel/tool/Bus.h"
#include "vantrel/tool/BusView.h"
#include "vantrel/tool/RateWindow.h"

namespace vantrel::tool::bridge {

struct HttpResponse {
    int status = 200;
    std::string type = "application/json";
    std::string body;
};

class Monitor {
public:
    // `bridgeState` adds the protocol server's figures (clients, drops) to /api/topics.
    Monitor(Bus& bus, ChannelTable& channels, std::function<nlohmann::json()> bridgeState);
    ~Monitor();
    Monitor(const Monitor&) = delete;
    Monitor& operator=(const Monitor&) = delete;

    // Answers a GET of `resource` (path and query).
    HttpResponse get(const std::string& resource);
    // Called about once a second: ends the monitor's readers when no page has polled for a while.
    void tick();
    std::size_t readers() const;

private:
    struct Watched;
    static void onData(dds_entity_t reader, void* arg);
    nlohmann::json topics();
    nlohmann::json sample(const std::string& topic);
    void closeReaders();

    Bus& m_bus;
    BusView m_view;
    ChannelTable& m_channels;
    std::function<nlohmann::json()> m_bridgeState;
    std::chrono::steady_clock::time_point m_lastPoll;
    mutable std::mutex m_mutex;  // m_watched (the server thread changes it, the page handler reads)
    std::map<std::string, std::unique_ptr<Watched>> m_watched;
};

}  // namespace vantrel::tool::bridge
