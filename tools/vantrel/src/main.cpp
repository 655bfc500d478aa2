// vantrel: see, call, record and replay every operation of the bus.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "SecurityCommand.h"
#include "kelva/config/Config.h"
#include "vantrel/tool/Errors.h"
#include "vantrel/tool/Verbs.h"

using namespace vantrel::tool;

namespace {

// The end of --help (and so of the manual page, which is made from it).
constexpr const char* kEnvironmentAndExitCodes = R"(
Environment:
  VANTREL_DOMAIN   the DDS domain of every verb that takes --domain/-d (the option wins)
  CYCLONEDDS_URI   the DDS layer's configuration (network, discovery): a tool that should see
                   processes on the loopback profile needs the same file://.../cyclonedds-loopback.xml
  KELVA_CONFIG     the toolkit's configuration file (topic names, QoS, network, security), as the
                   library's processes read it

Exit status:
  0  done (also when interrupted with Ctrl-C)
  1  a failure while running (the DDS layer refused an entity, a send or a write; a file
     could not be written)
  2  bad input: an unknown option, verb, operation or module, malformed JSON, an unreadable recording
     or configuration; nothing is sent or written)";

std::optional<int> domainId(const std::string& text) {
    if (text.empty() || text.size() > 3 || text.find_first_not_of("0123456789") != std::string::npos) return {};
    const int id = std::stoi(text);
    return id <= 232 ? std::optional<int>(id) : std::nullopt;
}

std::string domainError(const std::string& value, const char* from) {
    return "'" + value + "' from " + from + " is not a DDS domain id (0 to 232)";
}

// VANTREL_DOMAIN for the chosen verb when it takes a domain and its command line has none. Read here, not
// by the parser's environment option: that would fill the one domain variable the verbs share from every
// verb's option, over the one given.
bool domainFromEnvironment(const std::vector<std::pair<const CLI::App*, const CLI::Option*>>& options, int& domain) {
    const char* value = std::getenv("VANTREL_DOMAIN");
    const auto chosen = std::find_if(options.begin(), options.end(), [](const auto& o) { return o.first->parsed(); });
    if (!value || chosen == options.end() || chosen->second->count() > 0) return true;
    const auto id = domainId(value);
    if (!id) {
        std::cerr << "vantrel: " << domainError(value, "VANTREL_DOMAIN") << "\n";
        return false;
    }
    domain = *id;
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"vantrel: see, call, record and replay the operations of the bus"};
    app.require_subcommand(1);
    app.set_version_flag("--version", "vantrel 9.10.0");
    app.footer(kEnvironmentAndExitCodes);
    int domain = 0;
    std::vector<std::pair<const CLI::App*, const CLI::Option*>> domainOptions;
    auto domainOption = [&](CLI::App* verb) {
        domainOptions.emplace_back(verb, verb->add_option("--domain,-d", domain, "DDS domain (default: $VANTREL_DOMAIN, else 0)")
                                    ->check(CLI::Validator(
                                        [](std::string& value) {
                                            return domainId(value) ? std::string() : domainError(value, "-d");
                                        },
                                        "0..232")));
    };

    ListOptions listO;
    auto* list = app.add_subcommand("list", "modules, operations, topics, keys and default QoS");
    list->add_option("PATTERN", listO.pattern, "glob over M_X.IService.Op, or a module glob");
    list->add_flag("--json", listO.json, "one JSON object a line");

    ShowOptions showO;
    auto* show = app.add_subcommand("show", "an operation's API signature, wire members, keys, version");
    show->add_option("WHAT", showO.what, "M_X, M_X.Op or M_X.IService.Op (globs allowed)")->required();
    show->add_flag("--schema", showO.schema, "also the flattened IDL a recording carries");

    PsOptions psO;
    auto* ps = app.add_subcommand("ps", "live processes, sessions, actors, matches and mismatches");
    domainOption(ps);
    ps->add_option("--wait", psO.wait, "seconds of discovery before reporting (default 2)");
    ps->add_flag("--json", psO.json, "one JSON document");

    EchoOptions echoO;
    auto* echo = app.add_subcommand("echo", "decoded live traffic, one line per sample");
    domainOption(echo);
    echo->add_flag("--json", echoO.json, "one JSON object a line");
    echo->add_option("--count,-n", echoO.count, "stop after this many samples");
    echo->add_option("--duration", echoO.duration, "stop after this many seconds");
    echo->add_flag("--keys", echoO.keys, "only the key members of each sample");
    echo->add_option("PATTERN", echoO.patterns, "globs over M_X.IService.Op (default: all)");

    RateOptions hzO, bwO;
    bwO.bandwidth = true;
    for (auto [verb, o, text] : {std::tuple{"hz", &hzO, "per-topic rate"}, std::tuple{"bw", &bwO, "per-topic bandwidth"}}) {
        auto* v = app.add_subcommand(verb, text);
        domainOption(v);
        v->add_option("--window,-w", o->window, "seconds of samples each figure covers (default 5)");
        v->add_option("--duration", o->duration, "stop after this many seconds");
        v->add_flag("--json", o->json, "one JSON object a line");
        v->add_option("PATTERN", o->patterns, "globs over M_X.IService.Op (default: all)");
    }

    CallOptions callO;
    auto* call = app.add_subcommand("call", "send one operation with JSON arguments");
    call->alias("pub");
    domainOption(call);
    call->add_option("OPERATION", callO.operation, "M_X.Op or M_X.IService.Op")->required();
    call->add_option("JSON", callO.arguments, "arguments by API member name (default {})");
    call->add_option("--rate,-r", callO.rate, "sends per second");
    call->add_option("--count,-n", callO.count, "how many times (default 1)");
    call->add_flag("--dispose", callO.dispose, "dispose the keyed instance instead of writing");
    call->add_option("--name", callO.name, "the sending actor's name (default vantrel-call)");
    call->add_flag("--quiet,-q", callO.quiet, "print nothing per send");
    call->add_option("--settle", callO.settle, "seconds for discovery before the first send (default 1)");

    RecordOptions recordO;
    auto* record = app.add_subcommand("record", "record to an MCAP file");
    domainOption(record);
    record->add_option("-o,--output", recordO.output, "file (default vantrel-<time>.mcap)");
    record->add_option("--duration", recordO.duration, "stop after this many seconds");
    record->add_option("--compression", recordO.compression, "zstd (default), lz4 or none")
        ->check(CLI::IsMember({"zstd", "lz4", "none"}));
    record->add_flag("--force", recordO.force, "overwrite an existing file");
    record->add_option("--split-size", recordO.splitSize, "start a new file before this one passes this many MB")
        ->check(CLI::NonNegativeNumber);
    record->add_option("--split-duration", recordO.splitDuration, "start a new file every this many seconds")
        ->check(CLI::NonNegativeNumber);
    record->add_flag("--quiet,-q", recordO.quiet, "no progress line on the terminal");
    record->add_option("PATTERN", recordO.patterns, "globs over M_X.IService.Op (default: all)");

    ReplayOptions replayO;
    auto* replay = app.add_subcommand("replay", "write a recording onto the bus again");
    domainOption(replay);
    replay->add_option("--rate,-r", replayO.rate, "time scale (default 1; 0: as fast as possible)");
    replay->add_flag("--loop", replayO.loop, "start over at the end");
    replay->add_option("--start", replayO.start, "seconds into the recording to start at");
    replay->add_option("--topics", replayO.topics, "glob over M_X.IService.Op or topic names");
    replay->add_option("--wait-match", replayO.waitMatch, "seconds to wait for readers first (default 2)");
    replay->add_flag("--quiet,-q", replayO.quiet, "no progress line on the terminal");
    replay->add_option("FILE", replayO.file, "MCAP file")->required();

    InfoOptions infoO;
    auto* info = app.add_subcommand("info", "summary of a recording");
    info->add_option("FILE", infoO.file, "MCAP file")->required();
    info->add_flag("--json", infoO.json, "one JSON document");

    RecoverOptions recoverO;
    auto* recover = app.add_subcommand("recover", "rewrite a recording whose recorder died as a complete file");
    recover->add_option("FILE", recoverO.file, "the broken MCAP file")->required();
    recover->add_option("-o,--output", recoverO.output, "the complete file to write")->required();
    recover->add_flag("--force", recoverO.force, "overwrite an existing output file");

