// vantrel-bench: the frame (module facades) against raw ddsc with the same idlc types and the same QoS, on
// loopback, and the vantrel tool beside plain ddsc. It prints a table of ratios for the parts named
// (without names: all of them; Parts.h lists them).
// Every part repeats (the frame/raw parts after a warm-up) and reports the median with the spread
// [min..max] over repetitions. The two-process parts run this binary again as their peer ("vantrel-bench
// peer <role> ..."); the peer talks to the parent over its stdin/stdout and ends when its stdin closes.
// The tool parts run the vantrel executable of this build beside it.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "Parts.h"
#include "Table.h"

namespace vantrel::bench {
namespace {

std::string machine() {
    std::ifstream cpuinfo("/proc/cpuinfo");
    std::string line, model = "unknown cpu";
    while (std::getline(cpuinfo, line))
        if (line.rfind("model name", 0) == 0) {
            model = line.substr(line.find(':') + 2);
            break;
        }
    std::ifstream loadavg("/proc/loadavg");
    std::string l1;
    loadavg >> l1;
    return model + ", " + std::to_string(std::thread::hardware_concurrency()) + " cpus, load " + l1;
}

// The parts by name; no names: all of them.
int runParts(const std::vector<std::string>& parts) {
    auto want = [&](const char* part) { return parts.empty() || std::find(parts.begin(), parts.end(), part) != parts.end(); };
    const int base = 1 + static_cast<int>(getpid() % 190);  // domains base .. base+19
    const std::time_t now = std::time(nullptr);
    char date[32];
    std::strftime(date, sizeof date, "%Y-%m-%d %H:%M", std::localtime(&now));
    std::printf("vantrel-bench %s on %s\n", date, machine().c_str());
    std::printf("medians [min..max] over repetitions; frame = module facades, raw = ddsc dds_write/dds_take, same types and QoS;\n"
                "frame and raw repetitions alternate; frame/raw is the median [min..max] of the ratios of each pair\n\n");
    row("part", "frame", "raw", "frame/raw", "target");
    row("----", "-----", "---", "---------", "------");

    if (want("small")) smallRows(base);
    if (want("large")) largeRows(base);
    if (want("roundtrip")) roundTripRows(base);
    if (want("latency")) latencyRows(base);
    if (want("send")) sendRows(base, 7);
    if (want("startup")) startupRows(base);
    if (want("secure")) secureRows(base);
    if (want("python")) pythonRows(base);
    if (want("record")) recordRows();
    if (want("rate")) rateRows();
#ifdef VANTREL_BENCH_BRIDGE
    if (want("bridge")) bridgeRows();
#endif
    std::printf("\nload at end: %s\n", machine().c_str());
    return 0;
}

int runPeer(int argc, char** argv) {
    alarm(300);  // a peer whose parent hangs does not outlive it by much
    const std::string role = argc > 2 ? argv[2] : "";
    if (role == "sink" && argc == 6) return peerSink(argv[3], argv[4], std::atoi(argv[5]));
    if (role == "echo" && argc == 5) return peerEcho(argv[3], std::atoi(argv[4]));
    if (role == "pong" && argc == 5) return peerPong(argv[3], std::atoi(argv[4]));
    if (role == "startup" && argc == 4) return peerStartup(std::atoi(argv[3]));
    if (role == "services" && argc == 4) return peerServices(std::atoi(argv[3]));
    if (role == "subscriber" && argc == 6) return peerSubscriber(argv[3], std::atoi(argv[4]), std::atol(argv[5]));
#ifdef VANTREL_BENCH_BRIDGE
    if (role == "bridge-client" && argc == 6) return peerBridgeClient(std::atoi(argv[3]), argv[4], std::atol(argv[5]));
#endif
    std::fprintf(stderr, "vantrel-bench: unknown peer role\n");
    return 2;
}

}  // namespace
}  // namespace vantrel::bench

int main(int argc, char** argv) {
    using namespace vantrel::bench;
    // Loopback only: the repository's configuration unless the caller chose one.
    setenv("CYCLONEDDS_URI", "file://" VANTREL_BENCH_LOOPBACK_CONFIG, 0);
    try {
        if (argc > 1 && std::string(argv[1]) == "peer") return runPeer(argc, argv);
        if (argc == 5 && std::string(argv[1]) == "profile") return profile(argv[2], argv[3], std::atoi(argv[4]));
        const std::vector<std::string> parts(argv + 1, argv + argc);
        const std::vector<std::string> known{"small", "large", "roundtrip", "latency", "send", "startup", "secure", "python", "record", "rate", "bridge"};
        if (std::all_of(parts.begin(), parts.end(), [&](const std::string& p) { return std::find(known.begin(), known.end(), p) != known.end(); }))
            return runParts(parts);
        std::fprintf(stderr,
                     "usage: vantrel-bench [small] [large] [roundtrip] [latency] [send] [startup] [secure] [python] [record] [rate] [bridge]\n"
                     "       (no part: all; prints the table)\n"
                     "       vantrel-bench profile <frame|raw> <small|large|large-all> <n>   (one process, for a profiler)\n");
        return 2;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "vantrel-bench: %s\n", e.what());
        return 1;
    }
}
