#include "ProtocolServer.h"

#include <cstring>
#include <iostream>

#include "vantrel/tool/Errors.h"

namespace vantrel::tool::bridge {

using nlohmann::json;

namespace {

constexpr const char* kSubprotocol = "foxglove.websocket.v1";
constexpr uint8_t kMessageData = 1;  // the binary opcode of message data, both ways
enum Level { kInfo = 0, kWarning = 1, kError = 2 };

template <class T>
void putLittleEndian(std::string& out, T value) {
    for (std::size_t i = 0; i < sizeof(T); ++i) out.push_back(static_cast<char>((value >> (8 * i)) & 0xff));
}

}  // namespace

struct ProtocolServer::Client {
    Client(Server::connection_ptr c, const ServerLimits& limits)
        : connection(std::move(c)), queue(limits.queueMessages, limits.queueBytes) {}
    Server::connection_ptr connection;
    ClientQueue queue;
    std::map<uint32_t, uint32_t> subscriptions;             // subscription id -> channel
    std::map<uint32_t, std::set<uint32_t>> byChannel;       // channel -> subscription ids
    std::set<uint32_t> advertisedChannels;
    std::map<uint32_t, const catalog::OperationInfo*> published;  // the client's channel id -> operation
    bool retryPending = false;
    bool closed = false;
};

ProtocolServer::ProtocolServer(Bus& bus, ChannelTable& channels, ClientPublisher& publisher, ServerLimits limits)
    : m_bus(bus), m_channels(channels), m_publisher(publisher), m_limits(limits) {
    m_server.clear_access_channels(websocketpp::log::alevel::all);
    m_server.clear_error_channels(websocketpp::log::elevel::all);
    m_server.init_asio();
    m_server.set_reuse_addr(true);
    m_server.set_validate_handler([this](websocketpp::connection_hdl hdl) {
        auto con = m_server.get_con_from_hdl(hdl);
        for (const auto& p : con->get_requested_subprotocols())
            if (p == kSubprotocol) {
                con->select_subprotocol(p);
                return true;
            }
        return false;
    });
    m_server.set_open_handler([this](websocketpp::connection_hdl hdl) { onOpen(hdl); });
    m_server.set_close_handler([this](websocketpp::connection_hdl hdl) { onClose(hdl); });
    m_server.set_fail_handler([this](websocketpp::connection_hdl hdl) { onClose(hdl); });
    m_server.set_message_handler([this](websocketpp::connection_hdl hdl, Server::message_ptr msg) { onMessage(hdl, msg); });
    m_server.set_http_handler([this](websocketpp::connection_hdl hdl) { onHttp(hdl); });
}

ProtocolServer::~ProtocolServer() = default;

uint16_t ProtocolServer::listen(const std::string& address, uint16_t port) {
    std::error_code ec;
    const auto ip = asio::ip::make_address(address, ec);
    if (ec) throw InputError("--address " + address + ": not an IP address");
    m_server.listen(asio::ip::tcp::endpoint(ip, port), ec);
    if (ec) throw std::runtime_error("cannot listen on " + address + ":" + std::to_string(port) + ": " + ec.message());
    m_server.start_accept();
    const auto local = m_server.get_local_endpoint(ec);
    m_server.set_timer(1000, [this](const std::error_code& e) { if (!e) everySecond(); });
    return ec ? port : local.port();
}

void ProtocolServer::run() { m_server.run(); }

void ProtocolServer::stop() {
    asio::post(m_server.get_io_service(), [this] {
        std::error_code ec;
        m_server.stop_listening(ec);
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            for (auto& [hdl, client] : m_clients) client->connection->close(websocketpp::close::status::going_away, "", ec);
        }
        // The connections have a moment to close; then the loop ends whatever is left.
        m_server.set_timer(500, [this](const std::error_code&) { m_server.stop(); });
    });
}

std::shared_ptr<ProtocolServer::Client> ProtocolServer::clientOf(websocketpp::connection_hdl hdl) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto it = m_clients.find(hdl);
    return it == m_clients.end() ? nullptr : it->second;
}

void ProtocolServer::send(Client& client, const json& control) {
    client.connection->send(control.dump(), websocketpp::frame::opcode::text);  // a closing connection: dropped
}

void ProtocolServer::status(Client& client, int level, const std::string& text) {
    send(client, {{"op", "status"}, {"level", level}, {"message", text}});
}

