// The Python binding's send path: bench/python_send.py (a Python client sending CmdRaiseAlarm to a Python
// service in another process, timed as the throughput part times its batches) against the frame's
// throughput in C++, in the same run, repetitions interleaved.
#include <stdlib.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "Child.h"
#include "Parts.h"
#include "SendPath.h"
#include "Table.h"
#include "Throughput.h"

namespace vantrel::bench {

void pythonRows(int base) {
    std::vector<double> cpp, python;
    for (int rep = 0; rep < 3; ++rep) {
        for (int i = 0; i < 2; ++i) {
            ThroughputSide side("frame", "small", base + 16);
            side.batch(4000);
            cpp.push_back(side.batch(20000));
        }
        setenv("PYTHONPATH", VANTREL_BENCH_PYTHONPATH, 1);
        setenv("KELVA_TEST_DOMAIN", std::to_string(base + 17).c_str(), 1);
        Child script({VANTREL_BENCH_PYTHON, VANTREL_BENCH_PYTHON_SEND, "20000", "2"});
        std::istringstream rates(script.waitFor("batches (msg/s):", 300).substr(16));
        for (double r; rates >> r;) python.push_back(r);
        if (script.finish(30).exitCode != 0) throw std::runtime_error("python_send.py failed:\n" + script.output());
        unsetenv("KELVA_TEST_DOMAIN");
    }
    // The send path alone, no reader: what a call costs the caller, where the throughput above is paced by
    // the reliable pipeline as much as by the sender.
    std::vector<double> pythonNs;
    setenv("KELVA_TEST_DOMAIN", std::to_string(base + 18).c_str(), 1);
    Child calls({VANTREL_BENCH_PYTHON, VANTREL_BENCH_PYTHON_SEND, "--send-path", "20000", "7"});
    std::istringstream costs(calls.waitFor("calls (ns/call):", 300).substr(16));
    for (double c; costs >> c;) pythonNs.push_back(c);
    if (calls.finish(30).exitCode != 0) throw std::runtime_error("python_send.py failed:\n" + calls.output());
    unsetenv("KELVA_TEST_DOMAIN");
    const std::vector<double> cppNs = sendPath(base + 18, base + 19, 7).frameSmall.ns;

    const double ratio = summarize(python).median / summarize(cpp).median;
    const double callRatio = summarize(cppNs).median / summarize(pythonNs).median;  // as a ratio of throughputs
    row("python part", "Python", "C++ frame", "Python/C++", "target");
    row("9 send CmdRaiseAlarm, Python (msg/s)", fmtSummary(python), fmtSummary(cpp), fmt(ratio, 2), ">= 0.33 " + verdict(ratio >= 1.0 / 3));
    row("9 send path, no reader (ns/call)", fmtSummary(pythonNs), fmtSummary(cppNs), fmt(callRatio, 2) + " (calls/s)",
        ">= 0.33 " + verdict(callRatio >= 1.0 / 3));
}

}  // namespace vantrel::bench
