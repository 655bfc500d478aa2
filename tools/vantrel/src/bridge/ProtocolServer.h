#pragma once
// The bridge's one TCP port: the viewers' WebSocket protocol (subprotocol foxglove.websocket.v1: JSON
// control messages, binary message data) and, for plain HTTP requests, the monitor. One thread runs the
// server; the DDS layer's threads hand it messages through the clients' bounded queues, so a slow client
// never holds up the bus side.
#include <websocketpp/config/asio_no_tls.hpp>
#include <websocketpp/server.hpp>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "ChannelTable.h"
#include "ClientPublisher.h"
#include "ClientQueue.h"
#include "Monitor.h"

namespace vantrel::tool::bridge {

struct ServerLimits {
    std::size_t queueMessages = 1024;           // per client
    std::size_t queueBytes = 64u << 20;         // per client
    std::size_t socketBytes = 4u << 20;         // handed to a client's socket and not yet written
};

class ProtocolServer {
public:
    ProtocolServer(Bus& bus, ChannelTable& channels, ClientPublisher& publisher, ServerLimits limits);
    ~ProtocolServer();
    ProtocolServer(const ProtocolServer&) = delete;
    ProtocolServer& operator=(const ProtocolServer&) = delete;

    // The monitor answers plain HTTP requests; set before listen().
    void setMonitor(Monitor* monitor) { m_monitor = monitor; }
    // Binds; returns the port (an ephemeral one for port 0). Throws when the address cannot be bound.
    uint16_t listen(const std::string& address, uint16_t port);
    // Serves until stop() (from another thread).
    void run();
    void stop();

    // From the channel table (the DDS layer's threads).
    void advertised(const std::vector<Channel>& channels);
    void unadvertised(const std::vector<uint32_t>& channels);
    void message(uint32_t channel, const Payload& payload, uint64_t logTime);

    // {clients, subscriptions, sent, dropped}
    nlohmann::json state() const;

private:
    using Server = websocketpp::server<websocketpp::config::asio>;
    struct Client;

    void onOpen(websocketpp::connection_hdl hdl);
    void onClose(websocketpp::connection_hdl hdl);
    void onMessage(websocketpp::connection_hdl hdl, Server::message_ptr msg);
    void onHttp(websocketpp::connection_hdl hdl);
    void control(Client& client, const std::string& text);
    void clientData(Client& client, const std::string& bytes);
    void subscribe(Client& client, const nlohmann::json& request);
    void unsubscribe(Client& client, const nlohmann::json& request);
    void clientAdvertise(Client& client, const nlohmann::json& request);
    void advertiseTo(Client& client, const std::vector<Channel>& channels);
    void drain(const std::shared_ptr<Client>& client);
    void send(Client& client, const nlohmann::json& control);
    void status(Client& client, int level, const std::string& text);
    void everySecond();
    std::shared_ptr<Client> clientOf(websocketpp::connection_hdl hdl);

    Bus& m_bus;
    ChannelTable& m_channels;
    ClientPublisher& m_publisher;
    Monitor* m_monitor = nullptr;
    const ServerLimits m_limits;
    Server m_server;
    mutable std::mutex m_mutex;  // m_clients and each client's subscriptions (the DDS threads fan out)
    std::map<websocketpp::connection_hdl, std::shared_ptr<Client>, std::owner_less<websocketpp::connection_hdl>> m_clients;
    std::atomic<uint64_t> m_sent{0};
};

}  // namespace vantrel::tool::bridge
