// vantrel ps: who takes part in a domain (BusView), after a few seconds of discovery.
#include <chrono>
#include <iostream>
#include <thread>

#include "vantrel/tool/Bus.h"
#include "vantrel/tool/BusView.h"
#include "vantrel/tool/Verbs.h"

namespace vantrel::tool {

using nlohmann::json;

int ps(const PsOptions& o) {
    Bus bus(o.domain);
    BusView view(bus);
    std::this_thread::sleep_for(std::chrono::duration<double>(o.wait));
    const json out = view.snapshot();
    if (o.json) {
        std::cout << out.dump(2) << "\n";
        return 0;
    }
    std::cout << "domain " << o.domain << ": " << out["processes"].size() << " processes, " << out["sessions"].size()
              << " sessions, " << out["actors"].size() << " actors\n";
    auto peerList = [](const json& ops, const char* count) {
        std::string text;
        for (const auto& [name, peers] : ops.items()) text += " " + name + "(" + std::to_string(peers[count].get<std::size_t>()) + ")";
        return text;
    };
    for (const auto& p : out["processes"]) {
        std::cout << "process " << p["program"].get<std::string>() << " (pid " << p["pid"] << " on "
                  << p["host"].get<std::string>() << ")\n";
        for (const auto& s : out["sessions"]) {
            if (s["pid"] != p["pid"] || s["host"] != p["host"]) continue;
            std::cout << "  session " << s["id"].get<std::string>() << (s["monitor"].get<bool>() ? " (monitor)" : "") << "\n";
            for (const auto& a : out["actors"]) {
                if (a["session"] != s["id"]) continue;
                std::cout << "    actor " << a["name"].get<std::string>() << "  " << a["module"].get<std::string>() << " "
                          << a["side"].get<std::string>() << "  interface " << a["version"].get<std::string>() << "  id "
                          << a["id"].get<std::string>() << "\n";
                if (!a["sends"].empty()) std::cout << "      sends:" << peerList(a["sends"], "readers") << "\n";
                if (!a["reads"].empty()) std::cout << "      reads:" << peerList(a["reads"], "writers") << "\n";
            }
        }
    }
    std::cout << "(n): matched readers of what an actor sends, writers of what it reads\n";
    if (out["mismatches"].empty()) std::cout << "no QoS, type or interface version mismatches\n";
    for (const auto& m : out["mismatches"]) std::cout << "MISMATCH " << m.get<std::string>() << "\n";
    return 0;
}

}  // namespace vantrel::tool
