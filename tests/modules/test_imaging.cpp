// Imaging modules: camera, camera manager, image processing, video metadata, overlay control, image composer
// and video object export.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "ModuleTest.h"
#include "intern/vantrel/wire/M_CameraManagerWire.h"
#include "intern/vantrel/wire/M_CameraWire.h"
#include "intern/vantrel/wire/M_VideoObjectExportWire.h"
#include "vantrel/M_Camera.h"
#include "vantrel/M_CameraManager.h"
#include "vantrel/M_ImageComposer.h"
#include "vantrel/M_ImageProcessing.h"
#include "vantrel/M_OverlayCtrl.h"
#include "vantrel/M_VideoMetadata.h"
#include "vantrel/M_VideoObjectExport.h"

using modtest::Calls;
using modtest::keysOf;
using modtest::newSession;

namespace {

struct CameraService : M_Camera::IService {
    Calls<M_Camera::ConfigPredefinedZoomFov> zoom;
    Calls<M_Camera::ConfigExposureTime> exposure;
    Calls<M_Camera::ConfigPolarity> polarity;
    void ConfigPredefinedZoomFov(uint16_t level) override { zoom.add(M_Camera::ConfigPredefinedZoomFov(level)); }
    void ConfigExposureTime(uint16_t speed) override { exposure.add(M_Camera::ConfigExposureTime(speed)); }
    void ConfigPolarity(M_Camera::PolarityHotColor::Type hot) override { polarity.add(M_Camera::ConfigPolarity(hot)); }
};
struct CameraClient : M_Camera::IClient {
    Calls<M_Camera::ReportCameraStatus> status;
    Calls<M_Camera::EventSafetyCode> safety;
    void ReportCameraStatus(const M_Camera::CameraStatusType& s, bool dispose) override {
        status.add(M_Camera::ReportCameraStatus(s), dispose);
    }
    void EventSafetyCode(const M_Camera::SafetyCodeListType& codes) override { safety.add(M_Camera::EventSafetyCode(codes)); }
};

TEST(Imaging, CameraSixteenBitArgumentsRedPolarityAndAbsentStatusFields) {
    CameraService serviceImpl;
    CameraClient clientImpl;
    auto service = M_Camera::Service::create(newSession(), "camera", serviceImpl);
    auto client = M_Camera::Client::create(newSession(), "console", clientImpl);
    client.waitUntilConnected();

    client->ConfigPredefinedZoomFov(65535);
    client->ConfigExposureTime(65535);
    EXPECT_EQ(static_cast<int>(M_Camera::PolarityHotColor::Red), 2);
    client->ConfigPolarity(M_Camera::PolarityHotColor::Red);
    ASSERT_TRUE(serviceImpl.zoom.waitCount(1) && serviceImpl.exposure.waitCount(1) && serviceImpl.polarity.waitCount(1));
    EXPECT_EQ(serviceImpl.zoom.received().front().PredefinedLevel, 65535);
    EXPECT_EQ(serviceImpl.exposure.received().front().ShutterSpeedPerSec, 65535);
    EXPECT_EQ(serviceImpl.polarity.received().front().HotIs, M_Camera::PolarityHotColor::Red);

    // Every optional absent; then the same with IsAutoFocusEnabled present with the first literal. The absent
    // ones must not come back as present defaults.
    M_Camera::CameraStatusType status;
    status.IsAutoFocusChangeInProgress = true;
    M_Camera::CameraStatusType withFocus = status;
    withFocus.IsAutoFocusEnabled = {M_Common::GeneralStatus::Type{}};
    ASSERT_NE(status, withFocus);
    // One instance with a history of one: the first status must be taken before the second replaces it.
    service->ReportCameraStatus(status, false);
    ASSERT_TRUE(clientImpl.status.waitCount(1));
    service->ReportCameraStatus(withFocus, false);
    service->EventSafetyCode({});
    ASSERT_TRUE(clientImpl.status.waitCount(2) && clientImpl.safety.waitCount(1));
    const auto received = clientImpl.status.received();
    EXPECT_TRUE(received[0].Status.IsAutoFocusEnabled.empty());
    EXPECT_TRUE(received[0].Status.FocusLevel.empty());
    EXPECT_EQ(received[0].Status, status);
    EXPECT_EQ(received[1].Status, withFocus);
    EXPECT_TRUE(clientImpl.safety.received().front().SafetyCodeList.empty());
    // The camera has no Key... member: its status is one instance per camera actor.
    EXPECT_EQ(keysOf<VendorData_M_Camera_IClient_ReportCameraStatus>(), std::vector<std::string>{"kelva_sending_actor"});
    // Irregular member names of the render settings stay as written.
    const M_Camera::RenderSettingsType render(1, 2, 3, 4);
    EXPECT_EQ(render.renderWidth + render.renderHeight * 10 + render.renderPosX * 100 + render.renderPosY * 1000, 4321);
}

struct ManagerClient : M_CameraManager::IClient {
    Calls<M_CameraManager::ReportCameraStatus> calls;
    void ReportCameraStatus(const std::string& id, const M_Camera::CameraStatusType& status, bool dispose) override {
        calls.add(M_CameraManager::ReportCameraStatus(id, status), dispose);
    }
};

TEST(Imaging, CameraManagerReportsAreOneInstancePerCameraButCommandsAreUnkeyed) {
    M_Camera::CameraStatusType idle, busy;
    busy.IsAutoFocusChangeInProgress = true;
    modtest::expectSeparateInstances<M_CameraManager::Service, M_CameraManager::Client, ManagerClient>(
        [](M_CameraManager::Service& s, const M_CameraManager::ReportCameraStatus& p, bool d) {
            s->ReportCameraStatus(p.KeyId, p.Status, d);
        },
        [](const M_CameraManager::ReportCameraStatus& p) { return p.KeyId; },
        M_CameraManager::ReportCameraStatus("day", idle), M_CameraManager::ReportCameraStatus("day", busy),
        M_CameraManager::ReportCameraStatus("thermal", idle));
    EXPECT_TRUE(keysOf<VendorData_M_CameraManager_IService_CmdDeleteCamera>().empty());
    EXPECT_TRUE(keysOf<VendorData_M_CameraManager_IService_CmdCreateCamera>().empty());
}

struct ProcessingService : M_ImageProcessing::IService {
    Calls<M_ImageProcessing::ConfigFrameDrop> drop;
    Calls<M_ImageProcessing::CmdFlip> flip;
    void ConfigFrameDrop(const M_ImageProcessing::FrameDropType& f) override { drop.add(M_ImageProcessing::ConfigFrameDrop(f)); }
    void CmdFlip(M_ImageProcessing::FlipDirectionKind::Type d) override { flip.add(M_ImageProcessing::CmdFlip(d)); }
};

TEST(Imaging, ImageProcessingRandomFrameDropWithoutNthFieldsAndFlipBothWays) {
    ProcessingService serviceImpl;
    auto service = M_ImageProcessing::Service::create(newSession(), "processing", serviceImpl);
    auto client = M_ImageProcessing::Client::createWriteOnly(newSession(), "console");
    M_ImageProcessing::FrameDropType drop;
    drop.Mode = M_ImageProcessing::FrameDropKind::DropRandomPercentage;
    drop.RandomFrameDropPercentage = {12.5};
    client->ConfigFrameDrop(drop);
    EXPECT_EQ(static_cast<int>(M_ImageProcessing::FlipDirectionKind::Horizontal_Vertical), 3);
    client->CmdFlip(M_ImageProcessing::FlipDirectionKind::Horizontal_Vertical);
    ASSERT_TRUE(serviceImpl.drop.waitCount(1) && serviceImpl.flip.waitCount(1));
    const auto received = serviceImpl.drop.received().front().FrameDropMethod;
    EXPECT_TRUE(received.EveryNthFrameToPass.empty());
    EXPECT_TRUE(received.EveryNthFrameToDrop.empty());
    EXPECT_EQ(received, drop);
    EXPECT_EQ(serviceImpl.flip.received().front().FlipDirection, M_ImageProcessing::FlipDirectionKind::Horizontal_Vertical);
}

struct MetadataClient : M_VideoMetadata::IClient {
    Calls<M_VideoMetadata::EventUasDatalinkLS> calls;
    void EventUasDatalinkLS(const M_VideoMetadata::UasDatalinkLS& u) override { calls.add(M_VideoMetadata::EventUasDatalinkLS(u)); }
};

TEST(Imaging, VideoMetadataEmptySetAndDeeplyNestedSetsWithBytesAndRaggedRows) {
    MetadataClient clientImpl;
    auto client = M_VideoMetadata::Client::create(newSession(), "console", clientImpl);
    auto service = M_VideoMetadata::Service::createWriteOnly(newSession(), "metadata");

    M_VideoMetadata::VChipLS chip;
    chip.ImageType = {"png"};
    for (int i = 0; i < 256; ++i) chip.EmbeddedImage.push_back(static_cast<uint8_t>(255 - i));
    M_VideoMetadata::VMaskLS mask;
    mask.BitMask = {M_VideoMetadata::PixelNumberPlusRunLength({10}, {}), M_VideoMetadata::PixelNumberPlusRunLength({}, {3})};
    M_VideoMetadata::VTargetPack target;
    target.TargetIdNumber = {"T1"};
    target.VChipSeries = {chip, M_VideoMetadata::VChipLS()};
    target.VMaskLs = {mask};
    M_VideoMetadata::VmtiLS vmti;
    vmti.VTargetSeries = {target, M_VideoMetadata::VTargetPack()};
    M_VideoMetadata::SarMotionImageryMetadataLS sar;
    sar.RadarCrossSectionScaleFactorPolynomial = {{1.0, 2.0, 3.0}, {}, {-4.5}};
    M_VideoMetadata::UasDatalinkLS full;
    full.VmtiLocalSet = {vmti};
    full.SarMotionImageryLocalSet = {sar};

    service->EventUasDatalinkLS(M_VideoMetadata::UasDatalinkLS());
    service->EventUasDatalinkLS(full);
    ASSERT_TRUE(clientImpl.calls.waitCount(2));
    const auto received = clientImpl.calls.received();
    EXPECT_EQ(received[0].UasDatalink, M_VideoMetadata::UasDatalinkLS());
    EXPECT_EQ(received[1].UasDatalink, full);
    ASSERT_EQ(received[1].UasDatalink.VmtiLocalSet.size(), 1u);
    ASSERT_EQ(received[1].UasDatalink.VmtiLocalSet[0].VTargetSeries.size(), 2u);
    EXPECT_EQ(received[1].UasDatalink.VmtiLocalSet[0].VTargetSeries[0].VChipSeries[0].EmbeddedImage, chip.EmbeddedImage);
    ASSERT_EQ(received[1].UasDatalink.SarMotionImageryLocalSet.size(), 1u);
    EXPECT_EQ(received[1].UasDatalink.SarMotionImageryLocalSet[0].RadarCrossSectionScaleFactorPolynomial,
              sar.RadarCrossSectionScaleFactorPolynomial);
}

struct OverlayClient : M_OverlayCtrl::IClient {
    Calls<M_OverlayCtrl::ReportOverlayStatus> calls;
    void ReportOverlayStatus(const std::string& name, const M_OverlayCtrl::OverlayCtrlStatusType& s, bool dispose) override {
        calls.add(M_OverlayCtrl::ReportOverlayStatus(name, s), dispose);
    }
};

TEST(Imaging, OverlayStatusesAreKeyedByOverlayName) {
    M_OverlayCtrl::OverlayCtrlStatusType on, off;
    on.IsEnabled = true;
    modtest::expectSeparateInstances<M_OverlayCtrl::Service, M_OverlayCtrl::Client, OverlayClient>(
        [](M_OverlayCtrl::Service& s, const M_OverlayCtrl::ReportOverlayStatus& p, bool d) {
            s->ReportOverlayStatus(p.KeyOverlayName, p.Status, d);
        },
        [](const M_OverlayCtrl::ReportOverlayStatus& p) { return p.KeyOverlayName; },
        M_OverlayCtrl::ReportOverlayStatus("grid", on), M_OverlayCtrl::ReportOverlayStatus("grid", off),
        M_OverlayCtrl::ReportOverlayStatus("compass", on));
}

struct ComposerClient : M_ImageComposer::IClient {
    Calls<M_ImageComposer::ReportImageComposerChannelStatus> calls;
    void ReportImageComposerChannelStatus(const std::string& channel, const M_ImageComposer::ImageComposerChannelStatusType& s,
                                          bool dispose) override {
        calls.add(M_ImageComposer::ReportImageComposerChannelStatus(channel, s), dispose);
    }
};

TEST(Imaging, ImageComposerChannelStatusesAreKeyedBySourceChannel) {
    const M_ImageComposer::ImageComposerChannelStatusType small(M_Common::PixelRectSizeType(640, 480));
    const M_ImageComposer::ImageComposerChannelStatusType large(M_Common::PixelRectSizeType(1920, 1080));
    modtest::expectSeparateInstances<M_ImageComposer::Service, M_ImageComposer::Client, ComposerClient>(
        [](M_ImageComposer::Service& s, const M_ImageComposer::ReportImageComposerChannelStatus& p, bool d) {
            s->ReportImageComposerChannelStatus(p.KeySourceChannel, p.Status, d);
        },
        [](const M_ImageComposer::ReportImageComposerChannelStatus& p) { return p.KeySourceChannel; },
        M_ImageComposer::ReportImageComposerChannelStatus("ch1", small),
        M_ImageComposer::ReportImageComposerChannelStatus("ch1", large),
        M_ImageComposer::ReportImageComposerChannelStatus("ch2", small));
}

struct ExportClient : M_VideoObjectExport::IClient {
    Calls<M_VideoObjectExport::ReportMountPosition> calls;
    void ReportMountPosition(const std::string& mount, const M_Common::StringListType& channels, double az, double el,
                             bool dispose) override {
        calls.add(M_VideoObjectExport::ReportMountPosition(mount, channels, az, el), dispose);
    }
};

TEST(Imaging, VideoObjectExportMountPositionsAreKeyedByMountName) {
    modtest::expectSeparateInstances<M_VideoObjectExport::Service, M_VideoObjectExport::Client, ExportClient>(
        [](M_VideoObjectExport::Service& s, const M_VideoObjectExport::ReportMountPosition& p, bool d) {
            s->ReportMountPosition(p.KeyMountName, p.VideoChannelList, p.Azimuth, p.Elevation, d);
        },
        [](const M_VideoObjectExport::ReportMountPosition& p) { return p.KeyMountName; },
        M_VideoObjectExport::ReportMountPosition("turret", {"ch1"}, 10, 1),
        M_VideoObjectExport::ReportMountPosition("turret", {"ch1"}, 20, 2),
        M_VideoObjectExport::ReportMountPosition("mast", {"ch2"}, 10, 1));
    // The zoom report names its channel without making it a key.
    EXPECT_TRUE(keysOf<VendorData_M_VideoObjectExport_IClient_ReportCameraZoomFovRegion>().empty());
}

}  // namespace
