// What the generated round-trip tests do not send: keyed reports as instances (a late reader, a disposal),
// bounds refused before anything goes out, absent optionals and empty lists, integer limits and every octet.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "kelva/actors/Session.h"
#include "vantrel/M_ActuationCtrl.h"
#include "vantrel/M_Alignment.h"
#include "vantrel/M_BuiltInTest.h"
#include "vantrel/M_BuiltInTestCtrl.h"
#include "vantrel/M_Camera.h"
#include "vantrel/M_FileTransfer.h"
#include "vantrel/M_SectorSelection.h"
#include "vantrel/M_VideoTrackerLot.h"
#include "vantrel/test/Support.h"

namespace {

using vantrel::test::waitUntil;

std::shared_ptr<kelva::actors::Session> newSession() {
    return std::make_shared<kelva::actors::Session>(vantrel::test::domainId());
}

// The calls one operation received, in arrival order, with their dispose flag.
template <class Pack>
class Calls {
public:
    void add(const Pack& pack, bool disposed = false) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_calls.emplace_back(pack, disposed);
    }
    std::vector<Pack> received(bool disposed = false) const {
        std::lock_guard<std::mutex> lock(m_mutex);
        std::vector<Pack> out;
        for (const auto& call : m_calls)
            if (call.second == disposed) out.push_back(call.first);
        return out;
    }
    bool waitCount(std::size_t n, bool disposed = false) const {
        return waitUntil([&] { return received(disposed).size() >= n; });
    }
    bool waitFor(const Pack& pack) const {
        return waitUntil([&] {
            for (const auto& p : received())
                if (p == pack) return true;
            return false;
        });
    }

private:
    mutable std::mutex m_mutex;
    std::vector<std::pair<Pack, bool>> m_calls;
};

// `a1` and `a2` share their keys, `b` has others. A client joining after the three writes gets one sample per
// instance (a2 and b); disposing a reaches an early client once, with a's keys; a client joining after that
// gets b only. Wrong or lost key members show here.
template <class Service, class Client, class Impl, class Pack, class Send, class Key>
void expectSeparateInstances(Send send, Key key, const Pack& a1, const Pack& a2, const Pack& b) {
    Impl early;
    auto earlyClient = Client::create(newSession(), "early", early);
    auto service = Service::createWriteOnly(newSession(), "service");
    send(service, a1, false);
    send(service, a2, false);
    send(service, b, false);
    ASSERT_TRUE(early.calls.waitFor(b));

    Impl late;
    auto lateClient = Client::create(newSession(), "late", late);
    ASSERT_TRUE(late.calls.waitFor(b)) << "the late client got no sample of b";
    EXPECT_TRUE(late.calls.waitFor(a2)) << "the late client did not get the latest sample of a";
    EXPECT_EQ(late.calls.received().size(), 2u) << "a late client must get one sample per instance";

    send(service, a2, true);
    ASSERT_TRUE(early.calls.waitCount(1, true));
    ASSERT_EQ(early.calls.received(true).size(), 1u);
    EXPECT_EQ(key(early.calls.received(true).front()), key(a1)) << "the dispose carries other keys than a's";

    Impl afterDispose;
    auto thirdClient = Client::create(newSession(), "after-dispose", afterDispose);
    ASSERT_TRUE(afterDispose.calls.waitFor(b)) << "disposing a removed b";
    for (const auto& p : afterDispose.calls.received()) EXPECT_NE(key(p), key(a1)) << "a outlived its dispose";

    // A disposed instance can be written again. (Whether the early client saw a1 before a2 replaced it in its
    // keep-last history depends on scheduling: count from here.)
    const std::size_t before = early.calls.received().size();
    send(service, a1, false);
    ASSERT_TRUE(early.calls.waitCount(before + 1)) << "nothing was published after the dispose";
    EXPECT_TRUE(early.calls.received().back() == a1);
}

struct BitClient : M_BuiltInTest::IClient {
    Calls<M_BuiltInTest::ReportIBitStatus> calls;
    void ReportIBitStatus(const std::string& name, const M_BuiltInTest::BitStatusType& status, bool dispose) override {
        calls.add(M_BuiltInTest::ReportIBitStatus(name, status), dispose);
    }
};

TEST(KeyedReports, AreOneInstancePerKey) {
    M_BuiltInTest::BitStatusType passed;
    passed.Result = M_BuiltInTest::TestResult::OK;
    M_BuiltInTest::BitStatusType failed = passed;
    failed.Result = M_BuiltInTest::TestResult::Fatal_Error;
    failed.ErrorCode = {7};
    expectSeparateInstances<M_BuiltInTest::Service, M_BuiltInTest::Client, BitClient>(
        [](M_BuiltInTest::Service& s, const M_BuiltInTest::ReportIBitStatus& p, bool d) {
            s->ReportIBitStatus(p.KeyIBitName, p.Status, d);
        },
        [](const M_BuiltInTest::ReportIBitStatus& p) { return p.KeyIBitName; },
        M_BuiltInTest::ReportIBitStatus("Memory", passed), M_BuiltInTest::ReportIBitStatus("Memory", failed),
        M_BuiltInTest::ReportIBitStatus("Fan", passed));
}

