// Received values are decoded into storage that the observer keeps from one sample to the next: each call
// must still see exactly what was sent, with nothing left over from an earlier, larger sample, and a
// disposal must carry its key and nothing of the data before it.
#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include "kelva/actors/Session.h"
#include "vantrel/M_Alert.h"
#include "vantrel/test/Sessions.h"
#include "vantrel/test/Support.h"

using vantrel::test::waitUntil;

namespace {

struct Recorder : M_Alert::IClient {
    struct LogCall {
        std::string id;
        M_Alert::AlarmLogType log;
        bool dispose;
    };
    std::mutex mutex;
    std::vector<LogCall> logs;
    std::vector<M_Alert::AlertStatusType> statuses;

    void ReportAlarmLog(const std::string& id, const M_Alert::AlarmLogType& log, bool dispose) override {
        std::lock_guard<std::mutex> lock(mutex);
        logs.push_back({id, log, dispose});
    }
    void ReportAlertStatus(const M_Alert::AlertStatusType& status, bool) override {
        std::lock_guard<std::mutex> lock(mutex);
        statuses.push_back(status);
    }
    template <class Calls>
    bool waitCount(const Calls& calls, std::size_t n) {
        return waitUntil([&] {
            std::lock_guard<std::mutex> lock(mutex);
            return calls.size() >= n;
        });
    }
};

struct IdsRecorder : M_Alert::IService {
    std::mutex mutex;
    std::vector<M_Alert::AlertIdListType> acknowledged;
    void CmdAcknowledgeAlarm(const M_Alert::AlertIdListType& ids) override {
        std::lock_guard<std::mutex> lock(mutex);
        acknowledged.push_back(ids);
    }
};

// Longer than any short-string buffer, so a reused string really holds heap storage.
std::string longText(const std::string& tag) { return tag + " with a text long enough to live on the heap"; }

M_Alert::AlarmConditionStatusType entry(const std::string& tag) {
    return M_Alert::AlarmConditionStatusType(
        M_Alert::AlarmConditionInfoType(longText(tag + " subsystem"), longText(tag + " component"), tag, tag, longText(tag)),
        M_Alert::AlarmCategoryKind::Caution, longText("caution"), tag, true, true);
}

// A client recording the reports of a write-only service (its first writes wait for the client's reader).
class ReceivedValues : public vantrel::test::TwoSessions {
protected:
    Recorder recorder;
    M_Alert::Client client = M_Alert::Client::create(clientSession, "console", recorder);
    M_Alert::Service service = M_Alert::Service::createWriteOnly(serviceSession, "alert-service");
};

TEST_F(ReceivedValues, ASmallerSampleAfterALargerOneLeavesNothingBehind) {
    M_Alert::AlertStatusType large;
    large.AlarmConditionStatusList = {entry("one"), entry("two"), entry("three")};
    large.NumberOfActiveCautionAlarms = 3;
    M_Alert::AlertStatusType small;
    small.AlarmConditionStatusList = {M_Alert::AlarmConditionStatusType(
        M_Alert::AlarmConditionInfoType("a", "b", "", "c", ""), M_Alert::AlarmCategoryKind::Critical_Warning, "", "x",
        false, false)};
    const M_Alert::AlertStatusType empty;

    // The topic keeps the latest sample only: each one is awaited before the next is sent.
    std::size_t expected = 0;
    for (const M_Alert::AlertStatusType* sent : std::vector<const M_Alert::AlertStatusType*>{&large, &small, &empty, &large}) {
        service->ReportAlertStatus(*sent, false);
        ++expected;
        ASSERT_TRUE(recorder.waitCount(recorder.statuses, expected));
    }
    std::lock_guard<std::mutex> lock(recorder.mutex);
    EXPECT_EQ(recorder.statuses, (std::vector<M_Alert::AlertStatusType>{large, small, empty, large}));
}

TEST_F(ReceivedValues, OptionalsAndStringListsShrinkAsSent) {

    M_Alert::AlarmLogType full;
    full.Status = M_Alert::AlarmStatusKind::Type(2);
    full.IsSuppressed = full.IsAcknowledged = full.IsAutoAcknowledged = true;
    full.Condition = entry("full").ConditionInfo;
    full.Category = M_Alert::AlarmCategoryKind::Advisory;
    full.TimeRaised = M_Common::TimeType(10, 20);
    full.TimeAcknowledged = {M_Common::TimeType(30, 40)};
    M_Alert::AlarmLogType bare;
    bare.Condition.Nature = "n";

    service->ReportAlarmLog(longText("alarm id"), full, false);
    ASSERT_TRUE(recorder.waitCount(recorder.logs, 1));
    service->ReportAlarmLog("A2", bare, false);
    ASSERT_TRUE(recorder.waitCount(recorder.logs, 2));
    {
        std::lock_guard<std::mutex> lock(recorder.mutex);
        EXPECT_EQ(recorder.logs[0].id, longText("alarm id"));
        EXPECT_EQ(recorder.logs[0].log, full);
        EXPECT_EQ(recorder.logs[1].id, "A2");
        EXPECT_EQ(recorder.logs[1].log, bare);
        EXPECT_FALSE(recorder.logs[1].dispose);
    }

    IdsRecorder ids;
    auto observer = M_Alert::Service::create(serviceSession, "ack-service", ids);
    auto sender = M_Alert::Client::createWriteOnly(clientSession, "ack-console");
    sender.waitUntilConnected();
    const M_Alert::AlertIdListType many{longText("first"), longText("second"), "third"};
    const M_Alert::AlertIdListType one{"x"};
    const M_Alert::AlertIdListType noIds;
    std::size_t expected = 0;
    for (const auto* sent : {&many, &one, &noIds}) {  // each awaited, as the decode of one reuses the last
        sender->CmdAcknowledgeAlarm(*sent);
        ++expected;
        ASSERT_TRUE(waitUntil([&] {
            std::lock_guard<std::mutex> lock(ids.mutex);
            return ids.acknowledged.size() >= expected;
        }));
    }
    std::lock_guard<std::mutex> lock(ids.mutex);
    EXPECT_EQ(ids.acknowledged, (std::vector<M_Alert::AlertIdListType>{many, one, noIds}));
}

TEST_F(ReceivedValues, ADisposalCarriesItsKeyAndNoDataOfTheSampleBeforeIt) {

    M_Alert::AlarmLogType log;
    log.Status = M_Alert::AlarmStatusKind::Type(1);
    log.IsAcknowledged = true;
    log.Condition = entry("disposed").ConditionInfo;
    log.TimeRaised = M_Common::TimeType(5, 6);
    log.TimeAcknowledged = {M_Common::TimeType(7, 8)};
    service->ReportAlarmLog("A1", log, false);
    ASSERT_TRUE(recorder.waitCount(recorder.logs, 1));
    service->ReportAlarmLog("A1", log, true);
    ASSERT_TRUE(recorder.waitCount(recorder.logs, 2));

    std::lock_guard<std::mutex> lock(recorder.mutex);
    ASSERT_EQ(recorder.logs.size(), 2u);
    EXPECT_EQ(recorder.logs[0].log, log);
    EXPECT_EQ(recorder.logs[1].id, "A1");
    EXPECT_TRUE(recorder.logs[1].dispose);
    EXPECT_EQ(recorder.logs[1].log, M_Alert::AlarmLogType()) << "the disposal carried data of the sample before it";
}

}  // namespace
