// Start-up at full scale: the client and service of every module in one process (time, resident memory),
// and two processes, clients here and services in a peer, until every endpoint is matched.
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "AllModules.h"
#include "Child.h"
#include "Common.h"
#include "Parts.h"
#include "Table.h"
#include "kelva/actors/SessionImpl.h"

namespace vantrel::bench {

namespace {

long residentKiB() {
    std::ifstream statm("/proc/self/statm");
    long pages = 0, resident = 0;
    statm >> pages >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

struct Endpoints {
    int total = 0, matched = 0;
};

// The module endpoints (topics "M_...") of a participant and how many of them have a match.
Endpoints moduleEndpoints(dds_entity_t participant) {
    auto children = [](dds_entity_t e) {
        std::vector<dds_entity_t> out(4096);
        const dds_return_t n = dds_get_children(e, out.data(), out.size());
        out.resize(n > 0 ? std::min<std::size_t>(static_cast<std::size_t>(n), out.size()) : 0);
        return out;
    };
    Endpoints result;
    for (dds_entity_t group : children(participant)) {
        for (dds_entity_t e : children(group)) {
            const dds_entity_t topic = dds_get_topic(e);
            char name[256];
            if (topic < 0 || dds_get_name(topic, name, sizeof name) < 0 || std::strncmp(name, "M_", 2) != 0) continue;
            dds_publication_matched_status_t pub{};
            dds_subscription_matched_status_t sub{};
            if (dds_get_publication_matched_status(e, &pub) == DDS_RETCODE_OK) {
                ++result.total;
                result.matched += pub.current_count > 0;
            } else if (dds_get_subscription_matched_status(e, &sub) == DDS_RETCODE_OK) {
                ++result.total;
                result.matched += sub.current_count > 0;
            }
        }
    }
    return result;
}

dds_entity_t participantOf(const std::shared_ptr<Session>& session) {
    return kelva::actors::SessionImpl::getSessionImpl(*session)->participant();
}

// Polls until every module endpoint of the session has a match; returns the endpoint count.
int waitAllMatched(const std::shared_ptr<Session>& session, int timeoutMs) {
    const dds_entity_t participant = participantOf(session);
    const auto t0 = Clock::now();
    for (;;) {
        const Endpoints e = moduleEndpoints(participant);
        if (e.total > 0 && e.matched == e.total) return e.total;
        if (secondsSince(t0) * 1000 > timeoutMs)
            throw std::runtime_error("match: " + std::to_string(e.matched) + " of " + std::to_string(e.total) + " matched");
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

struct Startup {
    std::vector<double> createMs, rssMiB, matchMs;
    int endpointsOne = 0, endpointsTwo = 0;
};

Startup startup(int domain, int reps) {
    Startup s;
    for (int rep = 0; rep < reps; ++rep) {
        Child peer = Child::peer({"startup", std::to_string(domain)});
        std::istringstream in(peer.waitFor("startup", 60).substr(8));
        double ms = 0;
        long before = 0, after = 0;
        in >> ms >> before >> after >> s.endpointsOne;
        s.createMs.push_back(ms);
        s.rssMiB.push_back(static_cast<double>(after - before) / 1024.0);
    }
    for (int rep = 0; rep < reps; ++rep) {
        const int d = domain + 1 + rep;
        const auto t0 = Clock::now();
        Child peer = Child::peer({"services", std::to_string(d)});
        auto session = makeSession(d);
        auto all = createAllModules(session, true, false);
        s.endpointsTwo = waitAllMatched(session, 60000);
        std::istringstream in(peer.waitFor("matched", 60).substr(8));
        int theirs = 0;
        double theirMs = 0;
        in >> theirMs >> theirs;
        s.endpointsTwo += theirs;
        s.matchMs.push_back(secondsSince(t0) * 1000);
    }
    return s;
}

}  // namespace

// Peer: the client and the service of every module in this process; prints time and resident memory.
int peerStartup(int domain) {
    const long before = residentKiB();
    const auto t0 = Clock::now();
    auto session = makeSession(domain);
    auto all = createAllModules(session, true, true);
    const double ms = secondsSince(t0) * 1000;
    const int endpoints = moduleEndpoints(participantOf(session)).total;
    say("startup " + std::to_string(ms) + " " + std::to_string(before) + " " + std::to_string(residentKiB()) + " " +
        std::to_string(endpoints));
    return 0;
}

// Peer: the service of every module; reports once all its endpoints are matched.
int peerServices(int domain) {
    const auto t0 = Clock::now();
    auto session = makeSession(domain);
    auto all = createAllModules(session, false, true);
    const int endpoints = waitAllMatched(session, 60000);
    say("matched " + std::to_string(secondsSince(t0) * 1000) + " " + std::to_string(endpoints));
    waitForStdinEof();
    return 0;
}

void startupRows(int base) {
    const Startup st = startup(base + 8, 3);
    const std::string modules = std::to_string(moduleCount());
    row("4 create " + modules + " clients+services (ms)", fmtSummary(st.createMs), "-", "-",
        std::to_string(st.endpointsOne) + " endpoints");
    row("4 resident memory of that (MiB)", fmtSummary(st.rssMiB, 1), "-", "-", "-");
    row("4 two processes all matched (ms)", fmtSummary(st.matchMs), "-", "-",
        std::to_string(st.endpointsTwo) + " endpoints");
}

}  // namespace vantrel::bench