struct BitCtrlClient : M_BuiltInTestCtrl::IClient {
    Calls<M_BuiltInTestCtrl::ResponseHistoricalRecords> calls;
    void ResponseHistoricalRecords(const M_BuiltInTestCtrl::HistoricalBitRecordParamsType& params,
                                   const M_BuiltInTestCtrl::BitRecordListType& records, uint32_t total) override {
        calls.add(M_BuiltInTestCtrl::ResponseHistoricalRecords(params, records, total));
    }
};
struct LotService : M_VideoTrackerLot::IService {
    Calls<M_VideoTrackerLot::CmdLockOnAtPos> calls;
    void CmdLockOnAtPos(const M_Common::PixelRegionType& area, const M_Common::PixelRectSizeOptionalType& search,
                        const std::vector<M_VideoTracker::LotMode::Type>& mode, bool leadOn) override {
        calls.add(M_VideoTrackerLot::CmdLockOnAtPos(area, search, mode, leadOn));
    }
};

TEST(Bounds, AreRefusedBeforeAnythingIsSentAndTheLimitItselfPasses) {
    BitCtrlClient bitImpl;
    auto bitService = M_BuiltInTestCtrl::Service::createWriteOnly(newSession(), "bit-ctrl");
    auto bitClient = M_BuiltInTestCtrl::Client::create(newSession(), "console", bitImpl);
    const M_BuiltInTestCtrl::HistoricalBitRecordParamsType params("history", 65535u * 2, "Result == Failed");
    M_BuiltInTestCtrl::BitRecordListType records(101);
    for (std::size_t i = 0; i < records.size(); ++i) records[i].RecordName = "record " + std::to_string(i);
    try {
        bitService->ResponseHistoricalRecords(params, records, 101);
        ADD_FAILURE() << "101 records were accepted";
    } catch (const std::invalid_argument& e) {
        EXPECT_NE(std::string(e.what()).find("M_BuiltInTestCtrl::IClient::ResponseHistoricalRecords::RecordList"),
                  std::string::npos) << e.what();
    }
    records.pop_back();
    bitService->ResponseHistoricalRecords(params, records, 101);

    LotService lotImpl;
    auto lotService = M_VideoTrackerLot::Service::create(newSession(), "lot", lotImpl);
    auto lotClient = M_VideoTrackerLot::Client::createWriteOnly(newSession(), "console");
    EXPECT_THROW(lotClient->CmdLockOnAtPos(M_Common::PixelRegionType(), {},
                                           {M_VideoTracker::LotMode::Auto, M_VideoTracker::LotMode::Scene}, false),
                 std::invalid_argument);
    lotClient->CmdLockOnAtPos(M_Common::PixelRegionType(), {}, {M_VideoTracker::LotMode::Scene}, true);

    // What follows a refused send arrives first: the refused one was never written.
    ASSERT_TRUE(bitImpl.calls.waitCount(1) && lotImpl.calls.waitCount(1));
    const M_BuiltInTestCtrl::ResponseHistoricalRecords page(params, records, 101);
    EXPECT_EQ(bitImpl.calls.received(), std::vector<M_BuiltInTestCtrl::ResponseHistoricalRecords>(1, page));
    const M_VideoTrackerLot::CmdLockOnAtPos lockOn(M_Common::PixelRegionType(), {}, {M_VideoTracker::LotMode::Scene}, true);
    EXPECT_EQ(lotImpl.calls.received(), std::vector<M_VideoTrackerLot::CmdLockOnAtPos>(1, lockOn));
}

struct CameraService : M_Camera::IService {
    Calls<M_Camera::ConfigPredefinedZoomFov> zoom;
    void ConfigPredefinedZoomFov(uint16_t level) override { zoom.add(M_Camera::ConfigPredefinedZoomFov(level)); }
};
struct CameraClient : M_Camera::IClient {
    Calls<M_Camera::ReportCameraStatus> status;
    void ReportCameraStatus(const M_Camera::CameraStatusType& s, bool dispose) override {
        status.add(M_Camera::ReportCameraStatus(s), dispose);
    }
};
struct SectorService : M_SectorSelection::IService {
    Calls<M_SectorSelection::CmdSelectSector> calls;
    void CmdSelectSector(const M_Common::ULongListType& ids) override { calls.add(M_SectorSelection::CmdSelectSector(ids)); }
};
struct TransferService : M_FileTransfer::IService {
    Calls<M_FileTransfer::CmdStartFileTransfer> calls;
    void CmdStartFileTransfer(const std::string& id, const M_FileTransfer::FileTransferInfoType& info) override {
        calls.add(M_FileTransfer::CmdStartFileTransfer(id, info));
    }
};

