#include <csignal>
#include <atomic>

#include "vantrel/tool/Verbs.h"

namespace vantrel::tool {

namespace {
std::atomic<bool> g_interrupted{false};
extern "C" void onSignal(int) { g_interrupted.store(true); }
}  // namespace

bool interrupted() { return g_interrupted.load(); }

void installInterruptHandler() {
    struct sigaction sa {};
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
}

}  // namespace vantrel::tool
