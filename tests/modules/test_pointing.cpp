// Pointing modules: mount, object manager, mission control, coordinate frame, kinematic chain, multi-axis
// mount, alignment, scan control, sector selection, actuation control, manipulator and teleoperation.
#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "ModuleTest.h"
#include "intern/vantrel/wire/M_ActuationCtrlWire.h"
#include "intern/vantrel/wire/M_CoordinateFrameWire.h"
#include "intern/vantrel/wire/M_MountWire.h"
#include "intern/vantrel/wire/M_ObjectManagerWire.h"
#include "vantrel/M_ActuationCtrl.h"
#include "vantrel/M_Alignment.h"
#include "vantrel/M_CoordinateFrame.h"
#include "vantrel/M_KinematicChain.h"
#include "vantrel/M_Manipulator.h"
#include "vantrel/M_MissionCtrl.h"
#include "vantrel/M_Mount.h"
#include "vantrel/M_MultiMount.h"
#include "vantrel/M_ObjectManager.h"
#include "vantrel/M_ScanCtrl.h"
#include "vantrel/M_SectorSelection.h"
#include "vantrel/M_Teleoperation.h"

using modtest::Calls;
using modtest::keysOf;
using modtest::newSession;

namespace {

const std::vector<std::string> kKeyIdOnly{"KeyId"};

struct MountService : M_Mount::IService {
    Calls<M_Mount::ConfigMaximumRate> rate;
    Calls<M_Mount::CmdMode> mode;
    void ConfigMaximumRate(const M_Common::AngleRateDegreesPerSecOptionalType& az,
                           const M_Common::AngleRateDegreesPerSecOptionalType& el) override {
        rate.add(M_Mount::ConfigMaximumRate(az, el));
    }
    void CmdMode(M_Mount::ModeCommand::Type m) override { mode.add(M_Mount::CmdMode(m)); }
};

TEST(Pointing, MountAbsentRateIsNotZeroAndModeSelectIsTwo) {
    MountService serviceImpl;
    auto service = M_Mount::Service::create(newSession(), "mount", serviceImpl);
    auto client = M_Mount::Client::createWriteOnly(newSession(), "console");
    client->ConfigMaximumRate({}, {0.0});
    client->CmdMode(M_Mount::ModeCommand::Select);
    ASSERT_TRUE(serviceImpl.rate.waitCount(1) && serviceImpl.mode.waitCount(1));
    EXPECT_EQ(serviceImpl.rate.received().front(), M_Mount::ConfigMaximumRate({}, {0.0}));
    EXPECT_EQ(static_cast<int>(serviceImpl.mode.received().front().Mode), 2);
    // Two enumerations share literal names at different values.
    EXPECT_EQ(static_cast<int>(M_Mount::ModeCommand::Select), 2);
    EXPECT_EQ(static_cast<int>(M_Mount::StabState::Unstab), 2);
    EXPECT_EQ(static_cast<int>(M_Mount::ModeCommand::Unstab), 4);
    // The member keeps this spelling in the value type, the wire type and the rendering.
    M_Mount::SearchActionSupportedType search;
    search.IsAutomatichSearchSupported = true;
    VendorData_M_Mount_SearchActionSupportedType wire{};
    vantrel::frame::Scratch scratch;
    toWire(wire, search, scratch, "test");
    EXPECT_TRUE(wire.IsAutomatichSearchSupported);
    std::ostringstream text;
    print(text, wire);
    EXPECT_NE(text.str().find("IsAutomatichSearchSupported: 1"), std::string::npos) << text.str();
}

struct ObjectService : M_ObjectManager::IService {
    Calls<M_ObjectManager::CmdModifyMultiPoint> calls;
    void CmdModifyMultiPoint(const std::string& id, const M_ObjectManager::ModifyMultiPointType& obj) override {
        calls.add(M_ObjectManager::CmdModifyMultiPoint(id, obj));
    }
};
struct ObjectClient : M_ObjectManager::IClient {
    Calls<M_ObjectManager::ReportPoint> calls;
    void ReportPoint(const std::string& id, const M_ObjectManager::PointObjectType& obj, bool dispose) override {
        calls.add(M_ObjectManager::ReportPoint(id, obj), dispose);
    }
};

TEST(Pointing, ObjectManagerClosedFlagHasThreeStatesAndKeySetsAreUneven) {
    ObjectService serviceImpl;
    auto service = M_ObjectManager::Service::create(newSession(), "objects", serviceImpl);
    auto client = M_ObjectManager::Client::createWriteOnly(newSession(), "console");
    M_ObjectManager::ModifyMultiPointType absent, closedFalse, closedTrue;
    closedFalse.IsClosed = {false};
    closedTrue.IsClosed = {true};
    client->CmdModifyMultiPoint("area", absent);
    client->CmdModifyMultiPoint("area", closedFalse);
    client->CmdModifyMultiPoint("area", closedTrue);
    ASSERT_TRUE(serviceImpl.calls.waitCount(3));
    const auto received = serviceImpl.calls.received();
    EXPECT_EQ(received[0].Obj, absent);
    EXPECT_EQ(received[1].Obj, closedFalse);
    EXPECT_EQ(received[2].Obj, closedTrue);

    EXPECT_TRUE(keysOf<VendorData_M_ObjectManager_IService_CmdModifyMultiPoint>().empty());
    EXPECT_TRUE(keysOf<VendorData_M_ObjectManager_IService_CmdRemove>().empty());
    EXPECT_EQ(keysOf<VendorData_M_ObjectManager_IService_RequestPosition>(), std::vector<std::string>{"kelva_sending_actor"});
    EXPECT_EQ(keysOf<VendorData_M_ObjectManager_IClient_EventObjectChanged>(), kKeyIdOnly);
}

TEST(Pointing, ObjectManagerPointsAreKeyedById) {
    M_ObjectManager::PointObjectType nearby, distant;
    distant.SourcePosition.CoordinateFrame = "distant";
    ASSERT_NE(nearby, distant);
    modtest::expectSeparateInstances<M_ObjectManager::Service, M_ObjectManager::Client, ObjectClient>(
        [](M_ObjectManager::Service& s, const M_ObjectManager::ReportPoint& p, bool d) { s->ReportPoint(p.KeyId, p.Obj, d); },
        [](const M_ObjectManager::ReportPoint& p) { return p.KeyId; }, M_ObjectManager::ReportPoint("p1", nearby),
        M_ObjectManager::ReportPoint("p1", distant), M_ObjectManager::ReportPoint("p2", nearby));
}

struct MissionService : M_MissionCtrl::IService {
    Calls<M_MissionCtrl::CmdPerformMission> mission;
    Calls<M_MissionCtrl::CmdPerformAction> action;
    void CmdPerformMission(const std::string& name, const M_MissionCtrl::MissionOptionalType& m) override {
        mission.add(M_MissionCtrl::CmdPerformMission(name, m));
    }
    void CmdPerformAction(const M_MissionCtrl::CommandedActionType& a) override { action.add(M_MissionCtrl::CmdPerformAction(a)); }
};

TEST(Pointing, MissionAbsentMissionAndAbsentTaskCategoryDifferFromDefaults) {
    MissionService serviceImpl;
    auto service = M_MissionCtrl::Service::create(newSession(), "mission", serviceImpl);
    auto client = M_MissionCtrl::Client::createWriteOnly(newSession(), "console");
    client->CmdPerformMission("patrol", {});
    client->CmdPerformMission("patrol", {M_MissionCtrl::MissionType()});
    M_MissionCtrl::CommandedActionType noCategory, undefined;
    undefined.Task.EnumeratedValue = {M_MissionCtrl::TaskCategoryKind::Undefined};
    client->CmdPerformAction(noCategory);
    client->CmdPerformAction(undefined);
    ASSERT_TRUE(serviceImpl.mission.waitCount(2) && serviceImpl.action.waitCount(2));
    EXPECT_TRUE(serviceImpl.mission.received()[0].Mission.empty());
    EXPECT_EQ(serviceImpl.mission.received()[1].Mission.size(), 1u);
    EXPECT_TRUE(serviceImpl.action.received()[0].Action.Task.EnumeratedValue.empty());
    EXPECT_EQ(serviceImpl.action.received()[1].Action, undefined);
}

struct FrameClient : M_CoordinateFrame::IClient {
    Calls<M_CoordinateFrame::ReportPositions> calls;
    void ReportPositions(const std::string& id, const M_Common::PositionListType& list, bool dispose) override {
        calls.add(M_CoordinateFrame::ReportPositions(id, list), dispose);
    }
};

TEST(Pointing, CoordinateFrameEmptyListIsASampleAndListReportsAreKeyedById) {
    M_Common::PositionType origin;
    origin.CoordinateFrame = "vehicle";
    modtest::expectSeparateInstances<M_CoordinateFrame::Service, M_CoordinateFrame::Client, FrameClient>(
        [](M_CoordinateFrame::Service& s, const M_CoordinateFrame::ReportPositions& p, bool d) {
            s->ReportPositions(p.KeyId, p.PositionList, d);
        },
        [](const M_CoordinateFrame::ReportPositions& p) { return p.KeyId; },
        M_CoordinateFrame::ReportPositions("gun", {origin}), M_CoordinateFrame::ReportPositions("gun", {}),
        M_CoordinateFrame::ReportPositions("sight", {origin, origin}));
    // Notifications are keyed by the identifier alone, whoever sends them.
    EXPECT_EQ(keysOf<VendorData_M_CoordinateFrame_IService_NotifyPosition>(), kKeyIdOnly);
    EXPECT_EQ(keysOf<VendorData_M_CoordinateFrame_IService_NotifyAngularVelocity>(), kKeyIdOnly);
}

TEST(Pointing, OptionalModesAndParallaxStayAbsentAndIrregularNamesAreKept) {
    const M_KinematicChain::AxisControlType noMode;
    M_KinematicChain::AxisControlType undefinedMode;
    undefinedMode.Mode = {M_KinematicChain::ControlModeKind::Type{}};
    EXPECT_NE(noMode, undefinedMode);

    struct AlignmentService : M_Alignment::IService {
        Calls<M_Alignment::CmdAlignmentState> calls;
        void CmdAlignmentState(const std::string& id, bool active, const M_Common::BooleanOptionalType& parallax) override {
            calls.add(M_Alignment::CmdAlignmentState(id, active, parallax));
        }
    } alignmentImpl;
    auto service = M_Alignment::Service::create(newSession(), "alignment", alignmentImpl);
    auto client = M_Alignment::Client::createWriteOnly(newSession(), "console");
    client->CmdAlignmentState("sight", true, {});
    client->CmdAlignmentState("sight", true, {false});
    ASSERT_TRUE(alignmentImpl.calls.waitCount(2));
    EXPECT_TRUE(alignmentImpl.calls.received()[0].ParallaxCorrection.empty());
    EXPECT_EQ(alignmentImpl.calls.received()[1].ParallaxCorrection, M_Common::BooleanOptionalType{false});

    M_MultiMount::MountSettingsType multi;
    multi.IsCmdExternalDriftCompensationAllowedSupported = true;
    EXPECT_NE(multi, M_MultiMount::MountSettingsType());
    M_ScanCtrl::ScanCtrlStatusType scan;
    scan.NumberOfScanPoint = {3};
    scan.NumberOfScanCycles = {2};
    EXPECT_NE(scan, M_ScanCtrl::ScanCtrlStatusType());
    // Teleoperation: the round-trip time is a time value, the jitter a duration in seconds.
    static_assert(std::is_same_v<decltype(M_Teleoperation::RadioConnectionStatusType::RoundTripTime), M_Common::TimeOptionalType>);
    static_assert(std::is_same_v<decltype(M_Teleoperation::RadioConnectionStatusType::Jitter), M_Common::TimeSecondsOptionalType>);
}

TEST(Pointing, ManipulatorInertiaTensorOrderIsDiagonalFirst) {
    const M_Manipulator::InertiaTensorType tensor(1, 2, 3, 4, 5, 6);
    EXPECT_EQ(tensor.XX, 1);
    EXPECT_EQ(tensor.YY, 2);
    EXPECT_EQ(tensor.ZZ, 3);
    EXPECT_EQ(tensor.XY, 4);
    EXPECT_EQ(tensor.YZ, 5);
    EXPECT_EQ(tensor.XZ, 6);
    EXPECT_EQ(M_Manipulator::InertiaType(), M_Manipulator::InertiaType({}, {}, {}));
}

struct SectorService : M_SectorSelection::IService {
    Calls<M_SectorSelection::CmdSelectSector> calls;
    void CmdSelectSector(const M_Common::ULongListType& ids) override { calls.add(M_SectorSelection::CmdSelectSector(ids)); }
};

TEST(Pointing, SectorSelectionOfNoSectorIsACommand) {
    SectorService serviceImpl;
    auto service = M_SectorSelection::Service::create(newSession(), "sectors", serviceImpl);
    auto client = M_SectorSelection::Client::createWriteOnly(newSession(), "console");
    client->CmdSelectSector({});
    client->CmdSelectSector({4294967295u, 0});
    ASSERT_TRUE(serviceImpl.calls.waitCount(2));
    EXPECT_TRUE(serviceImpl.calls.received()[0].SectorIdList.empty());
    EXPECT_EQ(serviceImpl.calls.received()[1].SectorIdList, (M_Common::ULongListType{4294967295u, 0}));
}

struct ActuationService : M_ActuationCtrl::IService {
    Calls<M_ActuationCtrl::ConfigActuationComponentReference> calls;
    void ConfigActuationComponentReference(const std::string& id, const M_ActuationCtrl::ActuationCommandType& ref,
                                           bool persist, bool dispose) override {
        calls.add(M_ActuationCtrl::ConfigActuationComponentReference(id, ref, persist), dispose);
    }
};

TEST(Pointing, ActuationReferenceKeepsItsDataFlagApartFromTheDisposeFlag) {
    ActuationService serviceImpl;
    auto service = M_ActuationCtrl::Service::create(newSession(), "actuation", serviceImpl);
    auto client = M_ActuationCtrl::Client::createWriteOnly(newSession(), "console");
    const M_ActuationCtrl::ActuationCommandType empty;  // every member absent
    client->ConfigActuationComponentReference("valve", empty, true, false);
    ASSERT_TRUE(serviceImpl.calls.waitCount(1));
    client->ConfigActuationComponentReference("valve", empty, true, true);
    ASSERT_TRUE(serviceImpl.calls.waitCount(1, true));
    EXPECT_EQ(serviceImpl.calls.received(), std::vector<M_ActuationCtrl::ConfigActuationComponentReference>(
                                                {M_ActuationCtrl::ConfigActuationComponentReference("valve", empty, true)}));
    EXPECT_EQ(serviceImpl.calls.received(true).front().KeyId, "valve");
    EXPECT_EQ(keysOf<VendorData_M_ActuationCtrl_IService_NotifyActuationComponentCommand>(), kKeyIdOnly);
}

struct TeleClient : M_Teleoperation::IClient {
    Calls<M_Teleoperation::ReportBatteryStatus> calls;
    void ReportBatteryStatus(const std::string& id, const M_Teleoperation::BatteryStatusType& s, bool dispose) override {
        calls.add(M_Teleoperation::ReportBatteryStatus(id, s), dispose);
    }
};

TEST(Pointing, TeleoperationBatteriesAreKeyedById) {
    M_Teleoperation::BatteryStatusType full, low;
    full.Voltage = {28.0};
    low.Voltage = {21.5};
    modtest::expectSeparateInstances<M_Teleoperation::Service, M_Teleoperation::Client, TeleClient>(
        [](M_Teleoperation::Service& s, const M_Teleoperation::ReportBatteryStatus& p, bool d) {
            s->ReportBatteryStatus(p.KeyId, p.BatteryStatus, d);
        },
        [](const M_Teleoperation::ReportBatteryStatus& p) { return p.KeyId; },
        M_Teleoperation::ReportBatteryStatus("main", full), M_Teleoperation::ReportBatteryStatus("main", low),
        M_Teleoperation::ReportBatteryStatus("backup", full));
}

}  // namespace