TEST(Values, IntegerLimitsEveryOctetEmptyListsAndAbsentOptionalsArriveAsSent) {
    CameraService cameraImpl;
    CameraClient cameraClientImpl;
    auto camera = M_Camera::Service::create(newSession(), "camera", cameraImpl);
    auto cameraClient = M_Camera::Client::create(newSession(), "console", cameraClientImpl);
    cameraClient.waitUntilConnected();
    cameraClient->ConfigPredefinedZoomFov(65535);
    // Every optional absent, then one present with its first literal: absent ones must not come back as
    // present defaults. One instance with a history of one: the first must be taken before the second.
    M_Camera::CameraStatusType status;
    status.IsAutoFocusChangeInProgress = true;
    M_Camera::CameraStatusType withFocus = status;
    withFocus.IsAutoFocusEnabled = {M_Common::GeneralStatus::Type{}};
    camera->ReportCameraStatus(status, false);
    ASSERT_TRUE(cameraClientImpl.status.waitCount(1));
    camera->ReportCameraStatus(withFocus, false);

    SectorService sectorImpl;
    auto sectors = M_SectorSelection::Service::create(newSession(), "sectors", sectorImpl);
    auto sectorClient = M_SectorSelection::Client::createWriteOnly(newSession(), "console");
    sectorClient->CmdSelectSector({});
    sectorClient->CmdSelectSector({4294967295u, 0});

    TransferService transferImpl;
    auto transfer = M_FileTransfer::Service::create(newSession(), "transfer", transferImpl);
    auto transferClient = M_FileTransfer::Client::createWriteOnly(newSession(), "console");
    M_Common::EncryptionType encryption;
    for (int i = 0; i < 256; ++i) encryption.Token.push_back(static_cast<uint8_t>(i));
    M_FileTransfer::FileTransferInfoType info;
    info.EncryptionInfo = {encryption};
    transferClient->CmdStartFileTransfer("t1", info);

    ASSERT_TRUE(cameraImpl.zoom.waitCount(1) && cameraClientImpl.status.waitCount(2) && sectorImpl.calls.waitCount(2) &&
                transferImpl.calls.waitCount(1));
    EXPECT_EQ(cameraImpl.zoom.received().front().PredefinedLevel, 65535);
    const auto statuses = cameraClientImpl.status.received();
    EXPECT_TRUE(statuses[0].Status.IsAutoFocusEnabled.empty());
    EXPECT_EQ(statuses[0].Status, status);
    EXPECT_EQ(statuses[1].Status, withFocus);
    EXPECT_TRUE(sectorImpl.calls.received()[0].SectorIdList.empty());
    EXPECT_EQ(sectorImpl.calls.received()[1].SectorIdList, (M_Common::ULongListType{4294967295u, 0}));
    EXPECT_EQ(transferImpl.calls.received().front(), M_FileTransfer::CmdStartFileTransfer("t1", info));
}

struct AlignmentService : M_Alignment::IService {
    Calls<M_Alignment::CmdAlignmentState> calls;
    void CmdAlignmentState(const std::string& id, bool active, const M_Common::BooleanOptionalType& parallax) override {
        calls.add(M_Alignment::CmdAlignmentState(id, active, parallax));
    }
};
struct ActuationService : M_ActuationCtrl::IService {
    Calls<M_ActuationCtrl::ConfigActuationComponentReference> calls;
    void ConfigActuationComponentReference(const std::string& id, const M_ActuationCtrl::ActuationCommandType& ref,
                                           bool persist, bool dispose) override {
        calls.add(M_ActuationCtrl::ConfigActuationComponentReference(id, ref, persist), dispose);
    }
};

TEST(Values, AnAbsentFlagDiffersFromFalseAndADataFlagFromTheDisposeFlag) {
    AlignmentService alignmentImpl;
    auto alignment = M_Alignment::Service::create(newSession(), "alignment", alignmentImpl);
    auto alignmentClient = M_Alignment::Client::createWriteOnly(newSession(), "console");
    alignmentClient->CmdAlignmentState("sight", true, {});
    alignmentClient->CmdAlignmentState("sight", true, {false});

    ActuationService actuationImpl;
    auto actuation = M_ActuationCtrl::Service::create(newSession(), "actuation", actuationImpl);
    auto actuationClient = M_ActuationCtrl::Client::createWriteOnly(newSession(), "console");
    const M_ActuationCtrl::ActuationCommandType empty;  // every member absent
    actuationClient->ConfigActuationComponentReference("valve", empty, true, false);
    ASSERT_TRUE(actuationImpl.calls.waitCount(1));
    actuationClient->ConfigActuationComponentReference("valve", empty, true, true);

    ASSERT_TRUE(alignmentImpl.calls.waitCount(2) && actuationImpl.calls.waitCount(1, true));
    EXPECT_TRUE(alignmentImpl.calls.received()[0].ParallaxCorrection.empty());
    EXPECT_EQ(alignmentImpl.calls.received()[1].ParallaxCorrection, M_Common::BooleanOptionalType{false});
    EXPECT_EQ(actuationImpl.calls.received(), std::vector<M_ActuationCtrl::ConfigActuationComponentReference>(
                                                  {M_ActuationCtrl::ConfigActuationComponentReference("valve", empty, true)}));
    EXPECT_EQ(actuationImpl.calls.received(true).front().KeyId, "valve");
}

}  // namespace
