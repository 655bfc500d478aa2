// Received values are decoded into storage that the observer keeps from one sample to the next: each call
// must still see exactly what was sent (a value after a larger one: the generated round-trip tests, filled
// then at the limits), and a disposal must carry its key and nothing of the data before it. Keyed reports
// are one instance per key, and a disposal that overtook its data is one disposal. Enumeration values that
// this build does not declare (a newer interface revision, or a corrupt peer) arrive as literal 0 instead of
// the whole message being lost, at the top of a value, nested, in lists and in optionals; the peer's messages
// go out through the facades' wire-level senders, which send a wire message as it is.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Recorded.h"
#include "intern/vantrel/wire/M_AlertWire.h"
#include "intern/vantrel/wire/M_CameraWire.h"
#include "intern/vantrel/wire/M_ImageProcessingWire.h"
#include "kelva/actors/Session.h"
#include "vantrel/M_Alert.h"
#include "vantrel/M_Camera.h"
#include "vantrel/M_ImageProcessing.h"
#include "vantrel/frame/Sender.h"
#include "vantrel/test/Sessions.h"
#include "vantrel/test/Support.h"

using vantrel::test::Gate;
using vantrel::test::waitUntil;

namespace {

struct Recorder : M_Alert::IClient {
    struct LogCall {
        std::string id;
        M_Alert::AlarmLogType log;
        bool dispose;
        bool operator==(const LogCall& o) const { return id == o.id && log == o.log && dispose == o.dispose; }
    };
    Recorded<LogCall> logs;
    Recorded<M_Alert::AlertStatusType> statuses;
    void ReportAlarmLog(const std::string& id, const M_Alert::AlarmLogType& log, bool dispose) override {
        logs.add({id, log, dispose});
    }
    void ReportAlertStatus(const M_Alert::AlertStatusType& status, bool) override { statuses.add(status); }
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

// `full` and `bare` share their key; `other` has another. A client joining after the three writes gets one
// sample per instance; disposing the first instance reaches the early client once, with its key and no
// data; a client joining after that gets `other` only; the disposed instance can be written again.
TEST_F(ReceivedValues, KeyedReportsAreOneInstancePerKeyAndADisposalCarriesOnlyItsKey) {
    M_Alert::AlarmLogType full;
    full.Status = M_Alert::AlarmStatusKind::Type(2);
    full.IsSuppressed = full.IsAcknowledged = full.IsAutoAcknowledged = true;
    full.Condition = entry("full").ConditionInfo;
    full.Category = M_Alert::AlarmCategoryKind::Advisory;
    full.TimeRaised = M_Common::TimeType(10, 20);
    full.TimeAcknowledged = {M_Common::TimeType(30, 40)};
    M_Alert::AlarmLogType bare;
    bare.Condition.Nature = "n";
    const std::string id = longText("alarm id");
    const std::vector<Recorder::LogCall> writes{{id, full, false}, {id, bare, false}, {"B", full, false}};
    for (std::size_t i = 0; i < writes.size(); ++i) {  // each awaited: one instance keeps its latest sample only
        service->ReportAlarmLog(writes[i].id, writes[i].log, false);
        ASSERT_TRUE(recorder.logs.waitSize(i + 1));
    }
    Recorder late;
    auto lateClient = M_Alert::Client::create(clientSession, "late", late);
    ASSERT_TRUE(late.logs.waitSize(2));
    const auto lateLogs = late.logs.now();  // in either order, the latest sample of each instance
    EXPECT_TRUE(lateLogs == (std::vector<Recorder::LogCall>{writes[1], writes[2]}) ||
                lateLogs == (std::vector<Recorder::LogCall>{writes[2], writes[1]}));

    service->ReportAlarmLog(id, full, true);
    ASSERT_TRUE(recorder.logs.waitSize(4));
    Recorder afterDispose;
    auto thirdClient = M_Alert::Client::create(clientSession, "after-dispose", afterDispose);
    ASSERT_TRUE(waitUntil([&] {
        const auto logs = afterDispose.logs.now();
        return std::find(logs.begin(), logs.end(), writes[2]) != logs.end();
    })) << "disposing one instance removed the other";
    for (const auto& call : afterDispose.logs.now()) EXPECT_TRUE(call.id != id || call.dispose) << "outlived its dispose";
    service->ReportAlarmLog(id, bare, false);
    ASSERT_TRUE(recorder.logs.waitSize(5)) << "nothing was published after the dispose";
    auto expected = writes;
    expected.push_back({id, {}, true});  // the disposal carries no data of the sample before it
    expected.push_back(writes[1]);
    EXPECT_EQ(recorder.logs.now(), expected);
}

// Holds the dispatcher of its session in ReportAlertStatus until released.
struct BusyConsole : Recorder {
    Gate entered, release;
    void ReportAlertStatus(const M_Alert::AlertStatusType&, bool) override {
        entered.open();
        release.wait();
    }
};

TEST_F(ReceivedValues, AReportDisposedBeforeItWasDispatchedArrivesAsTheDisposalOnly) {
    BusyConsole console;
    auto busy = M_Alert::Client::create(vantrel::test::newSession(), "busy-console", console);
    ASSERT_TRUE(waitUntil([&] {
        service->ReportAlertStatus({}, false);
        return console.entered.wait(std::chrono::milliseconds(200));
    }));
    // The client's dispatcher is busy: within one process the DDS layer delivers each write and dispose
    // into the reader before the call returns, so both wait there together.
    M_Alert::AlarmLogType log;
    log.Condition.AlarmDescription = "live";
    service->ReportAlarmLog("71", log, false);
    service->ReportAlarmLog("71", {}, true);
    service->ReportAlarmLog("72", log, false);
    console.release.open();
    ASSERT_TRUE(console.logs.waitSize(2));
    // Nothing more may come; give a stray duplicate the time to show.
    EXPECT_FALSE(waitUntil([&] { return console.logs.size() > 2; }, std::chrono::milliseconds(300)));
    std::vector<std::string> seen;
    for (const auto& call : console.logs.now()) seen.push_back(call.id + (call.dispose ? "/dispose" : "/data"));
    std::sort(seen.begin(), seen.end());
    EXPECT_EQ(seen, (std::vector<std::string>{"71/dispose", "72/data"})) << "a disposed instance reported as live";
}

// Sends `message` as operation `name` of `methods` through the wire-level sender of `facade`.
template <class Facade>
void sendWire(Facade& facade, const std::vector<std::string>& methods, const std::string& name, const void* message) {
    auto sender = facade.operator->();
    auto* wire = dynamic_cast<vantrel::frame::WireSender*>(sender.get());
    ASSERT_NE(wire, nullptr);
    const auto at = std::find(methods.begin(), methods.end(), name);
    ASSERT_NE(at, methods.end()) << name;
    wire->sendWire(static_cast<std::size_t>(at - methods.begin()), message, false);
}

constexpr int32_t kUndeclared = 99;
constexpr int32_t kNegative = -5;

TEST(UnknownEnumerations, ArriveAsLiteralZeroNestedInListsAndInOptionals) {
    auto session = std::make_shared<kelva::actors::Session>(vantrel::test::domainId());
    auto peer = std::make_shared<kelva::actors::Session>(vantrel::test::domainId());
    Recorded<M_Alert::AlarmLogType> gotLogs;
    Recorded<M_ImageProcessing::ImageProcessingSettingsType> gotSettings;
    Recorded<M_Common::OperationModeType> gotModes;
    using kelva::utils::callback::Wrapper;
    Wrapper<M_Alert::IClient, const std::string&, const M_Alert::AlarmLogType&, bool> onLog(
        [&](const std::string&, const M_Alert::AlarmLogType& v, bool) { gotLogs.add(v); });
    Wrapper<M_ImageProcessing::IClient, const M_ImageProcessing::ImageProcessingSettingsType&> onSettings(
        [&](const M_ImageProcessing::ImageProcessingSettingsType& v) { gotSettings.add(v); });
    Wrapper<M_Camera::IService, const M_Common::OperationModeType&> onMode(
        [&](const M_Common::OperationModeType& v) { gotModes.add(v); });
    vantrel::CallbackMap alertMap{{"ReportAlarmLog", {&onLog}}}, imagingMap{{"ReportImageProcessingSettings", {&onSettings}}},
        cameraMap{{"ConfigOperationMode", {&onMode}}};
    auto alert = M_Alert::Client::create(session, "alert-console", alertMap, {"ReportAlarmLog"});
    auto imaging = M_ImageProcessing::Client::create(session, "imaging-console", imagingMap, {"ReportImageProcessingSettings"});
    auto camera = M_Camera::Service::create(session, "camera", cameraMap, {"ConfigOperationMode"});

    // Nested in a value: AlarmLogType.Status and .Category.
    VendorData_M_Alert_IClient_ReportAlarmLog log{};
    log.KeyAlarmId = const_cast<char*>("a1");
    vantrel::frame::setRawEnum(log.Alarm.Status, kUndeclared);
    vantrel::frame::setRawEnum(log.Alarm.Category, kNegative);
    log.Alarm.IsSuppressed = true;
    log.Alarm.Condition.SubsystemName = log.Alarm.Condition.ComponentName = log.Alarm.Condition.Measure =
        log.Alarm.Condition.Nature = log.Alarm.Condition.AlarmDescription = const_cast<char*>("Power");
    auto alertPeer = M_Alert::Service::createWriteOnly(peer, "alert-peer");
    sendWire(alertPeer, M_Alert::getMethodsAllIClient(), "ReportAlarmLog", &log);

    // In a list: one declared value between two undeclared ones.
    VendorData_M_ImageProcessing_FrameDropKind_Type modes[3];
    vantrel::frame::setRawEnum(modes[0], kUndeclared);
    vantrel::frame::setRawEnum(modes[1], 1);
    vantrel::frame::setRawEnum(modes[2], kNegative);
    VendorData_M_ImageProcessing_IClient_ReportImageProcessingSettings settings{};
    settings.Settings.SupportedFrameDropModes._buffer = modes;
    settings.Settings.SupportedFrameDropModes._length = settings.Settings.SupportedFrameDropModes._maximum = 3;
    settings.Settings.IsCmdScaleSupported = true;
    auto imagingPeer = M_ImageProcessing::Service::createWriteOnly(peer, "imaging-peer");
    sendWire(imagingPeer, M_ImageProcessing::getMethodsAllIClient(), "ReportImageProcessingSettings", &settings);

    // In optionals: OperationModeType.EnumeratedValue and .TransitionState.
    VendorData_M_Common_OperationModeStateKind_Type state;
    vantrel::frame::setRawEnum(state, kUndeclared);
    VendorData_M_Common_ModeTransitionKind_Type transition;
    vantrel::frame::setRawEnum(transition, kNegative);
    VendorData_M_Camera_IService_ConfigOperationMode mode{};
    mode.Mode.Name = const_cast<char*>("Day");
    mode.Mode.EnumeratedValue._buffer = &state;
    mode.Mode.EnumeratedValue._length = mode.Mode.EnumeratedValue._maximum = 1;
    mode.Mode.TransitionState._buffer = &transition;
    mode.Mode.TransitionState._length = mode.Mode.TransitionState._maximum = 1;
    auto cameraPeer = M_Camera::Client::createWriteOnly(peer, "camera-peer");
    sendWire(cameraPeer, M_Camera::getMethodsAllIService(), "ConfigOperationMode", &mode);

    ASSERT_TRUE(gotLogs.waitSize(1) && gotSettings.waitSize(1) && gotModes.waitSize(1))
        << "a message with an undeclared enumeration value was lost";
    const auto log0 = gotLogs.now()[0];
    EXPECT_EQ(log0.Status, static_cast<M_Alert::AlarmStatusKind::Type>(0));
    EXPECT_EQ(log0.Category, M_Alert::AlarmCategoryKind::Critical_Warning);
    EXPECT_EQ(log0.Condition.AlarmDescription, "Power");
    using Drop = M_ImageProcessing::FrameDropKind::Type;
    EXPECT_EQ(gotSettings.now()[0].SupportedFrameDropModes, (std::vector<Drop>{Drop(0), Drop(1), Drop(0)}));
    const auto received = gotModes.now()[0];
    EXPECT_EQ(received.EnumeratedValue, decltype(received.EnumeratedValue){M_Common::OperationModeStateKind::Type{}});
    EXPECT_EQ(received.TransitionState, decltype(received.TransitionState){M_Common::ModeTransitionKind::Type{}});
    EXPECT_EQ(received.Name, "Day");
}

}  // namespace
