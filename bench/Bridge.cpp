// The bridge part: "vantrel bridge" with one subscribed protocol client beside a plain ddsc subscriber of
// the same stream in the same run (messages each receives, the bridge's CPU against the subscriber's), and
// the bridge with no client while the stream runs (it reads nothing: its CPU against an idle bridge's).
// The protocol client is this binary as a peer ("peer bridge-client <port> <topic> <expected>").
#ifndef ASIO_STANDALONE
#define ASIO_STANDALONE
#endif
#include <websocketpp/client.hpp>
#include <websocketpp/config/asio_no_tls_client.hpp>

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <thread>
#include <vector>

#include "Child.h"
#include "Domains.h"
#include "Parts.h"
#include "Table.h"
#include "ToolStreams.h"

namespace vantrel::bench {

namespace {

using Clock = std::chrono::steady_clock;
const char* const kTool = VANTREL_BENCH_TOOL;

// The number after `prefix` in the line of `child` that starts with it (waited for up to `seconds`).
long numberIn(Child& child, const std::string& prefix, double seconds) {
    return std::atol(child.waitFor(prefix, seconds).c_str() + prefix.size());
}

// The bridge on a free port of 127.0.0.1 for the stream's operation; returns its port.
int bridgePort(Child& bridge) {
    const std::string line = bridge.waitFor("bridge:", 30);
    const auto at = line.find("ws://127.0.0.1:");
    if (at == std::string::npos) throw std::runtime_error("the bridge printed no address: " + line);
    return std::atoi(line.c_str() + at + 15);
}

void sendStream(StreamWriter& writer, long n, double hz) {
    const auto t0 = Clock::now();
    for (long i = 0; i < n; ++i) {
        if (hz > 0)
            std::this_thread::sleep_until(t0 + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(i / hz)));
        writer.write(static_cast<uint32_t>(i + 1));
    }
}

struct BridgeRun {
    long client = 0, subscriber = 0;
    double bridgeCpu = 0, subscriberCpu = 0;
};

BridgeRun withClient(Stream stream, int domain, long n, double hz, std::vector<std::string>& failures) {
    const StreamInfo& s = infoOf(stream);
    const std::string d = std::to_string(domain), count = std::to_string(n);
    Child bridge({kTool, "bridge", "-d", d, "--port", "0", s.operation});
    const int port = bridgePort(bridge);
    Child subscriber = Child::peer({"subscriber", s.name, d, count});
    subscriber.waitFor("ready", 30);
    StreamWriter writer(stream, domain);  // its writer advertises the channel the client subscribes to
    Child client = Child::peer({"bridge-client", std::to_string(port), s.topic, count});
    client.waitFor("ready", 30);
    writer.waitMatched(2, 30);
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    sendStream(writer, n, hz);
    writer.flush(30);
    BridgeRun run;
    for (Child* c : {&subscriber, &client})
        if (c->nextOrEmpty("have", 60).empty()) failures.push_back(std::string(s.name) + ": not all " + count + " arrived");
    bridge.interrupt();
    subscriber.closeInput();
    client.closeInput();
    run.client = numberIn(client, "count ", 30);
    run.subscriber = numberIn(subscriber, "count ", 30);
    const Child::End b = bridge.finish(30), sub = subscriber.finish(30);
    client.finish(30);
    run.bridgeCpu = b.cpuSeconds;
    run.subscriberCpu = sub.cpuSeconds;
    if (b.exitCode != 0) failures.push_back(std::string(s.name) + ": the bridge ended with " + std::to_string(b.exitCode));
    return run;
}

// The bridge with no client beside a plain subscriber while the stream runs, and an idle bridge (a domain
// without traffic) over the same time.
BridgeRun withoutClient(Stream stream, int domain, int idleDomain, long n, double hz) {
    const StreamInfo& s = infoOf(stream);
    const std::string d = std::to_string(domain);
    Child bridge({kTool, "bridge", "-d", d, "--port", "0", s.operation});
    Child idle({kTool, "bridge", "-d", std::to_string(idleDomain), "--port", "0", s.operation});
    bridgePort(bridge);
    bridgePort(idle);
    StreamWriter writer(stream, domain);
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    sendStream(writer, n, hz);
    writer.flush(30);
    bridge.interrupt();
    idle.interrupt();
    BridgeRun run;
    run.bridgeCpu = bridge.finish(30).cpuSeconds;
    run.subscriberCpu = idle.finish(30).cpuSeconds;  // the idle bridge's, in this run
    return run;
}

}  // namespace

