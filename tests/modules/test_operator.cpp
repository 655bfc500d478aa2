// Operator and signal modules: generic input/output, analogue input/output, signal processing and generation,
// HMI application control, joystick, input device display, dialogue, input device assignment and
// coordinate input.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "ModuleTest.h"
#include "intern/vantrel/wire/M_AnalogueIoWire.h"
#include "intern/vantrel/wire/M_GenericInputOutputWire.h"
#include "vantrel/M_AnalogueIo.h"
#include "vantrel/M_Dialogue.h"
#include "vantrel/M_GenericInputOutput.h"
#include "vantrel/M_HidCoordInput.h"
#include "vantrel/M_HidDisplay.h"
#include "vantrel/M_HidJoystick.h"
#include "vantrel/M_HidManager.h"
#include "vantrel/M_HmiAppCtrl.h"
#include "vantrel/M_SignalProcessing.h"

using modtest::Calls;
using modtest::keysOf;
using modtest::newSession;

namespace {

struct IoService : M_GenericInputOutput::IService {
    Calls<M_GenericInputOutput::CmdWriteData> calls;
    void CmdWriteData(const M_GenericInputOutput::InputOutputData& d) override { calls.add(M_GenericInputOutput::CmdWriteData(d)); }
};
struct IoClient : M_GenericInputOutput::IClient {
    Calls<M_GenericInputOutput::EventDataReceived> calls;
    void EventDataReceived(const M_GenericInputOutput::InputOutputData& d) override {
        calls.add(M_GenericInputOutput::EventDataReceived(d));
    }
};

TEST(Operator, GenericInputOutputCarriesEveryByteValueBothWays) {
    IoService serviceImpl;
    IoClient clientImpl;
    auto service = M_GenericInputOutput::Service::create(newSession(), "serial", serviceImpl);
    auto client = M_GenericInputOutput::Client::create(newSession(), "console", clientImpl);
    client.waitUntilConnected();
    M_GenericInputOutput::InputOutputData all, empty;
    for (int i = 0; i < 256; ++i) all.Data.push_back(static_cast<uint8_t>(i));
    all.Data.push_back(0);  // a trailing zero byte is data, not a terminator
    client->CmdWriteData(all);
    client->CmdWriteData(empty);
    service->EventDataReceived(all);
    ASSERT_TRUE(serviceImpl.calls.waitCount(2) && clientImpl.calls.waitCount(1));
    EXPECT_EQ(serviceImpl.calls.received()[0].Data.Data, all.Data);
    EXPECT_TRUE(serviceImpl.calls.received()[1].Data.Data.empty());
    EXPECT_EQ(clientImpl.calls.received()[0].Data, all);
    // Configurations are per source; the register commands name a register without being keyed by it.
    EXPECT_EQ(keysOf<VendorData_M_GenericInputOutput_IService_ConfigInterfaceProperties>(),
              (std::vector<std::string>{"KeySource", "kelva_sending_actor"}));
    EXPECT_TRUE(keysOf<VendorData_M_GenericInputOutput_IService_CmdReadRegister>().empty());
    EXPECT_TRUE(keysOf<VendorData_M_GenericInputOutput_IService_CmdWriteRegister>().empty());
}

struct AnalogueClient : M_AnalogueIo::IClient {
    Calls<M_AnalogueIo::ReportSignal> calls;
    void ReportSignal(const std::string& name, const M_AnalogueIo::SignalCorridorOptionalType& corridor,
                      const M_AnalogueIo::SignalOptionalType& signal, bool dispose) override {
        calls.add(M_AnalogueIo::ReportSignal(name, corridor, signal), dispose);
    }
};

TEST(Operator, AnalogueSignalReportWithoutCorridorAndSignalAndSignalNotifyKeyedByNameOnly) {
    AnalogueClient clientImpl;
    auto client = M_AnalogueIo::Client::create(newSession(), "console", clientImpl);
    auto service = M_AnalogueIo::Service::createWriteOnly(newSession(), "analogue");
    service->ReportSignal("temperature", {}, {}, false);
    service->ReportSignal("pressure", {M_AnalogueIo::SignalCorridorType()}, {}, false);
    ASSERT_TRUE(clientImpl.calls.waitCount(2));
    EXPECT_EQ(clientImpl.calls.received()[0], M_AnalogueIo::ReportSignal("temperature", {}, {}));
    EXPECT_EQ(clientImpl.calls.received()[1], M_AnalogueIo::ReportSignal("pressure", {M_AnalogueIo::SignalCorridorType()}, {}));
    EXPECT_EQ(keysOf<VendorData_M_AnalogueIo_IService_NotifySignal>(), std::vector<std::string>{"KeyName"});
    // Modulation literals keep their spelling.
    const std::vector<int> modulations{M_SignalProcessing::ModulationKind::FM, M_SignalProcessing::ModulationKind::FM_Squelch,
                                       M_SignalProcessing::ModulationKind::AM, M_SignalProcessing::ModulationKind::IQ,
                                       M_SignalProcessing::ModulationKind::LSB, M_SignalProcessing::ModulationKind::USB};
    EXPECT_EQ(modulations, (std::vector<int>{0, 1, 2, 3, 4, 5}));
}

struct HmiService : M_HmiAppCtrl::IService {
    Calls<M_HmiAppCtrl::CmdActivateContext> calls;
    void CmdActivateContext(const std::string& name, bool active) override { calls.add(M_HmiAppCtrl::CmdActivateContext(name, active)); }
};
struct HmiClient : M_HmiAppCtrl::IClient {
    Calls<M_HmiAppCtrl::ReportAppState> calls;
    void ReportAppState(const std::string& id, const M_HmiAppCtrl::ApplicationStateType& s, bool dispose) override {
        calls.add(M_HmiAppCtrl::ReportAppState(id, s), dispose);
    }
};

TEST(Operator, HmiContextDeactivationIsAMessage) {
    HmiService serviceImpl;
    auto service = M_HmiAppCtrl::Service::create(newSession(), "hmi", serviceImpl);
    auto client = M_HmiAppCtrl::Client::createWriteOnly(newSession(), "console");
    client->CmdActivateContext("night", true);
    client->CmdActivateContext("night", false);
    ASSERT_TRUE(serviceImpl.calls.waitCount(2));
    EXPECT_EQ(serviceImpl.calls.received()[1], M_HmiAppCtrl::CmdActivateContext("night", false));
}

TEST(Operator, HmiApplicationStatesAreKeyedByApplication) {
    const M_HmiAppCtrl::ApplicationStateType installed(true, false, {});
    const M_HmiAppCtrl::ApplicationStateType running(true, true, {true});
    modtest::expectSeparateInstances<M_HmiAppCtrl::Service, M_HmiAppCtrl::Client, HmiClient>(
        [](M_HmiAppCtrl::Service& s, const M_HmiAppCtrl::ReportAppState& p, bool d) { s->ReportAppState(p.KeyAppId, p.AppState, d); },
        [](const M_HmiAppCtrl::ReportAppState& p) { return p.KeyAppId; }, M_HmiAppCtrl::ReportAppState("map", installed),
        M_HmiAppCtrl::ReportAppState("map", running), M_HmiAppCtrl::ReportAppState("radio", installed));
}

struct JoystickService : M_HidJoystick::IService {};
struct JoystickClient : M_HidJoystick::IClient {
    Calls<M_HidJoystick::ReportAxis> calls;
    Calls<M_HidJoystick::EventIncrement> increments;
    Calls<M_HidJoystick::ReportMenuStatus> menus;
    void ReportAxis(uint32_t axis, double value, bool dispose) override { calls.add(M_HidJoystick::ReportAxis(axis, value), dispose); }
    void EventIncrement(uint32_t index, int32_t steps) override { increments.add(M_HidJoystick::EventIncrement(index, steps)); }
    void ReportMenuStatus(uint32_t menu, bool active, bool dispose) override {
        menus.add(M_HidJoystick::ReportMenuStatus(menu, active), dispose);
    }
};

TEST(Operator, JoystickAxesAreKeyedByIndexFromZero) {
    modtest::expectSeparateInstances<M_HidJoystick::Service, M_HidJoystick::Client, JoystickClient>(
        [](M_HidJoystick::Service& s, const M_HidJoystick::ReportAxis& p, bool d) { s->ReportAxis(p.KeyAxisIndex, p.Value, d); },
        [](const M_HidJoystick::ReportAxis& p) { return p.KeyAxisIndex; }, M_HidJoystick::ReportAxis(0, -1.0),
        M_HidJoystick::ReportAxis(0, 0.25), M_HidJoystick::ReportAxis(1, -1.0));
}

TEST(Operator, JoystickNegativeStepsAndInactiveMenuAreDataNotDisposes) {
    JoystickClient clientImpl;
    auto client = M_HidJoystick::Client::create(newSession(), "console", clientImpl);
    auto service = M_HidJoystick::Service::createWriteOnly(newSession(), "joystick");
    service->EventIncrement(2, -3);
    service->ReportMenuStatus(5, false, false);
    ASSERT_TRUE(clientImpl.increments.waitCount(1) && clientImpl.menus.waitCount(1));
    EXPECT_EQ(clientImpl.increments.received().front(), M_HidJoystick::EventIncrement(2, -3));
    EXPECT_EQ(clientImpl.menus.received().front(), M_HidJoystick::ReportMenuStatus(5, false));
    service->ReportMenuStatus(5, false, true);
    ASSERT_TRUE(clientImpl.menus.waitCount(1, true));
    EXPECT_EQ(clientImpl.menus.received(true).front().KeyMenuIndex, 5u);
    EXPECT_EQ(clientImpl.menus.count(false), 1u);
}

struct DisplayService : M_HidDisplay::IService {
    Calls<M_HidDisplay::ConfigBlackoutMode> blackout;
    Calls<M_HidDisplay::ConfigButtonLabel> labels;
    void ConfigBlackoutMode(bool enable) override { blackout.add(M_HidDisplay::ConfigBlackoutMode(enable)); }
    void ConfigButtonLabel(uint32_t button, const std::string& label, const M_Common::ImageType& image, bool enabled,
                           bool highlighted, bool dispose) override {
        labels.add(M_HidDisplay::ConfigButtonLabel(button, label, image, enabled, highlighted), dispose);
    }
};

TEST(Operator, DisplayBlackoutOffIsAMessageAndButtonFlagsStayInOrder) {
    DisplayService serviceImpl;
    auto service = M_HidDisplay::Service::create(newSession(), "display", serviceImpl);
    auto client = M_HidDisplay::Client::createWriteOnly(newSession(), "console");
    client->ConfigBlackoutMode(false);
    client->ConfigButtonLabel(3, "FIRE", M_Common::ImageType(), false, true, false);
    ASSERT_TRUE(serviceImpl.blackout.waitCount(1) && serviceImpl.labels.waitCount(1));
    EXPECT_FALSE(serviceImpl.blackout.received().front().Enable);
    const auto label = serviceImpl.labels.received().front();
    EXPECT_FALSE(label.IsEnabled);
    EXPECT_TRUE(label.IsHighlighted);
    EXPECT_EQ(serviceImpl.labels.count(true), 0u);
    M_HidDisplay::LedLightModeActionType blink;
    blink.durationInMilliseconds = {250};  // lower-case first letter kept
    EXPECT_NE(blink, M_HidDisplay::LedLightModeActionType());
}

struct DialogueService : M_Dialogue::IService {
    Calls<M_Dialogue::NotifyTextMessage> texts;
    Calls<M_Dialogue::CmdSelectInputChoice> choices;
    void NotifyTextMessage(const std::string& text, const M_Dialogue::DialogueCategoryOptionalType& type) override {
        texts.add(M_Dialogue::NotifyTextMessage(text, type));
    }
    void CmdSelectInputChoice(const std::string& id, const M_Common::StringListType& selected) override {
        choices.add(M_Dialogue::CmdSelectInputChoice(id, selected));
    }
};

TEST(Operator, DialogueAbsentCategoryDiffersFromOffAndChoicesKeepTheirOrder) {
    DialogueService serviceImpl;
    auto service = M_Dialogue::Service::create(newSession(), "dialogue", serviceImpl);
    auto client = M_Dialogue::Client::createWriteOnly(newSession(), "console");
    client->NotifyTextMessage("hello", {});
    client->NotifyTextMessage("hello", {M_Dialogue::DialogueCategoryKind::Off});
    client->CmdSelectInputChoice("d1", {"c", "a", "b"});
    ASSERT_TRUE(serviceImpl.texts.waitCount(2) && serviceImpl.choices.waitCount(1));
    EXPECT_TRUE(serviceImpl.texts.received()[0].MessageType.empty());
    EXPECT_EQ(serviceImpl.texts.received()[1].MessageType,
              M_Dialogue::DialogueCategoryOptionalType{M_Dialogue::DialogueCategoryKind::Off});
    EXPECT_EQ(serviceImpl.choices.received().front().SelectedInput, (M_Common::StringListType{"c", "a", "b"}));
}

struct AssignmentService : M_HidManager::IService {
    Calls<M_HidManager::ConfigHidAssignment> calls;
    void ConfigHidAssignment(const std::string& app, const M_HidManager::RequestedAxisListType& axes,
                             const M_HidManager::RequestedValueInputListType& inputs, const M_HidManager::RequestedButtonListType& buttons,
                             const M_HidManager::RequestedMenuListType& menus, bool dispose) override {
        calls.add(M_HidManager::ConfigHidAssignment(app, axes, inputs, buttons, menus), dispose);
    }
};
struct CoordService : M_HidCoordInput::IService {};
struct CoordClient : M_HidCoordInput::IClient {
    Calls<M_HidCoordInput::EventClick> calls;
    void EventClick(const M_Common::PixelPoint2DType& p, bool pressed) override { calls.add(M_HidCoordInput::EventClick(p, pressed)); }
};

TEST(Operator, EmptyAssignmentRequestAndClickReleaseAreMessages) {
    AssignmentService serviceImpl;
    auto service = M_HidManager::Service::create(newSession(), "hid-manager", serviceImpl);
    auto client = M_HidManager::Client::createWriteOnly(newSession(), "map");
    client->ConfigHidAssignment("map", {}, {}, {}, {}, false);
    ASSERT_TRUE(serviceImpl.calls.waitCount(1));
    EXPECT_EQ(serviceImpl.calls.received().front(), M_HidManager::ConfigHidAssignment("map", {}, {}, {}, {}));

    CoordClient coordImpl;
    auto coordClient = M_HidCoordInput::Client::create(newSession(), "console", coordImpl);
    auto coordService = M_HidCoordInput::Service::createWriteOnly(newSession(), "touch");
    coordService->EventClick(M_Common::PixelPoint2DType(10, 20), true);
    coordService->EventClick(M_Common::PixelPoint2DType(10, 20), false);
    ASSERT_TRUE(coordImpl.calls.waitCount(2));
    EXPECT_EQ(coordImpl.calls.received()[1], M_HidCoordInput::EventClick(M_Common::PixelPoint2DType(10, 20), false));
}

}  // namespace
