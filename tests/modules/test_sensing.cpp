// Sensing modules: laser range finder, sensor and the video tracker services.
#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "ModuleTest.h"
#include "intern/vantrel/wire/M_LaserRangeFinderWire.h"
#include "intern/vantrel/wire/M_SensorWire.h"
#include "vantrel/M_LaserRangeFinder.h"
#include "vantrel/M_Sensor.h"
#include "vantrel/M_VideoTrackerCommon.h"
#include "vantrel/M_VideoTrackerLosCtrl.h"
#include "vantrel/M_VideoTrackerLot.h"

using modtest::Calls;
using modtest::keysOf;
using modtest::newSession;

namespace {

struct LrfService : M_LaserRangeFinder::IService {
    Calls<M_LaserRangeFinder::ConfigSetUserRange> calls;
    void ConfigSetUserRange(const M_Common::DistanceMetersOptionalType& min, const M_Common::DistanceMetersOptionalType& max) override {
        calls.add(M_LaserRangeFinder::ConfigSetUserRange(min, max));
    }
};

TEST(Sensing, LaserRangeFinderUserRangeBoundsTravelAbsentAndInhibitionIsKeyedByComponent) {
    LrfService serviceImpl;
    auto service = M_LaserRangeFinder::Service::create(newSession(), "lrf", serviceImpl);
    auto client = M_LaserRangeFinder::Client::createWriteOnly(newSession(), "console");
    client->ConfigSetUserRange({}, {});
    client->ConfigSetUserRange({}, {0.0});
    ASSERT_TRUE(serviceImpl.calls.waitCount(2));
    const auto received = serviceImpl.calls.received();
    EXPECT_EQ(received[0], M_LaserRangeFinder::ConfigSetUserRange({}, {}));
    EXPECT_EQ(received[1], M_LaserRangeFinder::ConfigSetUserRange({}, {0.0}));
    EXPECT_EQ(keysOf<VendorData_M_LaserRangeFinder_IService_ConfigInhibitLaserFiring>(),
              (std::vector<std::string>{"KeyComponentId", "kelva_sending_actor"}));
    EXPECT_EQ(M_LaserRangeFinder::MeasurementStrength::Type{}, M_LaserRangeFinder::MeasurementStrength::None);
}

struct SensorService : M_Sensor::IService {
    Calls<M_Sensor::CmdSetPreset> calls;
    void CmdSetPreset(const M_Common::ObjectIdOptionalType& preset) override { calls.add(M_Sensor::CmdSetPreset(preset)); }
};
struct SensorClient : M_Sensor::IClient {
    Calls<M_Sensor::ReportSensorTrack> calls;
    void ReportSensorTrack(const std::string& id, const M_Sensor::SensorDetectionType& track, bool dispose) override {
        calls.add(M_Sensor::ReportSensorTrack(id, track), dispose);
    }
};

TEST(Sensing, SensorAbsentPresetDiffersFromAnEmptyId) {
    SensorService serviceImpl;
    auto service = M_Sensor::Service::create(newSession(), "sensor", serviceImpl);
    auto client = M_Sensor::Client::createWriteOnly(newSession(), "console");
    client->CmdSetPreset({});
    client->CmdSetPreset({""});
    ASSERT_TRUE(serviceImpl.calls.waitCount(2));
    const auto received = serviceImpl.calls.received();
    EXPECT_TRUE(received[0].Preset.empty());
    EXPECT_EQ(received[1].Preset, M_Common::ObjectIdOptionalType{""});
}

TEST(Sensing, SensorTracksAreKeyedByIdAndAMeasurementWithoutStrengthDiffersFromNone) {
    M_Sensor::SensorDetectionType noStrength;
    noStrength.RangeMeasurementList = {M_LaserRangeFinder::RangeMeasurementType(1500.0, {})};
    M_Sensor::SensorDetectionType strengthNone;
    strengthNone.RangeMeasurementList = {M_LaserRangeFinder::RangeMeasurementType(1500.0, {M_LaserRangeFinder::MeasurementStrength::None})};
    modtest::expectSeparateInstances<M_Sensor::Service, M_Sensor::Client, SensorClient>(
        [](M_Sensor::Service& s, const M_Sensor::ReportSensorTrack& p, bool d) { s->ReportSensorTrack(p.KeyId, p.Track, d); },
        [](const M_Sensor::ReportSensorTrack& p) { return p.KeyId; }, M_Sensor::ReportSensorTrack("track-1", noStrength),
        M_Sensor::ReportSensorTrack("track-1", strengthNone), M_Sensor::ReportSensorTrack("track-2", noStrength));
    // A list of ids is a plain member even though its name starts with Key.
    EXPECT_TRUE(keysOf<VendorData_M_Sensor_IService_CmdDeleteTracks>().empty());
    EXPECT_TRUE(keysOf<VendorData_M_Sensor_IService_CmdLockOnTracks>().empty());
}

struct TrackerService : M_VideoTrackerCommon::IService {
    Calls<M_VideoTrackerCommon::CmdSelectObject> calls;
    void CmdSelectObject(const M_Common::HorizontalDirectionOptionalType& h, const M_Common::VerticalDirectionOptionalType& v,
                         const M_Common::SphericalPositionOptionalType& p) override {
        calls.add(M_VideoTrackerCommon::CmdSelectObject(h, v, p));
    }
};
struct TrackerClient : M_VideoTrackerCommon::IClient {
    Calls<M_VideoTrackerCommon::ReportVtProcessingStat> calls;
    void ReportVtProcessingStat(uint32_t chain, const M_VideoTracker::VtProcessingStatType& s, bool dispose) override {
        calls.add(M_VideoTrackerCommon::ReportVtProcessingStat(chain, s), dispose);
    }
};

TEST(Sensing, VideoTrackerProcessingChainsZeroAndOneAreTwoInstances) {
    const M_VideoTracker::VtProcessingStatType fast(0.01, 0, M_Common::TimeType(1, 0));
    const M_VideoTracker::VtProcessingStatType slow(0.5, 7, M_Common::TimeType(2, 0));
    modtest::expectSeparateInstances<M_VideoTrackerCommon::Service, M_VideoTrackerCommon::Client, TrackerClient>(
        [](M_VideoTrackerCommon::Service& s, const M_VideoTrackerCommon::ReportVtProcessingStat& p, bool d) {
            s->ReportVtProcessingStat(p.KeyProcChainId, p.Statistics, d);
        },
        [](const M_VideoTrackerCommon::ReportVtProcessingStat& p) { return p.KeyProcChainId; },
        M_VideoTrackerCommon::ReportVtProcessingStat(0, fast), M_VideoTrackerCommon::ReportVtProcessingStat(0, slow),
        M_VideoTrackerCommon::ReportVtProcessingStat(1, fast));
}

TEST(Sensing, VideoTrackerSelectObjectWithEveryArgumentAbsent) {
    TrackerService serviceImpl;
    auto service = M_VideoTrackerCommon::Service::create(newSession(), "tracker", serviceImpl);
    auto client = M_VideoTrackerCommon::Client::createWriteOnly(newSession(), "console");
    client->CmdSelectObject({}, {}, {});
    ASSERT_TRUE(serviceImpl.calls.waitCount(1));
    EXPECT_EQ(serviceImpl.calls.received().front(), M_VideoTrackerCommon::CmdSelectObject());
}

struct LosService : M_VideoTrackerLosCtrl::IService {
    Calls<M_VideoTrackerLosCtrl::CmdLeadOn> leadOn;
    Calls<M_VideoTrackerLosCtrl::NotifyMountTrackingState> state;
    void CmdLeadOn(const M_Common::ObjectIdOptionalType& id) override { leadOn.add(M_VideoTrackerLosCtrl::CmdLeadOn(id)); }
    void NotifyMountTrackingState(M_VideoTracker::MountTrackingState::Type s) override {
        state.add(M_VideoTrackerLosCtrl::NotifyMountTrackingState(s));
    }
};
struct LosClient : M_VideoTrackerLosCtrl::IClient {
    Calls<M_VideoTrackerLosCtrl::ReportRate> rate;
    void ReportRate(const M_Common::AngularVelocityType& v, bool coasting, bool dispose) override {
        rate.add(M_VideoTrackerLosCtrl::ReportRate(v, coasting), dispose);
    }
};

TEST(Sensing, LineOfSightRateIsPublishedAgainAfterItsDispose) {
    LosService serviceImpl;
    LosClient clientImpl;
    auto service = M_VideoTrackerLosCtrl::Service::create(newSession(), "los", serviceImpl);
    auto client = M_VideoTrackerLosCtrl::Client::create(newSession(), "mount", clientImpl);
    client.waitUntilConnected();

    M_Common::AngularVelocityType first, second;
    first.CoordinateFrame = "first";
    second.CoordinateFrame = "second";
    service->ReportRate(first, false, false);
    ASSERT_TRUE(clientImpl.rate.waitCount(1));
    service->ReportRate(first, false, true);
    ASSERT_TRUE(clientImpl.rate.waitCount(1, true)) << "the dispose did not arrive";
    service->ReportRate(second, true, false);
    ASSERT_TRUE(clientImpl.rate.waitCount(2)) << "nothing was published after the dispose";
    EXPECT_EQ(clientImpl.rate.received(), std::vector<M_VideoTrackerLosCtrl::ReportRate>(
                                              {M_VideoTrackerLosCtrl::ReportRate(first, false),
                                               M_VideoTrackerLosCtrl::ReportRate(second, true)}));
    EXPECT_EQ(clientImpl.rate.count(true), 1u);

    client->CmdLeadOn({});
    EXPECT_EQ(static_cast<int>(M_VideoTracker::MountTrackingState::Memory_Track_Mount), 4);
    client->NotifyMountTrackingState(M_VideoTracker::MountTrackingState::Memory_Track_Mount);
    ASSERT_TRUE(serviceImpl.leadOn.waitCount(1) && serviceImpl.state.waitCount(1));
    EXPECT_TRUE(serviceImpl.leadOn.received().front().ObjId.empty());
    EXPECT_EQ(serviceImpl.state.received().front().State, M_VideoTracker::MountTrackingState::Memory_Track_Mount);
}

struct LotService : M_VideoTrackerLot::IService {
    Calls<M_VideoTrackerLot::CmdLockOnAtPos> calls;
    void CmdLockOnAtPos(const M_Common::PixelRegionType& area, const M_Common::PixelRectSizeOptionalType& search,
                        const std::vector<M_VideoTracker::LotMode::Type>& mode, bool leadOn) override {
        calls.add(M_VideoTrackerLot::CmdLockOnAtPos(area, search, mode, leadOn));
    }
};

TEST(Sensing, LockOnAtPositionTakesAtMostOneModeAndModeAutoIsTheFirstLiteral) {
    LotService serviceImpl;
    auto service = M_VideoTrackerLot::Service::create(newSession(), "lot", serviceImpl);
    auto client = M_VideoTrackerLot::Client::createWriteOnly(newSession(), "console");
    EXPECT_THROW(client->CmdLockOnAtPos(M_Common::PixelRegionType(), {},
                                        {M_VideoTracker::LotMode::Auto, M_VideoTracker::LotMode::Scene}, false),
                 std::invalid_argument);
    client->CmdLockOnAtPos(M_Common::PixelRegionType(), {}, {M_VideoTracker::LotMode::Type{}}, true);
    ASSERT_TRUE(serviceImpl.calls.waitCount(1));
    const auto received = serviceImpl.calls.received();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received.front().Mode, std::vector<M_VideoTracker::LotMode::Type>{M_VideoTracker::LotMode::Auto});
    EXPECT_TRUE(received.front().LeadOn);
}

}  // namespace
