// One host's process of the multi-host tests (tests/network/): the alert service, a client or a monitor on
// a DDS domain, configured from the environment like any application (KELVA_CONFIG's [network], or the DDS
// layer's own CYCLONEDDS_URI). It prints one machine-readable line per event on stdout and takes commands
// on stdin, one per line, so that the harness can orchestrate several of them and check what happened.
//
//   alert-node service <domain> <clients>             readers of every command; expects <clients> clients
//   alert-node client  <domain> <name> <readers>      writers of every command; expects <readers> readers
//                                                     (the service and the monitor) on each
//   alert-node monitor <domain> <clients>             Service::createMonitor and Client::createMonitor on a
//                                                     MonitorSession: sees every command and every report
//
// Every line ends in "t=<ms>", the monotonic clock (CLOCK_MONOTONIC, the same in every network namespace),
// so the harness can put the lines of all hosts on one time line.
//   start                         at the top of main
//   ready                         the facades exist
//   discovered <ms>               every watched endpoint has its expected peers matched; <ms> since start
//   match missing=<n>             the most peers any watched endpoint lacks changed (a lost host shows)
//   received <Op> <sender> <seq>  a command (CmdRaiseAlarm carries the client's name and a number)
//   report AlarmLog <id> <value>  a keyed transient-local report arrived (client, monitor)
//   report AlertStatus <value>
//   reported <value> us=<n>       service: the two report sends of a value took n microseconds in all
//   sent <seq> us=<n>             client: one command send took n microseconds
//   done <what> max_us=<n> exceptions=<n>   the end of a command from stdin
//   error <what>
//
// Commands (stdin):
//   service: report <first> <count> <interval_ms>   ReportAlarmLog("state", value) and ReportAlertStatus(value)
//   client:  send <first> <count> <interval_ms>     CmdRaiseAlarm(name, seq) for seq = first, first + 1, ...
//   all:     quit  (also end of input, and a deadline of <VANTREL_NODE_DEADLINE_S> s, 240 by default)
#include <dds/dds.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "kelva/actors/Session.h"
#include "vantrel/M_Alert.h"

namespace {

using Clock = std::chrono::steady_clock;
const Clock::time_point g_start = Clock::now();
std::mutex g_out;

double monotonicMs() {
    return std::chrono::duration<double, std::milli>(Clock::now().time_since_epoch()).count();
}

// One line on stdout, whole and flushed, whichever thread writes it.
void say(const std::string& line) {
    char stamp[48];
    std::snprintf(stamp, sizeof stamp, " t=%.3f", monotonicMs());
    std::lock_guard<std::mutex> lock(g_out);
    std::cout << line << stamp << std::endl;
}

long long sinceStartMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - g_start).count();
}

// ---- matching, read from the DDS layer's own statuses ------------------------------------------------

// An endpoint the node watches: a writer or reader of this process whose topic name starts with a prefix,
// with the number of remote peers it needs matched.
struct Watch {
    std::string prefix;
    bool writers;
    int32_t needed;
};

// The smallest match count over the process's writers (or readers) on topics that start with `prefix`,
// and how many such endpoints there are.
std::pair<int32_t, int> minMatched(dds_domainid_t domain, const Watch& watch) {
    dds_entity_t participants[8];
    const dds_return_t np = dds_lookup_participant(domain, participants, 8);
    int32_t least = INT32_MAX;
    int endpoints = 0;
    for (dds_return_t p = 0; p < std::min<dds_return_t>(np, 8); ++p) {
        dds_entity_t groups[64];
        const dds_return_t ng = dds_get_children(participants[p], groups, 64);
        for (dds_return_t g = 0; g < std::min<dds_return_t>(ng, 64); ++g) {
            dds_entity_t ends[256];
            const dds_return_t ne = dds_get_children(groups[g], ends, 256);
            for (dds_return_t e = 0; e < std::min<dds_return_t>(ne, 256); ++e) {
                int32_t count = -1;
                if (watch.writers) {
                    dds_publication_matched_status_t st;
                    if (dds_get_publication_matched_status(ends[e], &st) == DDS_RETCODE_OK)
                        count = static_cast<int32_t>(st.current_count);
                } else {
                    dds_subscription_matched_status_t st;
                    if (dds_get_subscription_matched_status(ends[e], &st) == DDS_RETCODE_OK)
                        count = static_cast<int32_t>(st.current_count);
                }
                if (count < 0) continue;  // not that kind of endpoint (or a topic)
                char name[256];
                const dds_entity_t topic = dds_get_topic(ends[e]);
                if (topic < 0 || dds_get_name(topic, name, sizeof name) < 0) continue;
                if (std::string(name).rfind(watch.prefix, 0) != 0) continue;
                ++endpoints;
                least = std::min(least, count);
            }
        }
    }
    return {endpoints ? least : 0, endpoints};
}