#ifdef VANTREL_WITH_BRIDGE
    BridgeOptions bridgeO;
    auto* bridge = app.add_subcommand("bridge", "the bus live: the viewers' WebSocket protocol and a web monitor");
    domainOption(bridge);
    bridge->add_option("--address", bridgeO.address, "address to listen on (default 127.0.0.1)");
    bridge->add_option("--port", bridgeO.port, "TCP port (default 8765; 0: a free one)")->check(CLI::Range(0, 65535));
    bridge->add_option("--name", bridgeO.name, "the actor that sends what clients publish (default vantrel-bridge)");
    bridge->add_option("--queue", bridgeO.queue, "messages a client may have waiting before the oldest are dropped")
        ->check(CLI::PositiveNumber);
    bridge->add_option("PATTERN", bridgeO.patterns, "globs over M_X.IService.Op (default: all)");
#endif

    SecurityCommand security(app);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        const int rc = app.exit(e);
        return rc == 0 ? 0 : 2;
    }
    if (!domainFromEnvironment(domainOptions, domain)) return 2;
    installInterruptHandler();
    try {
        if (*list) return vantrel::tool::list(listO);
        if (*show) return vantrel::tool::show(showO);
        if (*ps) { psO.domain = domain; return vantrel::tool::ps(psO); }
        if (*echo) { echoO.domain = domain; return vantrel::tool::echo(echoO); }
        for (auto* o : {&hzO, &bwO}) o->domain = domain;
        if (app.got_subcommand("hz")) return rate(hzO);
        if (app.got_subcommand("bw")) return rate(bwO);
        if (*call) { callO.domain = domain; return vantrel::tool::call(callO); }
        if (*record) { recordO.domain = domain; return vantrel::tool::record(recordO); }
        if (*replay) { replayO.domain = domain; return vantrel::tool::replay(replayO); }
        if (*info) return vantrel::tool::info(infoO);
        if (*recover) return vantrel::tool::recover(recoverO);
#ifdef VANTREL_WITH_BRIDGE
        if (*bridge) { bridgeO.domain = domain; return serveBridge(bridgeO); }
#endif
        if (security.chosen()) return security.run();
    } catch (const InputError& e) {
        std::cerr << "vantrel: " << e.what() << "\n";
        return 2;
    } catch (const kelva::config::ConfigError& e) {
        std::cerr << "vantrel: " << e.what() << "\n";
        return 2;
    } catch (const std::exception& e) {
        std::cerr << "vantrel: " << e.what() << "\n";
        return 1;
    }
    return 0;
}
