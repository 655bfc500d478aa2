// vantrel-fault-peer: the processes of the killed-reader scenario, and the scenario itself.
//
//   vantrel-fault-peer stream DOMAIN RATE_HZ           a service streaming M_Dialogue EventTextMessage
//                                                       from "go" to "stop" on its stdin
//   vantrel-fault-peer listen DOMAIN NAME              a client counting what it receives
//   vantrel-fault-peer scenario DOMAIN ROUNDS RATE_HZ [ROUND_MS]
//       starts a stream, a healthy listener and a victim listener; ROUNDS times kills the victim with
//       SIGKILL and restarts it; prints one line of figures: sends, exceptions, the longest send, what the
//       healthy listener lost, and the time from each restart to the restarted victim's first sample.
//
// Every process prints lines "key=value ..." on stdout; the scenario reads them. DDS traffic stays where
// CYCLONEDDS_URI puts it (the loopback configuration in tests).
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

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

#include "kelva/access/DeliveryStats.h"
#include "kelva/actors/Session.h"
#include "vantrel/M_Dialogue.h"
#include "vantrel/test/Support.h"

extern char** environ;

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

// A child process of this program with its stdin and stdout on pipes.
class Child {
public:
    explicit Child(const std::vector<std::string>& args) {
        int in[2], out[2];
        if (pipe(in) != 0 || pipe(out) != 0) throw std::runtime_error("pipe failed");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, in[0], 0);
        posix_spawn_file_actions_adddup2(&actions, out[1], 1);
        posix_spawn_file_actions_addclose(&actions, in[1]);
        posix_spawn_file_actions_addclose(&actions, out[0]);
        std::vector<char*> argv;
        for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        if (posix_spawn(&m_pid, "/proc/self/exe", &actions, nullptr, argv.data(), environ) != 0)
            throw std::runtime_error("posix_spawn failed");
        posix_spawn_file_actions_destroy(&actions);
        close(in[0]);
        close(out[1]);
        m_in = fdopen(in[1], "w");
        m_out = out[0];
    }
    ~Child() {
        kill(SIGKILL);
        if (m_in) fclose(m_in);
        ::close(m_out);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // The next line the child prints; empty at its end or when `deadline` passed first.
    std::string line(Clock::time_point deadline) {
        for (;;) {
            const auto nl = m_buffer.find('\n');
            if (nl != std::string::npos) {
                std::string s = m_buffer.substr(0, nl);
                m_buffer.erase(0, nl + 1);
                return s;
            }
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
            if (left <= 0) return "";
            pollfd fd{m_out, POLLIN, 0};
            if (::poll(&fd, 1, static_cast<int>(left)) <= 0) continue;
            char chunk[4096];
            const ssize_t n = ::read(m_out, chunk, sizeof chunk);
            if (n <= 0) return "";
            m_buffer.append(chunk, static_cast<std::size_t>(n));
        }
    }
    // Lines until one that starts with `prefix` (returned); empty at the child's end or after `seconds`.
    std::string lineStarting(const std::string& prefix, int seconds = 30) {
        const auto deadline = Clock::now() + std::chrono::seconds(seconds);
        for (std::string s = line(deadline);; s = line(deadline)) {
            if (s.empty() || s.rfind(prefix, 0) == 0) return s;
        }
    }
    void tell(const std::string& text) {
        fputs((text + "\n").c_str(), m_in);
        fflush(m_in);
    }
    void kill(int signal) {
        if (m_pid <= 0) return;
        ::kill(m_pid, signal);
        int status = 0;
        waitpid(m_pid, &status, 0);
        m_pid = 0;
    }
    void wait() {
        int status = 0;
        if (m_pid > 0) waitpid(m_pid, &status, 0);
        m_pid = 0;
    }

private:
    pid_t m_pid = 0;
    FILE* m_in = nullptr;
    int m_out = -1;
    std::string m_buffer;
};

// "key=value" of a line, or -1.
double field(const std::string& line, const std::string& key) {
    const auto at = line.find(key + "=");
    if (at == std::string::npos) return -1;
    return std::atof(line.c_str() + at + key.size() + 1);
}

int scenario(int domain, int rounds, int rateHz, int roundMs) {
    const std::string d = std::to_string(domain);
    Child streamer({"vantrel-fault-peer", "stream", d, std::to_string(rateHz)});
    Child healthy({"vantrel-fault-peer", "listen", d, "healthy"});
    auto victim = std::make_unique<Child>(std::vector<std::string>{"vantrel-fault-peer", "listen", d, "victim"});
    if (streamer.lineStarting("ready").empty() || healthy.lineStarting("ready").empty() ||
        victim->lineStarting("ready").empty()) {
        say("scenario error=start");
        return 1;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1000));  // discovery and matching on loopback
    streamer.tell("go");
    if (healthy.lineStarting("first").empty() || victim->lineStarting("first").empty()) {
        say("scenario error=no-first-sample");
        return 1;
    }
    std::vector<double> restartToFirst;
    for (int round = 0; round < rounds; ++round) {
        std::this_thread::sleep_for(std::chrono::milliseconds(roundMs / 2));
        victim->kill(SIGKILL);
        const auto restarted = Clock::now();
        victim = std::make_unique<Child>(std::vector<std::string>{"vantrel-fault-peer", "listen", d, "victim"});
        if (victim->lineStarting("first").empty()) {
            say("scenario error=restarted-victim-received-nothing");
            return 1;
        }
        restartToFirst.push_back(msSince(restarted));
        std::this_thread::sleep_for(std::chrono::milliseconds(roundMs / 2));
    }
    streamer.tell("stop");
    const std::string end = healthy.lineStarting("end", 30);
    const std::string stats = streamer.lineStarting("stream", 30);
    if (end.empty() || stats.empty()) {
        say("scenario error=no-end-of-stream");
        return 1;
    }
    streamer.wait();
    healthy.wait();
    victim->kill(SIGKILL);
    const double total = field(end, "total"), first = field(end, "first_seq"), received = field(end, "received");
    std::sort(restartToFirst.begin(), restartToFirst.end());
    std::ostringstream out;
    out << "scenario rounds=" << rounds << " rate_hz=" << rateHz << " sent=" << field(stats, "sent")
        << " exceptions=" << field(stats, "exceptions") << " longest_send_ms=" << field(stats, "longest_send_ms")
        << " p99_send_ms=" << field(stats, "p99_send_ms") << " healthy_lost=" << (total - first - received)
        << " restart_to_first_ms_max=" << (restartToFirst.empty() ? -1 : restartToFirst.back())
        << " restart_to_first_ms_median=" << (restartToFirst.empty() ? -1 : restartToFirst[restartToFirst.size() / 2]);
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
        if ((args.size() == 4 || args.size() == 5) && args[0] == "scenario")
            return scenario(std::stoi(args[1]), std::stoi(args[2]), std::stoi(args[3]), args.size() == 5 ? std::stoi(args[4]) : 2000);
    } catch (const std::exception& e) {
        std::cerr << "vantrel-fault-peer: " << e.what() << std::endl;
        return 1;
    }
    std::cerr << "usage: vantrel-fault-peer stream DOMAIN RATE_HZ | listen DOMAIN NAME |"
                 " scenario DOMAIN ROUNDS RATE_HZ [ROUND_MS]\n";
    return 2;
}