// Polls the watched endpoints every 10 ms: says "discovered" once every one has its peers, and "match" with
// the smallest count relative to what is needed whenever it changes (a lost peer shows as a drop).
class MatchWatcher {
public:
    MatchWatcher(dds_domainid_t domain, std::vector<Watch> watches) : m_domain(domain), m_watches(std::move(watches)) {
        m_thread = std::thread([this] { run(); });
    }
    ~MatchWatcher() {
        m_stop = true;
        m_thread.join();
    }

private:
    void run() {
        bool discovered = false;
        int32_t lastShortfall = -1;
        while (!m_stop) {
            int32_t shortfall = 0;  // the largest number of missing peers over the watches
            for (const auto& w : m_watches) {
                const auto [least, endpoints] = minMatched(m_domain, w);
                shortfall = std::max(shortfall, endpoints == 0 ? w.needed : std::max(0, w.needed - least));
            }
            if (shortfall != lastShortfall) {
                say("match missing=" + std::to_string(shortfall));
                lastShortfall = shortfall;
            }
            if (!discovered && shortfall == 0) {
                discovered = true;
                say("discovered " + std::to_string(sinceStartMs()));
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }

    dds_domainid_t m_domain;
    std::vector<Watch> m_watches;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

// ---- the roles ---------------------------------------------------------------------------------------

std::string text(const M_Alert::AlertIdListType& ids) {
    std::string out;
    for (const auto& id : ids) out += (out.empty() ? "" : ",") + id;
    return out.empty() ? "-" : out;
}

// Says every command it receives. The service and the monitor both use it.
class CommandPrinter : public M_Alert::IService {
public:
    void CmdRaiseAlarm(const M_Alert::AlarmConditionInfoType& c) override {
        say("received CmdRaiseAlarm " + c.SubsystemName + " " + c.ComponentName);
    }
    void CmdResolveAlarm(const M_Alert::AlarmConditionInfoType& c) override {
        say("received CmdResolveAlarm " + c.SubsystemName + " " + c.ComponentName);
    }
    void CmdAcknowledgeAlarm(const M_Alert::AlertIdListType& ids) override {
        say("received CmdAcknowledgeAlarm " + text(ids));
    }
    void CmdOverrideAlarmCondition(const M_Alert::AlarmConditionInfoType& c) override {
        say("received CmdOverrideAlarmCondition " + c.SubsystemName + " " + c.ComponentName);
    }
    void CmdUnoverrideAlarmCondition(const M_Alert::AlarmConditionInfoType& c) override {
        say("received CmdUnoverrideAlarmCondition " + c.SubsystemName + " " + c.ComponentName);
    }
    void CmdClearAlarm(const M_Alert::AlertIdListType& ids) override { say("received CmdClearAlarm " + text(ids)); }
    void CmdRaiseThreatAlert(const M_Alert::AlertIdType& id, const M_Alert::ThreatLogType&) override {
        say("received CmdRaiseThreatAlert " + id);
    }
    void CmdCancelThreatAlert(const M_Alert::AlertIdListType& ids) override {
        say("received CmdCancelThreatAlert " + text(ids));
    }
};

// Says the two keyed, transient-local reports the tests follow. Clients and the monitor use it.
class ReportPrinter : public M_Alert::IClient {
public:
    void ReportAlarmLog(const std::string& id, const M_Alert::AlarmLogType& log, bool dispose) override {
        say("report AlarmLog " + id + " " + (dispose ? std::string("disposed") : log.Condition.AlarmDescription));
    }
    void ReportAlertStatus(const M_Alert::AlertStatusType& status, bool dispose) override {
        say("report AlertStatus " +
            (dispose ? std::string("disposed") : std::to_string(status.NumberOfActiveWarningAlarms)));
    }
};

long long elapsedUs(Clock::time_point since) {
    return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - since).count();
}

// Runs `one(i)` for i = first .. first + count - 1, `intervalMs` apart (on a fixed schedule, so that a slow
// send does not stretch the run), and says the longest duration and the number of exceptions.
template <class One>
void paced(const std::string& what, long first, long count, long intervalMs, One one) {
    long long maxUs = 0;
    int exceptions = 0;
    const auto begin = Clock::now();
    for (long i = 0; i < count; ++i) {
        std::this_thread::sleep_until(begin + std::chrono::milliseconds(i * intervalMs));
        try {
            maxUs = std::max(maxUs, one(first + i));
        } catch (const std::exception& e) {
            ++exceptions;
            say("error " + what + " " + std::to_string(first + i) + ": " + e.what());
        }
    }
    say("done " + what + " max_us=" + std::to_string(maxUs) + " exceptions=" + std::to_string(exceptions));
}

// Reads commands until "quit" or the end of input; `handle` gets each other line split into words.
template <class Handle>
void commandLoop(Handle handle) {
    std::string line;
    while (std::getline(std::cin, line)) {
        std::istringstream in(line);
        std::vector<std::string> words;
        for (std::string w; in >> w;) words.push_back(w);
        if (words.empty()) continue;
        if (words[0] == "quit") break;
        if (!handle(words)) say("error unknown command: " + line);
    }
}

bool threeNumbers(const std::vector<std::string>& words, long& a, long& b, long& c) {
    if (words.size() != 4) return false;
    a = std::atol(words[1].c_str());
    b = std::atol(words[2].c_str());
    c = std::atol(words[3].c_str());
    return b >= 0 && c >= 0;
}

int runService(int domain, int clients) {
    auto session = std::make_shared<kelva::actors::Session>(domain);
    CommandPrinter printer;
    auto service = M_Alert::Service::create(session, "alert-service", printer);
    // Readers of all eight commands, each matched to every client's writer (the monitor writes none).
    MatchWatcher watcher(domain, {{"M_Alert_IService_", false, clients}});
    say("ready");
    commandLoop([&](const std::vector<std::string>& words) {
        long first = 0, count = 0, interval = 0;
        if (words[0] != "report" || !threeNumbers(words, first, count, interval)) return false;
        paced("report", first, count, interval, [&](long value) {
            M_Alert::AlarmLogType log;
            log.Status = M_Alert::AlarmStatusKind::Active;
            log.Category = M_Alert::AlarmCategoryKind::Warning;
            log.Condition =
                M_Alert::AlarmConditionInfoType("Network", "Harness", "State", "Changed", "v" + std::to_string(value));
            M_Alert::AlertStatusType status;
            status.NumberOfActiveWarningAlarms = static_cast<uint32_t>(value);
            const auto t0 = Clock::now();
            service->ReportAlarmLog("state", log, false);
            service->ReportAlertStatus(status, false);
            const long long us = elapsedUs(t0);
            say("reported " + std::to_string(value) + " us=" + std::to_string(us));
            return us;
        });
        return true;
    });
    service.invalidate();
    return 0;
}

int runClient(int domain, const std::string& name, int readers) {
    auto session = std::make_shared<kelva::actors::Session>(domain);
    ReportPrinter printer;
    auto client = M_Alert::Client::create(session, name, printer);
    // Writers of all eight commands matched to the service and the monitor; the two report readers to the
    // service's writers.
    MatchWatcher watcher(domain, {{"M_Alert_IService_", true, readers}, {"M_Alert_IClient_", false, 1}});
    say("ready");
    commandLoop([&](const std::vector<std::string>& words) {
        long first = 0, count = 0, interval = 0;
        if (words[0] != "send" || !threeNumbers(words, first, count, interval)) return false;
        paced("send", first, count, interval, [&](long seq) {
            const M_Alert::AlarmConditionInfoType condition(name, std::to_string(seq), "Sequence", "Test", "");
            const auto t0 = Clock::now();
            client->CmdRaiseAlarm(condition);
            const long long us = elapsedUs(t0);
            say("sent " + std::to_string(seq) + " us=" + std::to_string(us));
            return us;
        });
        return true;
    });
    client.invalidate();
    return 0;
}

int runMonitor(int domain, int clients) {
    auto monitor = std::make_shared<kelva::actors::MonitorSession>(domain);
    CommandPrinter commands;
    ReportPrinter reports;
    auto commandSide = M_Alert::Service::createMonitor(monitor, commands);
    auto reportSide = M_Alert::Client::createMonitor(monitor, reports);
    MatchWatcher watcher(domain, {{"M_Alert_IService_", false, clients}, {"M_Alert_IClient_", false, 1}});
    say("ready");
    commandLoop([](const std::vector<std::string>&) { return false; });
    reportSide.invalidate();
    commandSide.invalidate();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    say("start");
    const std::string role = argc > 1 ? argv[1] : "";
    if (argc < 4 || (role == "client" && argc < 5)) {
        std::cerr << "usage: alert-node service <domain> <clients> | client <domain> <name> <readers> | "
                     "monitor <domain> <clients>"
                  << std::endl;
        return 2;
    }
    // A node that its harness forgot still ends.
    const char* deadline = std::getenv("VANTREL_NODE_DEADLINE_S");
    const int seconds = deadline ? std::atoi(deadline) : 240;
    std::thread([seconds] {
        std::this_thread::sleep_for(std::chrono::seconds(seconds));
        say("error deadline reached");
        std::_Exit(3);
    }).detach();

    const int domain = std::atoi(argv[2]);
    try {
        if (role == "service") return runService(domain, std::atoi(argv[3]));
        if (role == "client") return runClient(domain, argv[3], std::atoi(argv[4]));
        if (role == "monitor") return runMonitor(domain, std::atoi(argv[3]));
    } catch (const std::exception& e) {
        say(std::string("error ") + e.what());
        return 1;
    }
    std::cerr << "alert-node: unknown role " << role << std::endl;
    return 2;
}
