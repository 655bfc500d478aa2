// Malformed samples from a peer on plain ddsc (malformed_sender.cpp) reach a service of ours: it stays up,
// counts and logs the drops, and then answers a valid command.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <regex>
#include <string>

#include "ChildProcess.h"
#include "kelva/access/DeliveryStats.h"
#include "kelva/actors/Session.h"
#include "vantrel/M_Alert.h"
#include "vantrel/M_Sensor.h"
#include "vantrel/test/LogCapture.h"
#include "vantrel/test/Support.h"

using vantrel::test::waitUntil;

namespace {

struct AlertService : M_Alert::IService {
    M_Alert::Service* facade = nullptr;
    void CmdRaiseAlarm(const M_Alert::AlarmConditionInfoType& condition) override {
        if (condition.AlarmDescription == "valid") {
            M_Alert::AlarmLogType log;
            log.Condition = condition;
            (*facade)->ReportAlarmLog("answer", log, false);
        }
    }
};

struct AlertClient : M_Alert::IClient {
    std::atomic<bool> answered{false};
    void ReportAlarmLog(const std::string& id, const M_Alert::AlarmLogType&, bool) override {
        if (id == "answer") answered = true;
    }
};

TEST(MalformedSamples, ServiceDropsThemCountsThemAndStillAnswers) {
    vantrel::test::LogCapture log(kelva::utils::log::Level::warn);
    const int domain = vantrel::test::domainId();
    auto serviceSession = std::make_shared<kelva::actors::Session>(domain);
    AlertService serviceImpl;
    auto service = M_Alert::Service::create(serviceSession, "alert-service", serviceImpl);
    serviceImpl.facade = &service;
    AlertClient reportsImpl;
    auto reports = M_Alert::Client::create(serviceSession, "alert-reports", reportsImpl);
    vantrel::CallbackMap none;  // a reader for the corpus input only, which never gets that far
    auto sensor = M_Sensor::Client::create(serviceSession, "sensor-reports", none, {"ReportSensorCoverage"});
    const uint64_t malformedBefore = kelva::access::DeliveryStats::samplesMalformed();

    ChildProcess sender({MALFORMED_SENDER, std::to_string(domain), CORPUS_INPUT});
    const std::string line = sender.lineStarting("sent", 120);
    int sent = 0;
    ASSERT_EQ(std::sscanf(line.c_str(), "sent %d", &sent), 1) << "the sender failed";
    EXPECT_GT(sent, 300);

    // The corpus input and every malformed mutation are dropped before the DDS layer's key extraction.
    ASSERT_TRUE(waitUntil([&] { return kelva::access::DeliveryStats::samplesMalformed() - malformedBefore >= 100; }));
    const uint64_t malformed = kelva::access::DeliveryStats::samplesMalformed() - malformedBefore;
    EXPECT_LE(malformed, static_cast<uint64_t>(sent));
    // One warning per writer that sent malformed samples, naming the writer.
    const std::regex dropped("Malformed sample dropped: VendorData::(M_[A-Za-z]+)::I[A-Za-z]+::([A-Za-z]+) from writer "
                             "[0-9a-f]{8}:[0-9a-f]{8}:[0-9a-f]{8}:[0-9a-f]{8}: .*");
    std::vector<std::string> lines;
    for (const auto& text : log.texts(kelva::utils::log::Level::warn))
        if (text.rfind("Malformed sample dropped: ", 0) == 0) lines.push_back(text);
    ASSERT_EQ(lines.size(), 3u);
    for (const auto& text : lines) EXPECT_TRUE(std::regex_match(text, dropped)) << text;
    const bool corpusNamed = std::any_of(lines.begin(), lines.end(), [](const std::string& t) {
        return t.find("ReportSensorCoverage") != std::string::npos && t.find("key member") != std::string::npos;
    });
    EXPECT_TRUE(corpusNamed);

    // A normal client's valid command is still answered.
    auto clientSession = std::make_shared<kelva::actors::Session>(domain);
    AlertClient clientImpl;
    auto client = M_Alert::Client::create(clientSession, "console", clientImpl);
    client.waitUntilConnected();
    const uint64_t malformedSettled = kelva::access::DeliveryStats::samplesMalformed();
    client->CmdRaiseAlarm(M_Alert::AlarmConditionInfoType("Power", "Battery", "Voltage", "Low", "valid"));
    EXPECT_TRUE(waitUntil([&] { return clientImpl.answered.load(); }));
    EXPECT_EQ(kelva::access::DeliveryStats::samplesMalformed(), malformedSettled);
    std::printf("sent %d malformed samples and mutations; dropped as malformed: %llu\n", sent,
                static_cast<unsigned long long>(malformed));
}

}  // namespace
