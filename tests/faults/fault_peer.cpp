// vantrel-fault-peer: the processes of the killed-reader scenario, and the scenario itself.
//
//   vantrel-fault-peer stream DOMAIN RATE_HZ           a service streaming M_Dialogue EventTextMessage
//                                                       from "go" to "stop" on its stdin
//   vantrel-fault-peer listen DOMAIN NAME              a client counting what it receives
//   vantrel-fault-peer victims DOMAIN ROUNDS ROUND_MS  a victim listener that, from "go" on its stdin,
//                                                       ROUNDS times is killed hard (SIGKILL, or
//                                                       TerminateProcess on Windows) and restarted; prints
//                                                       the time from each restart to its first sample
//   vantrel-fault-peer scenario DOMAIN ROUNDS RATE_HZ [ROUND_MS]
//       starts a stream, a healthy listener and the victims; prints one line of figures: sends, exceptions,
//       the longest send, what the healthy listener lost, and the victims' restart figures. The victims are
//       this program's, or those of the command in VANTREL_FAULT_VICTIMS (a Windows build's, under Wine).
//
// Every process prints lines "key=value ..." on stdout; the scenario reads them. DDS traffic stays where
// CYCLONEDDS_URI puts it (the loopback configuration in tests).
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
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
    std::cout << line << std::endl;  // flushed: the scenario reads it through a pipe
}

