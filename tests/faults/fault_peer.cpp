// vantrel-fault-peer: the client processes of test_killed_reader.cpp, also built for Windows (tests/windows).
//   listen DOMAIN NAME              a client of the M_Dialogue EventTextMessage stream ("n=<seq>" up to
//                                   "END <count>"); says "first ms= seq=", "end first_seq= received= total=
//                                   reported_lost="
//   victims DOMAIN ROUNDS ROUND_MS  from "go" on stdin, ROUNDS times kills a listener hard and restarts it;
//                                   says "victims restart_to_first_ms_max= restart_to_first_ms_median="
// Lines go to stdout, flushed; the first is "ready".
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ChildProcess.h"
#include "kelva/access/DeliveryStats.h"
#include "kelva/actors/Session.h"
#include "kelva/utils/System.h"
#include "vantrel/M_Dialogue.h"
#include "vantrel/test/Support.h"

namespace {

using Clock = std::chrono::steady_clock;

double msSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

void say(const std::string& line) {
    std::cout << line << std::endl;
}

int victimsFailed(const std::string& why) {
    say("victims error=" + why);
    return 1;
}

struct Listener : M_Dialogue::IClient {
    Clock::time_point start = Clock::now();
    std::mutex mutex;
    long received = 0;
    long firstSeq = -1;
    bool ended = false;
    void EventTextMessage(const std::string& text, const M_Dialogue::DialogueCategoryOptionalType&) override {
        std::lock_guard<std::mutex> lock(mutex);
        if (ended) return;
        if (text.rfind("END ", 0) == 0) {
            ended = true;
            say("end first_seq=" + std::to_string(firstSeq) + " received=" + std::to_string(received) + " total=" +
                text.substr(4) + " reported_lost=" + std::to_string(kelva::access::DeliveryStats::samplesLost()));
            return;
        }
        if (firstSeq < 0) {
            firstSeq = std::atol(text.c_str() + 2);
            std::ostringstream out;
            out << "first ms=" << msSince(start) << " seq=" << firstSeq;
            say(out.str());
        }
        ++received;
    }
    bool done() {
        std::lock_guard<std::mutex> lock(mutex);
        return ended;
    }
};

int listen(int domain, const std::string& name) {
    Listener listener;
    auto session = std::make_shared<kelva::actors::Session>(domain);
    auto client = M_Dialogue::Client::create(session, name, listener);
    say("ready");
    while (!listener.done()) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return 0;
}

int victims(const std::string& domain, int rounds, int roundMs) {
    const std::vector<std::string> listener{kelva::utils::system::programName(), "listen", domain, "victim"};
    auto victim = std::make_unique<ChildProcess>(listener);
    if (victim->lineStarting("ready").empty()) return victimsFailed("start");
    say("ready");
    std::string go;
    std::getline(std::cin, go);  // the stream runs
    if (victim->lineStarting("first").empty()) return victimsFailed("no-first-sample");
    std::vector<double> restartToFirst;
    for (int round = 0; round < rounds; ++round) {
        std::this_thread::sleep_for(std::chrono::milliseconds(roundMs / 2));
        victim->kill();
        const auto restarted = Clock::now();
        victim = std::make_unique<ChildProcess>(listener);
        if (victim->lineStarting("first", 60).empty()) return victimsFailed("restarted-victim-received-nothing");
        restartToFirst.push_back(msSince(restarted));
        std::this_thread::sleep_for(std::chrono::milliseconds(roundMs / 2));
    }
    victim->kill();
    std::sort(restartToFirst.begin(), restartToFirst.end());
    std::ostringstream out;
    out << "victims restart_to_first_ms_max=" << restartToFirst.back()
        << " restart_to_first_ms_median=" << restartToFirst[restartToFirst.size() / 2];
    say(out.str());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    std::string why;
    if (!vantrel::test::detail::loopbackConfigured(why)) {
        std::cerr << "vantrel-fault-peer: refusing to run: " << why << std::endl;
        return 2;
    }
    try {
        if (args.size() == 3 && args[0] == "listen") return listen(std::stoi(args[1]), args[2]);
        if (args.size() == 4 && args[0] == "victims") return victims(args[1], std::stoi(args[2]), std::stoi(args[3]));
    } catch (const std::exception& e) {
        std::cerr << "vantrel-fault-peer: " << e.what() << std::endl;
        return 1;
    }
    std::cerr << "usage: vantrel-fault-peer listen DOMAIN NAME | victims DOMAIN ROUNDS ROUND_MS\n";
    return 2;
}