void ProtocolServer::onOpen(websocketpp::connection_hdl hdl) {
    auto client = std::make_shared<Client>(m_server.get_con_from_hdl(hdl), m_limits);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_clients[hdl] = client;
    }
    send(*client, {{"op", "serverInfo"}, {"name", "vantrel bridge"}, {"capabilities", {"clientPublish"}},
                   {"supportedEncodings", {"json"}}, {"metadata", {{"domain", std::to_string(m_bus.domain())}}},
                   {"sessionId", std::to_string(nowNs())}});
    advertiseTo(*client, m_channels.advertised());
}

void ProtocolServer::onClose(websocketpp::connection_hdl hdl) {
    std::shared_ptr<Client> client;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto it = m_clients.find(hdl);
        if (it == m_clients.end()) return;
        client = it->second;
        client->closed = true;
        m_clients.erase(it);
    }
    for (const auto& [_, channel] : client->subscriptions) m_channels.unsubscribe(channel);
}

void ProtocolServer::onHttp(websocketpp::connection_hdl hdl) {
    auto con = m_server.get_con_from_hdl(hdl);
    HttpResponse r = m_monitor ? m_monitor->get(con->get_resource()) : HttpResponse{404, "text/plain", "not found\n"};
    con->set_status(static_cast<websocketpp::http::status_code::value>(r.status));
    con->append_header("Content-Type", r.type);
    con->append_header("Cache-Control", "no-store");
    con->set_body(std::move(r.body));
}

void ProtocolServer::onMessage(websocketpp::connection_hdl hdl, Server::message_ptr msg) {
    auto client = clientOf(hdl);
    if (!client) return;
    if (msg->get_opcode() == websocketpp::frame::opcode::text) control(*client, msg->get_payload());
    else clientData(*client, msg->get_payload());
}

void ProtocolServer::control(Client& client, const std::string& text) {
    json request;
    try {
        request = json::parse(text);
    } catch (const json::parse_error& e) {
        return status(client, kError, std::string("not a JSON control message: ") + e.what());
    }
    const std::string op = request.is_object() ? request.value("op", "") : "";
    try {
        if (op == "subscribe") return subscribe(client, request);
        if (op == "unsubscribe") return unsubscribe(client, request);
        if (op == "advertise") return clientAdvertise(client, request);
        if (op == "unadvertise") {
            for (const auto& id : request.at("channelIds")) client.published.erase(id.get<uint32_t>());
            return;
        }
    } catch (const json::exception& e) {
        return status(client, kError, op + ": malformed request: " + e.what());
    }
    status(client, kError, "unsupported operation \"" + op + "\"");
}

void ProtocolServer::subscribe(Client& client, const json& request) {
    for (const auto& s : request.at("subscriptions")) {
        const auto id = s.at("id").get<uint32_t>();
        const auto channel = s.at("channelId").get<uint32_t>();
        if (client.subscriptions.count(id)) {
            status(client, kError, "subscription " + std::to_string(id) + " exists already");
            continue;
        }
        if (!m_channels.subscribe(channel)) {
            status(client, kError, "no channel " + std::to_string(channel) + " is advertised");
            continue;
        }
        std::lock_guard<std::mutex> lock(m_mutex);
        client.subscriptions[id] = channel;
        client.byChannel[channel].insert(id);
    }
}

void ProtocolServer::unsubscribe(Client& client, const json& request) {
    for (const auto& s : request.at("subscriptionIds")) {
        const auto id = s.get<uint32_t>();
        uint32_t channel;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            const auto it = client.subscriptions.find(id);
            if (it == client.subscriptions.end()) continue;
            channel = it->second;
            client.subscriptions.erase(it);
            auto& ids = client.byChannel[channel];
            ids.erase(id);
            if (ids.empty()) client.byChannel.erase(channel);
        }
        m_channels.unsubscribe(channel);
    }
}

void ProtocolServer::clientAdvertise(Client& client, const json& request) {
    for (const auto& c : request.at("channels")) {
        const auto id = c.at("id").get<uint32_t>();
        const auto topic = c.at("topic").get<std::string>();
        const auto encoding = c.at("encoding").get<std::string>();
        if (encoding != "json") {
            status(client, kError, topic + ": encoding " + encoding + " is not supported (json only)");
            continue;
        }
        try {
            const auto& op = ClientPublisher::operationOf(topic, m_bus);
            client.published[id] = &op;
            m_publisher.prepare(op);
        } catch (const InputError& e) {
            status(client, kError, e.what());
        }
    }
}

void ProtocolServer::clientData(Client& client, const std::string& bytes) {
    if (bytes.size() < 5 || static_cast<uint8_t>(bytes[0]) != kMessageData)
        return status(client, kError, "unsupported binary message");
    uint32_t id = 0;
    for (int i = 0; i < 4; ++i) id |= static_cast<uint32_t>(static_cast<uint8_t>(bytes[1 + i])) << (8 * i);
    const auto it = client.published.find(id);
    if (it == client.published.end())
        return status(client, kError, "channel " + std::to_string(id) + " was not advertised by this client");
    try {
        m_publisher.publish(*it->second, bytes.substr(5));
    } catch (const InputError& e) {
        status(client, kError, e.what());
    }
}