int stream(int domain, int rateHz) {
    auto session = std::make_shared<kelva::actors::Session>(domain);
    auto service = M_Dialogue::Service::createWriteOnly(session, "streamer");
    say("ready");
    std::string line;
    std::getline(std::cin, line);  // "go": every listener is in place
    // Streams until the scenario says "stop" (after its last round), however long its rounds took.
    std::atomic<bool> stop{false};
    std::thread stopper([&] {
        std::string s;
        while (std::getline(std::cin, s) && s != "stop") {
        }
        stop = true;
    });

    const auto period = std::chrono::nanoseconds(1000000000LL / rateHz);
    long total = 0;
    long exceptions = 0;
    double longest = 0;
    std::vector<double> durations;
    auto next = Clock::now();
    for (long seq = 0; !stop.load(); ++seq, ++total) {
        const auto before = Clock::now();
        try {
            service->EventTextMessage("n=" + std::to_string(seq), {});
        } catch (const std::exception& e) {
            ++exceptions;
            std::cerr << "send " << seq << " threw: " << e.what() << std::endl;
        }
        const double took = msSince(before);
        durations.push_back(took);
        longest = std::max(longest, took);
        next += period;
        std::this_thread::sleep_until(next);
    }
    stopper.join();
    // The end marker carries the count; repeated so that a listener that is being restarted right now
    // still sees one (volatile topic, it is not resent).
    for (int i = 0; i < 5; ++i) {
        service->EventTextMessage("END " + std::to_string(total), {});
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    std::sort(durations.begin(), durations.end());
    const double p99 = durations.empty() ? 0 : durations[durations.size() * 99 / 100];
    std::ostringstream out;
    out << "stream sent=" << total << " exceptions=" << exceptions << " longest_send_ms=" << longest
        << " p99_send_ms=" << p99;
    say(out.str());
    return 0;
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
            say("end first_seq=" + std::to_string(firstSeq) + " received=" + std::to_string(received) +
                " total=" + text.substr(4) + " reported_lost=" + std::to_string(kelva::access::DeliveryStats::samplesLost()));
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

// This program with `args`.
std::vector<std::string> self(std::vector<std::string> args) {
    args.insert(args.begin(), kelva::utils::system::programName());
    return args;
}

// "key=value" of a line, or -1.
double field(const std::string& line, const std::string& key) {
    const auto at = line.find(key + "=");
    if (at == std::string::npos) return -1;
    return std::atof(line.c_str() + at + key.size() + 1);
}

int victims(int domain, int rounds, int roundMs) {
    const std::string d = std::to_string(domain);
    auto victim = std::make_unique<ChildProcess>(self({"listen", d, "victim"}));
    if (victim->lineStarting("ready").empty()) {
        say("victims error=start");
        return 1;
    }
    say("ready");
    std::string go;
    std::getline(std::cin, go);  // the stream runs
    if (victim->lineStarting("first").empty()) {
        say("victims error=no-first-sample");
        return 1;
    }
    std::vector<double> restartToFirst;
    for (int round = 0; round < rounds; ++round) {
        std::this_thread::sleep_for(std::chrono::milliseconds(roundMs / 2));
        victim->kill();
        const auto restarted = Clock::now();
        victim = std::make_unique<ChildProcess>(self({"listen", d, "victim"}));
        if (victim->lineStarting("first", 60).empty()) {
            say("victims error=restarted-victim-received-nothing");
            return 1;
        }
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

// The victims' command: VANTREL_FAULT_VICTIMS (words separated by spaces) or this program.
std::vector<std::string> victimsCommand(const std::string& domain, int rounds, int roundMs) {
    std::vector<std::string> args{"victims", domain, std::to_string(rounds), std::to_string(roundMs)};
    const char* external = std::getenv("VANTREL_FAULT_VICTIMS");
    if (!external || !*external) return self(args);
    std::vector<std::string> command;
    std::istringstream words(external);
    for (std::string w; words >> w;) command.push_back(w);
    command.insert(command.end(), args.begin(), args.end());
    return command;
}

int scenario(int domain, int rounds, int rateHz, int roundMs) {
    const std::string d = std::to_string(domain);
    ChildProcess streamer(self({"stream", d, std::to_string(rateHz)}));
    ChildProcess healthy(self({"listen", d, "healthy"}));
    ChildProcess victimsProcess(victimsCommand(d, rounds, roundMs));
    if (streamer.lineStarting("ready").empty() || healthy.lineStarting("ready").empty() ||
        victimsProcess.lineStarting("ready", 120).empty()) {
        say("scenario error=start");
        return 1;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1000));  // discovery and matching on loopback
    streamer.tell("go");
    victimsProcess.tell("go");
    if (healthy.lineStarting("first").empty()) {
        say("scenario error=no-first-sample");
        return 1;
    }
    const std::string restarts = victimsProcess.lineStarting("victims", 120 + rounds * (roundMs / 1000 + 60));
    streamer.tell("stop");
    const std::string end = healthy.lineStarting("end", 30);
    const std::string stats = streamer.lineStarting("stream", 30);
    if (restarts.empty() || restarts.find("error=") != std::string::npos) {
        say("scenario error=victims " + restarts);
        return 1;
    }
    if (end.empty() || stats.empty()) {
        say("scenario error=no-end-of-stream");
        return 1;
    }
    streamer.wait();
    healthy.wait();
    victimsProcess.wait();
    const double total = field(end, "total"), first = field(end, "first_seq"), received = field(end, "received");
    std::ostringstream out;
    out << "scenario rounds=" << rounds << " rate_hz=" << rateHz << " sent=" << field(stats, "sent")
        << " exceptions=" << field(stats, "exceptions") << " longest_send_ms=" << field(stats, "longest_send_ms")
        << " p99_send_ms=" << field(stats, "p99_send_ms") << " healthy_lost=" << (total - first - received)
        << " restart_to_first_ms_max=" << field(restarts, "restart_to_first_ms_max")
        << " restart_to_first_ms_median=" << field(restarts, "restart_to_first_ms_median");
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
        if (args.size() == 3 && args[0] == "stream") return stream(std::stoi(args[1]), std::stoi(args[2]));
        if (args.size() == 3 && args[0] == "listen") return listen(std::stoi(args[1]), args[2]);
        if (args.size() == 4 && args[0] == "victims")
            return victims(std::stoi(args[1]), std::stoi(args[2]), std::stoi(args[3]));
        if ((args.size() == 4 || args.size() == 5) && args[0] == "scenario")
            return scenario(std::stoi(args[1]), std::stoi(args[2]), std::stoi(args[3]), args.size() == 5 ? std::stoi(args[4]) : 2000);
    } catch (const std::exception& e) {
        std::cerr << "vantrel-fault-peer: " << e.what() << std::endl;
        return 1;
    }
    std::cerr << "usage: vantrel-fault-peer stream DOMAIN RATE_HZ | listen DOMAIN NAME |"
                 " victims DOMAIN ROUNDS ROUND_MS | scenario DOMAIN ROUNDS RATE_HZ [ROUND_MS]\n";
    return 2;
}
