// A peer may send enumeration values that this build does not declare (a newer interface revision, or a
// corrupt peer): they arrive as literal 0 instead of the whole message being lost, at the top of a value,
// nested, in lists and in optionals. The peer's messages go out through the facades' wire-level senders,
// which send a wire message as it is.
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
#include "vantrel/test/Support.h"

namespace {

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
