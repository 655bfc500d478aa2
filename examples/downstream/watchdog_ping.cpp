// A downstream application built against the installed package: a watchdog service and a client on two
// sessions; the client configures a watch, the service reports its status back. Exit code 0 when it did.
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <thread>

#include "kelva/actors/Session.h"
#include "vantrel/M_Watchdog.h"

namespace {

struct Watchdog : M_Watchdog::IService {
    M_Watchdog::Service* facade = nullptr;
    std::atomic<bool> ready{false};
    void ConfigWatch(const std::string& client, const std::string& service, const M_Common::StringListType& ops,
                     bool dispose) override {
        while (!ready) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        (*facade)->ReportWatchStatus(client, service, M_Watchdog::WatchStatusType(ops), dispose);
    }
};

struct Console : M_Watchdog::IClient {
    std::atomic<bool> seen{false};
    void ReportWatchStatus(const std::string& client, const std::string&, const M_Watchdog::WatchStatusType& status,
                           bool) override {
        std::cout << "status for " << client << ": " << status.WatchedOperations.size() << " operations" << std::endl;
        seen = true;
    }
};

}  // namespace

int main(int argc, char** argv) {
    const int domain = argc > 1 ? std::atoi(argv[1]) : 0;
    auto serviceSession = std::make_shared<kelva::actors::Session>(domain);
    auto clientSession = std::make_shared<kelva::actors::Session>(domain);
    Watchdog watchdog;
    auto service = M_Watchdog::Service::create(serviceSession, "watchdog", watchdog);
    watchdog.facade = &service;
    watchdog.ready = true;
    Console console;
    auto client = M_Watchdog::Client::create(clientSession, "console", console);
    client.waitUntilConnected();
    client->ConfigWatch("camera-app", "M_Camera", {"CmdZoom", "CmdFocus"}, false);
    for (int i = 0; i < 500 && !console.seen; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return console.seen ? 0 : 1;
}