void bridgeRows() {
    constexpr int kReps = 3;
    struct Case {
        Stream stream;
        long n;
        double hz;
        const char* label;
    };
    const Case cases[] = {{Stream::Small, 20000, 0, "CmdRaiseAlarm x20000"}, {Stream::Large, 150, 30, "1 MB x150 at 30 Hz"}};
    const Domains domains(static_cast<int>(std::size(cases)) * kReps + 2);
    std::size_t next = 0;
    std::vector<std::string> failures;
    row("bridge part", "vantrel bridge", "plain subscriber", "bridge/plain", "target");
    for (const Case& c : cases) {
        std::vector<double> client, subscriber, bridgeCpu, subCpu, ratio;
        bool equal = true;
        for (int rep = 0; rep < kReps; ++rep) {
            const BridgeRun r = withClient(c.stream, domains[next++], c.n, c.hz, failures);
            client.push_back(static_cast<double>(r.client));
            subscriber.push_back(static_cast<double>(r.subscriber));
            bridgeCpu.push_back(r.bridgeCpu * 1e3);
            subCpu.push_back(r.subscriberCpu * 1e3);
            ratio.push_back(r.bridgeCpu / r.subscriberCpu);
            equal = equal && r.client == r.subscriber && r.subscriber == c.n;
        }
        row(std::string("10 bridge client ") + c.label + " (msgs)", fmtSummary(client), fmtSummary(subscriber),
            "sent " + std::to_string(c.n), "all, equal " + verdict(equal));
        row("10 same, CPU whole run (ms)", fmtSummary(bridgeCpu), fmtSummary(subCpu), fmtSummary(ratio, 2),
            "<= 1.50 " + verdict(summarize(ratio).median <= 1.5));
    }
    const int idleDomain = domains[next++];
    const BridgeRun none = withoutClient(Stream::Small, domains[next++], idleDomain, 20000, 0);
    row("10 no client, CmdRaiseAlarm x20000: CPU (ms)", fmt(none.bridgeCpu * 1e3, 0), fmt(none.subscriberCpu * 1e3, 0) + " (idle bridge)",
        fmt(none.bridgeCpu / none.subscriberCpu, 2), "~ idle " + verdict(none.bridgeCpu <= 1.5 * none.subscriberCpu + 0.02));
    if (!failures.empty()) {
        std::string all;
        for (const auto& f : failures) all += "\n  " + f;
        throw std::runtime_error("bridge part:" + all);
    }
}

int peerBridgeClient(int port, const std::string& topic, long expected) {
    using Client = websocketpp::client<websocketpp::config::asio_client>;
    Client client;
    client.clear_access_channels(websocketpp::log::alevel::all);
    client.clear_error_channels(websocketpp::log::elevel::all);
    client.init_asio();
    long count = 0;
    bool subscribed = false;
    client.set_message_handler([&](websocketpp::connection_hdl hdl, Client::message_ptr msg) {
        if (msg->get_opcode() == websocketpp::frame::opcode::binary) {
            if (++count == expected) say("have " + std::to_string(expected));
            return;
        }
        const auto control = nlohmann::json::parse(msg->get_payload());
        if (subscribed || control.value("op", "") != "advertise") return;
        uint32_t channel = 0;
        for (const auto& c : control["channels"])
            if (c["topic"] == topic && (channel == 0 || c["id"].get<uint32_t>() < channel)) channel = c["id"].get<uint32_t>();
        if (channel == 0) return;
        const nlohmann::json request = {{"op", "subscribe"}, {"subscriptions", {{{"id", 1}, {"channelId", channel}}}}};
        client.send(hdl, request.dump(), websocketpp::frame::opcode::text);
        subscribed = true;
        say("ready");
    });
    std::error_code ec;
    auto connection = client.get_connection("ws://127.0.0.1:" + std::to_string(port), ec);
    if (ec) throw std::runtime_error("bridge client: " + ec.message());
    connection->add_subprotocol("foxglove.websocket.v1");
    client.connect(connection);
    std::thread loop([&] { client.run(); });
    waitForStdinEof();
    client.stop();
    loop.join();
    say("count " + std::to_string(count));
    return 0;
}

}  // namespace vantrel::bench
