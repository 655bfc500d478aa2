#pragma once
// The tool's verbs. Each returns the process exit code: 0 done, 1 a transport failure, 2 bad input
// (InputError, before anything is sent or written).
#include <cstdint>
#include <string>
#include <vector>

namespace vantrel::tool {

struct ListOptions { std::string pattern; bool json = false; };
int list(const ListOptions& o);

struct ShowOptions { std::string what; bool schema = false; };
int show(const ShowOptions& o);

struct PsOptions { int domain = 0; double wait = 2.0; bool json = false; };
int ps(const PsOptions& o);

struct EchoOptions {
    int domain = 0;
    bool json = false;
    long count = 0;        // 0: until interrupted
    bool keys = false;     // only the key members
    double duration = 0;   // seconds; 0: until interrupted
    std::vector<std::string> patterns;
};
int echo(const EchoOptions& o);

struct RateOptions {
    int domain = 0;
    bool bandwidth = false;  // bw rather than hz
    double window = 5.0;     // seconds of samples each figure covers
    double duration = 0;     // 0: until interrupted
    bool json = false;
    std::vector<std::string> patterns;
};
int rate(const RateOptions& o);

struct CallOptions {
    int domain = 0;
    std::string operation;
    std::string arguments = "{}";
    double rate = 0;  // sends per second when count > 1; 0: as fast as possible
    long count = 1;
    bool dispose = false;
    std::string name = "vantrel-call";
    // Seconds for discovery before the first send: the library's first write waits for one reader, and a
    // one-shot call should reach every reader on the bus.
    double settle = 1.0;
    bool quiet = false;
};
int call(const CallOptions& o);

struct RecordOptions {
    int domain = 0;
    std::string output;
    double duration = 0;
    std::string compression = "zstd";
    bool force = false;
    double splitSize = 0;      // MB (10^6 bytes) a file may hold about; 0: no limit
    double splitDuration = 0;  // seconds of messages a file holds; 0: no limit
    bool quiet = false;        // no progress line
    std::vector<std::string> patterns;
};
int record(const RecordOptions& o);

struct ReplayOptions {
    int domain = 0;
    double rate = 1.0;  // 0: as fast as possible
    bool loop = false;
    double start = 0;   // seconds into the recording
    std::string topics; // glob over operations (M_X.IService.Op) or topic names; empty: all
    double waitMatch = 2.0;
    bool quiet = false;  // no progress line
    std::string file;
};
int replay(const ReplayOptions& o);

struct BridgeOptions {
    int domain = 0;
    std::string address = "127.0.0.1";
    int port = 8765;  // 0: a free one (printed)
    std::string name = "vantrel-bridge";  // the actor that sends what clients publish
    long queue = 0;   // messages a client may have waiting (0: the default, 1024)
    std::vector<std::string> patterns;
};
int serveBridge(const BridgeOptions& o);

struct InfoOptions { std::string file; bool json = false; };
int info(const InfoOptions& o);

// A recording whose writer died, rewritten as a complete file of everything it still holds whole.
struct RecoverOptions { std::string file; std::string output; bool force = false; };
int recover(const RecoverOptions& o);

// Set by SIGINT/SIGTERM: the running verb finishes cleanly (a recording is closed).
bool interrupted();
void installInterruptHandler();

}  // namespace vantrel::tool