void ProtocolServer::advertiseTo(Client& client, const std::vector<Channel>& channels) {
    json list = json::array();
    for (const auto& c : channels) {
        if (!client.advertisedChannels.insert(c.id).second) continue;
        list.push_back({{"id", c.id}, {"topic", c.topic}, {"encoding", "cdr"}, {"schemaName", c.op->typeName},
                        {"schema", c.dispose ? c.op->keySchema : c.op->schema}, {"schemaEncoding", "omgidl"}});
    }
    if (!list.empty()) send(client, {{"op", "advertise"}, {"channels", list}});
}

void ProtocolServer::advertised(const std::vector<Channel>& channels) {
    asio::post(m_server.get_io_service(), [this, channels] {
        std::vector<std::shared_ptr<Client>> clients;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            for (auto& [_, c] : m_clients) clients.push_back(c);
        }
        for (auto& c : clients) advertiseTo(*c, channels);
    });
}

void ProtocolServer::unadvertised(const std::vector<uint32_t>& channels) {
    asio::post(m_server.get_io_service(), [this, channels] {
        std::vector<std::shared_ptr<Client>> clients;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            for (auto& [_, c] : m_clients) clients.push_back(c);
        }
        for (auto& c : clients) {
            json gone = json::array();
            json ids = json::array();
            for (uint32_t ch : channels) {
                if (!c->advertisedChannels.erase(ch)) continue;
                gone.push_back(ch);
                for (const auto& [sub, subChannel] : c->subscriptions)
                    if (subChannel == ch) ids.push_back(sub);
            }
            if (!ids.empty()) unsubscribe(*c, {{"subscriptionIds", ids}});
            if (!gone.empty()) send(*c, {{"op", "unadvertise"}, {"channelIds", gone}});
        }
    });
}

void ProtocolServer::message(uint32_t channel, const Payload& payload, uint64_t logTime) {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto& [_, client] : m_clients) {
        const auto it = client->byChannel.find(channel);
        if (it == client->byChannel.end()) continue;
        bool wake = false;
        for (uint32_t sub : it->second) wake |= client->queue.push({payload, sub, logTime});
        if (wake) asio::post(m_server.get_io_service(), [this, c = client] { drain(c); });
    }
}

void ProtocolServer::drain(const std::shared_ptr<Client>& client) {
    if (client->closed) return;
    Outgoing m;
    while (client->connection->get_buffered_amount() < m_limits.socketBytes) {
        if (!client->queue.pop(m)) return;
        // The message data written straight into the connection's message: opcode, subscription, log time,
        // the serialized bytes.
        auto message = client->connection->get_message(websocketpp::frame::opcode::binary, 13 + m.payload->size());
        std::string& frame = message->get_raw_payload();
        frame.push_back(static_cast<char>(kMessageData));
        putLittleEndian(frame, m.subscription);
        putLittleEndian(frame, m.logTime);
        frame.append(reinterpret_cast<const char*>(m.payload->data()), m.payload->size());
        if (!client->connection->send(message)) ++m_sent;
    }
    // The socket is full: try again shortly, without waiting here.
    if (client->retryPending) return;
    client->retryPending = true;
    m_server.set_timer(10, [this, client](const std::error_code&) {
        client->retryPending = false;
        drain(client);
    });
}

void ProtocolServer::everySecond() {
    std::vector<std::shared_ptr<Client>> clients;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (auto& [_, c] : m_clients) clients.push_back(c);
    }
    for (auto& c : clients)
        if (const uint64_t fresh = c->queue.takeNewDrops())
            status(*c, kWarning, "dropped " + std::to_string(fresh) + " messages: this client did not keep up (" +
                                     std::to_string(c->queue.dropped()) + " dropped in all)");
    if (m_monitor) m_monitor->tick();
    m_server.set_timer(1000, [this](const std::error_code& e) { if (!e) everySecond(); });
}

json ProtocolServer::state() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    uint64_t dropped = 0, subscriptions = 0;
    for (const auto& [_, c] : m_clients) {
        dropped += c->queue.dropped();
        subscriptions += c->subscriptions.size();
    }
    return {{"clients", m_clients.size()}, {"subscriptions", subscriptions}, {"sent", m_sent.load()},
            {"dropped", dropped}, {"read_topics", m_channels.readers()}};
}

}  // namespace vantrel::tool::bridge
