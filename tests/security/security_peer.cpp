// A secured application for the security tests: one session (secured through KELVA_CONFIG) with a facade of
// one side of each given module, driven over stdin/stdout so a test sees the whole exchange from outside.
//   security_peer service|client[-write-only] DOMAIN MARKER MODULE...
// stdout: "ready" once the facades exist; "received|disposed M_X.I...Op {json or keys}" per received operation;
// per send "sent|sent-disposal M_X.I...Op {json}" or "refused M_X.I...Op: <reason>"; "sent-all" after a
// round; "done" at the end. stdin: "send" sends every operation of the side once, "dispose" disposes every
// keyed one (a round of its own: a keep-last reader that has not taken a sample yet would see only the
// disposal); end of input releases facades and session and ends the program.
#include <iostream>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "kelva/actors/Session.h"
#include "vantrel/catalog/Facade.h"
#include "vantrel/tool/JsonForm.h"
#include "vantrel/tool/WireSample.h"

using namespace vantrel;

namespace {

std::mutex outputMutex;

void say(const std::string& line) {
    std::lock_guard<std::mutex> lock(outputMutex);
    std::cout << line << std::endl;
}

// MARKER in every text member of the struct and its nested structs (cut to a bounded string's bound); the
// rest keeps its zero value. `first` skips a message's kelva_sending_actor.
nlohmann::json markedValue(const catalog::StructInfo& type, const std::string& marker, uint32_t first = 0) {
    nlohmann::json value = nlohmann::json::object();
    for (uint32_t i = first; i < type.count; ++i) {
        const auto& m = type.members[i];
        if (m.type.kind == catalog::Kind::String) value[m.name] = marker;
        if (m.type.kind == catalog::Kind::BoundedString) value[m.name] = marker.substr(0, m.type.bound);
        if (m.type.kind == catalog::Kind::Struct) value[m.name] = markedValue(*m.type.structure, marker);
    }
    return value;
}

void sendRound(catalog::Facade& facade, const catalog::ModuleInfo& module, catalog::Role side, const std::string& marker,
               bool dispose) {
    for (uint32_t i = 0; i < module.operationCount; ++i) {
        const auto& op = module.operations[i];
        if (op.sender() != side || (dispose && !op.dispose)) continue;
        tool::WireSample message(op);
        tool::fromJson(markedValue(*op.message, marker, 1), *op.message, message.data(), "");
        try {
            facade.send(op, message.data(), dispose);
            say((dispose ? "sent-disposal " : "sent ") + op.qualifiedName() + " " +
                tool::toJson(*op.message, message.data(), false).dump());
        } catch (const std::exception& e) {
            say("refused " + op.qualifiedName() + ": " + e.what());
        }
    }
}

int run(int argc, char** argv) {
    if (argc < 5)
        throw std::invalid_argument("usage: security_peer service|client[-write-only] DOMAIN MARKER MODULE...");
    std::string sideText = argv[1];
    const auto writeOnly = sideText.find("-write-only");
    const bool receives = writeOnly == std::string::npos;
    if (!receives) sideText.erase(writeOnly);
    const catalog::Role side = sideText == "service" ? catalog::Role::Service : catalog::Role::Client;
    const int domain = std::stoi(argv[2]);
    const std::string marker = argv[3];

    auto session = std::make_shared<kelva::actors::Session>(domain);
    std::vector<std::pair<const catalog::ModuleInfo*, std::unique_ptr<catalog::Facade>>> facades;
    for (int i = 4; i < argc; ++i) {
        const auto* module = catalog::findModule(argv[i]);
        if (!module) throw std::invalid_argument(std::string("unknown module ") + argv[i]);
        catalog::FacadeRequest request;
        request.role = side;
        request.creation = receives ? catalog::Creation::Custom : catalog::Creation::WriteOnly;
        request.session = session;
        request.name = "security-peer-" + sideText;
        if (receives) {
            request.sink = [](const catalog::OperationInfo& op, const void* message, bool dispose) {
                const auto value =
                    dispose ? tool::keysToJson(*op.message, message) : tool::toJson(*op.message, message, false);
                say((dispose ? "disposed " : "received ") + op.qualifiedName() + " " + value.dump());
            };
        }
        facades.emplace_back(module, catalog::createFacade(*module, request));
    }
    say("ready");
    for (std::string command; std::getline(std::cin, command);) {
        if (command != "send" && command != "dispose") continue;
        for (auto& [module, facade] : facades) sendRound(*facade, *module, side, marker, command == "dispose");
        say("sent-all");
    }
    for (auto& entry : facades) entry.second->invalidate();
    facades.clear();
    session.reset();
    say("done");
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& e) {
        std::cerr << "security_peer: " << e.what() << std::endl;
        return 1;
    }
}
