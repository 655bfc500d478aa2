#pragma once
// The benchmark's parts, each printing its rows of the table; `base` is the first of the DDS domain ids
// of the run (a part uses base + its own offsets). The tool parts take theirs through Domains.
//   small, large  throughput, frame against raw, writer here and reader in a peer (Throughput.cpp)
//   roundtrip     CmdRaiseAlarm answered by ReportAlarmLog (RoundTrip.cpp)
//   latency       the smallest round trip, against raw waitset and listener ping-pongs (Latency.cpp)
//   send          the send path in-process, time and heap allocations per call (SendPath.cpp)
//   startup       every module's client and service in one process; two processes matching (Startup.cpp)
//   secure        the frame with DDS security against the same without it (Secure.cpp)
//   python        the Python binding's send against the frame's in C++ (Python.cpp)
//   record        the vantrel tool's recorder beside a plain ddsc subscriber; its recordings compared
//                 byte for byte with what was sent, replayed, recorded again and compared (ToolParts.cpp)
//   rate          what "vantrel hz" and "vantrel bw" report against what was sent (ToolParts.cpp)
//   bridge        "vantrel bridge" with one protocol client beside a plain ddsc subscriber; with no client
//                 against an idle bridge (Bridge.cpp; in a build with the bridge)
// A part throws when a process does not answer or end in time, or a count or byte differs.
#include <string>

namespace vantrel::bench {

void smallRows(int base);
void largeRows(int base);
void roundTripRows(int base);
void latencyRows(int base);
void sendRows(int base, int reps);
void startupRows(int base);
void secureRows(int base);
void pythonRows(int base);
void recordRows();
void rateRows();
void bridgeRows();

// "vantrel-bench profile <frame|raw> <small|large|large-all> <n>": one writer and one reader in this one
// process, for a profiler such as callgrind (SendPath.cpp).
int profile(const std::string& variant, const std::string& size, int n);

// The peers the parts start ("vantrel-bench peer <role> ..."); each returns the process's exit code.
int peerSink(const std::string& variant, const std::string& size, int domain);  // sink <frame|raw> <size> <domain>
int peerEcho(const std::string& variant, int domain);                           // echo <frame|raw> <domain>
int peerPong(const std::string& variant, int domain);                           // pong <frame|raw-waitset|raw-listener> <domain>
int peerStartup(int domain);                                                    // startup <domain>
int peerServices(int domain);                                                   // services <domain>
int peerSubscriber(const std::string& stream, int domain, long expected);       // subscriber <small|large> <domain> <expected>
int peerBridgeClient(int port, const std::string& topic, long expected);        // bridge-client <port> <topic> <expected>

}  // namespace vantrel::bench
