// A client process killed in the middle of this process's stream and restarted, several times: the service
// never stalls or throws, a healthy client loses nothing, the restarted one hears the stream again at once.
// VANTREL_FAULT_VICTIMS (words) runs the victims of another build (Windows programs under Wine, tests/windows).
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ChildProcess.h"
#include "kelva/actors/Session.h"
#include "vantrel/M_Dialogue.h"
#include "vantrel/test/Support.h"

namespace {

constexpr int kRounds = 4;
constexpr int kRoundMs = 1500;
constexpr int kRateHz = 2000;

double field(const std::string& line, const std::string& key) {
    const auto at = line.find(" " + key + "=");
    return at == std::string::npos ? -1e9 : std::atof(line.c_str() + at + key.size() + 2);
}

TEST(KilledReader, NeitherStallsTheServiceNorCostsAHealthyClientAnything) {
    using Clock = std::chrono::steady_clock;
    auto session = std::make_shared<kelva::actors::Session>(vantrel::test::domainId());
    const std::string domain = std::to_string(vantrel::test::domainId());
    auto service = M_Dialogue::Service::createWriteOnly(session, "streamer");
    ChildProcess healthy({FAULT_PEER, "listen", domain, "healthy"});
    std::vector<std::string> victimsCommand;
    const char* external = std::getenv("VANTREL_FAULT_VICTIMS");
    std::istringstream words(external && *external ? external : FAULT_PEER);
    for (std::string w; words >> w;) victimsCommand.push_back(w);
    victimsCommand.insert(victimsCommand.end(), {"victims", domain, std::to_string(kRounds), std::to_string(kRoundMs)});
    ChildProcess victims(victimsCommand);
    ASSERT_FALSE(healthy.lineStarting("ready").empty());
    ASSERT_FALSE(victims.lineStarting("ready", 120).empty());  // victims under Wine start slowly

    // Streams until the victims' rounds are over; a client matched late counts from its first sample.
    victims.tell("go");
    std::atomic<bool> roundsOver{false};
    std::string restarts;
    std::thread rounds([&] {
        restarts = victims.lineStarting("victims", 120 + kRounds * (kRoundMs / 1000 + 60));
        roundsOver = true;
    });
    long sent = 0;
    std::vector<double> sendMs;
    for (auto next = Clock::now(); !roundsOver; ++sent) {
        const auto before = Clock::now();
        try {
            service->EventTextMessage("n=" + std::to_string(sent), {});
        } catch (const std::exception& e) {
            ADD_FAILURE() << "send " << sent << " threw: " << e.what();
        }
        sendMs.push_back(std::chrono::duration<double, std::milli>(Clock::now() - before).count());
        next += std::chrono::nanoseconds(1000000000LL / kRateHz);
        std::this_thread::sleep_until(next);
    }
    rounds.join();
    // The end marker carries the count; repeated (volatile topic, not resent) in case a reader was just restarting.
    for (int i = 0; i < 5; ++i) {
        service->EventTextMessage("END " + std::to_string(sent), {});
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    const std::string end = healthy.lineStarting("end", 30);
    ASSERT_FALSE(end.empty()) << "the healthy client did not see the end of the stream";
    ASSERT_TRUE(restarts.rfind("victims restart", 0) == 0) << restarts;
    std::sort(sendMs.begin(), sendMs.end());
    const double lost = field(end, "total") - field(end, "first_seq") - field(end, "received");
    std::printf("rounds=%d rate_hz=%d sent=%ld longest_send_ms=%.3f p99_send_ms=%.3f healthy_lost=%.0f "
                "restart_to_first_ms_max=%.0f restart_to_first_ms_median=%.0f\n", kRounds, kRateHz, sent,
                sendMs.back(), sendMs[sendMs.size() * 99 / 100], lost, field(restarts, "restart_to_first_ms_max"),
                field(restarts, "restart_to_first_ms_median"));
    EXPECT_EQ(lost, 0) << end;
    EXPECT_GT(field(end, "total"), 0) << end;
    EXPECT_LT(sendMs.back(), 500);
    EXPECT_GE(field(restarts, "restart_to_first_ms_max"), 0) << restarts;
    // Victims of another build (Windows programs under Wine) start far more slowly.
    EXPECT_LT(field(restarts, "restart_to_first_ms_max"), std::getenv("VANTREL_FAULT_VICTIMS") ? 60000 : 5000) << restarts;
}

}  // namespace
