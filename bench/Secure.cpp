// Frame against frame: DDS security on (authentication, access control, every topic encrypted) and off,
// alternating, each repetition with fresh processes. The key material is made by the tool, one identity
// for both ends, granted both sides of M_Alert.
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "Child.h"
#include "Parts.h"
#include "RoundTrip.h"
#include "Table.h"
#include "Throughput.h"

namespace vantrel::bench {

void secureRows(int base) {
    const std::string keys = "/tmp/vantrel-bench-keys-" + std::to_string(getpid());
    {
        Child setup({VANTREL_BENCH_TOOL, "security", "setup", keys, "--app", "bench:M_Alert=service,M_Alert=client"});
        if (setup.finish(60).exitCode != 0) throw std::runtime_error("vantrel security setup failed:\n" + setup.output());
    }
    const std::string config = keys + "/bench.toml";
    // Every session of the run, this process's and its peers', reads this (makeSession).
    auto securedIf = [&](bool secured) {
        if (secured) setenv("VANTREL_BENCH_SECURITY", config.c_str(), 1);
        else unsetenv("VANTREL_BENCH_SECURITY");
    };
    std::vector<double> tp[2], rt[2], rt99[2];  // [0] unsecured, [1] secured
    for (int rep = 0; rep < 7; ++rep) {
        for (int secured = 0; secured < 2; ++secured) {
            securedIf(secured);
            ThroughputSide side("frame", "small", base + 14 + secured);
            side.batch(4000);
            tp[secured].push_back(side.batch(20000));
        }
    }
    for (int rep = 0; rep < 5; ++rep) {
        for (int secured = 0; secured < 2; ++secured) {
            securedIf(secured);
            RoundTripSide side("frame", base + 14 + secured, 500);
            const auto latencies = side.run(2000);
            rt[secured].push_back(quantile(latencies, 0.5));
            rt99[secured].push_back(quantile(latencies, 0.99));
        }
    }
    securedIf(false);
    std::filesystem::remove_all(keys);
    row("secured part", "secured", "unsecured", "secured/unsecured", "target");
    row("8 secured throughput CmdRaiseAlarm (msg/s)", fmtSummary(tp[1]), fmtSummary(tp[0]), pairRatios(tp[1], tp[0]), "-");
    row("8 secured round trip median (us)", fmtSummary(rt[1], 1), fmtSummary(rt[0], 1), pairRatios(rt[1], rt[0]), "-");
    row("8 secured round trip p99 (us)", fmtSummary(rt99[1], 1), fmtSummary(rt99[0], 1), pairRatios(rt99[1], rt99[0]), "-");
}

}  // namespace vantrel::bench
