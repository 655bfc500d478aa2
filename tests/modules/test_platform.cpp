// Platform modules: built-in test, device, logging, time, file transfer, error memory, built-in test control,
// language manager and terminal control.
#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "ModuleTest.h"
#include "intern/vantrel/wire/M_DeviceWire.h"
#include "intern/vantrel/wire/M_ErrorMemoryWire.h"
#include "intern/vantrel/wire/M_FileTransferWire.h"
#include "vantrel/M_BuiltInTest.h"
#include "vantrel/M_BuiltInTestCtrl.h"
#include "vantrel/M_Device.h"
#include "vantrel/M_ErrorMemory.h"
#include "vantrel/M_FileTransfer.h"
#include "vantrel/M_LanguageManager.h"
#include "vantrel/M_Logging.h"
#include "vantrel/M_TerminalCtrl.h"
#include "vantrel/M_TimeManager.h"

using modtest::Calls;
using modtest::keysOf;
using modtest::newSession;

namespace {

const std::vector<std::string> kActor{"kelva_sending_actor"};
const std::vector<std::string> kActorAndKeyId{"KeyId", "kelva_sending_actor"};

M_Common::PropertyType property(const std::string& name, const std::string& value) {
    M_Common::PropertyType p;
    p.Name = name;
    p.StrValue = value;
    return p;
}

TEST(Platform, EnumerationsWhoseFirstLiteralIsNotUndefinedDefaultToIt) {
    EXPECT_EQ(M_BuiltInTest::IBitRoutineState::Type{}, M_BuiltInTest::IBitRoutineState::Go);
    EXPECT_EQ(M_BuiltInTest::BitStatusType().Result, M_BuiltInTest::TestResult::Undefined);
    EXPECT_EQ(M_Logging::LogSettingsType().Level, M_Logging::LogLevelKind::Off);
    EXPECT_EQ(M_TimeManager::TimeSourceType().Source, M_TimeManager::TimeSourceKind::Unspecified);
    EXPECT_EQ(M_FileTransfer::FileTransferStatusType().TransferStatus, M_FileTransfer::TransferStatusKind::Unknown);
    const M_ErrorMemory::ErrorEntryType entry;
    EXPECT_EQ(entry.ErrorMethod, M_ErrorMemory::ErrorIdentificationMethodKind::PBIT);
    EXPECT_EQ(entry.ErrorClass, M_ErrorMemory::ErrorClassKind::Undefined);
    EXPECT_EQ(static_cast<int>(M_ErrorMemory::ErrorClassKind::OK), 4);  // the last literal, not the first
    const M_TerminalCtrl::TerminalStateType state;
    EXPECT_EQ(state.AllowedView, M_TerminalCtrl::SightSystemView::Free_Choice);
    EXPECT_EQ(M_TerminalCtrl::LightMode::Type{}, M_TerminalCtrl::LightMode::Default_Light);
    EXPECT_TRUE(state.LightMode.empty());  // the member of that type is optional and starts absent
}

struct BitClient : M_BuiltInTest::IClient {
    Calls<M_BuiltInTest::ReportIBitStatus> calls;
    void ReportIBitStatus(const std::string& name, const M_BuiltInTest::BitStatusType& status, bool dispose) override {
        calls.add(M_BuiltInTest::ReportIBitStatus(name, status), dispose);
    }
};

TEST(Platform, BuiltInTestStatusesAreKeyedByTestName) {
    M_BuiltInTest::BitStatusType passed;
    passed.Result = M_BuiltInTest::TestResult::OK;
    M_BuiltInTest::BitStatusType failed = passed;
    failed.Result = M_BuiltInTest::TestResult::Fatal_Error;
    failed.ErrorCode = {7};
    modtest::expectSeparateInstances<M_BuiltInTest::Service, M_BuiltInTest::Client, BitClient>(
        [](M_BuiltInTest::Service& s, const M_BuiltInTest::ReportIBitStatus& p, bool d) {
            s->ReportIBitStatus(p.KeyIBitName, p.Status, d);
        },
        [](const M_BuiltInTest::ReportIBitStatus& p) { return p.KeyIBitName; },
        M_BuiltInTest::ReportIBitStatus("Memory", passed), M_BuiltInTest::ReportIBitStatus("Memory", failed),
        M_BuiltInTest::ReportIBitStatus("Fan", passed));
}

struct BitCtrlService : M_BuiltInTestCtrl::IService {
    Calls<M_BuiltInTestCtrl::RequestHistoricalRecords> calls;
    void RequestHistoricalRecords(const M_BuiltInTestCtrl::HistoricalBitRecordParamsType& params, uint16_t max) override {
        calls.add(M_BuiltInTestCtrl::RequestHistoricalRecords(params, max));
    }
};
struct BitCtrlClient : M_BuiltInTestCtrl::IClient {
    Calls<M_BuiltInTestCtrl::ResponseHistoricalRecords> calls;
    void ResponseHistoricalRecords(const M_BuiltInTestCtrl::HistoricalBitRecordParamsType& params,
                                   const M_BuiltInTestCtrl::BitRecordListType& records, uint32_t total) override {
        calls.add(M_BuiltInTestCtrl::ResponseHistoricalRecords(params, records, total));
    }
};

TEST(Platform, BuiltInTestControlPagesAtMostOneHundredRecordsAndAsksForUpTo65535) {
    BitCtrlService serviceImpl;
    BitCtrlClient clientImpl;
    auto service = M_BuiltInTestCtrl::Service::create(newSession(), "bit-ctrl", serviceImpl);
    auto client = M_BuiltInTestCtrl::Client::create(newSession(), "console", clientImpl);
    client.waitUntilConnected();

    const M_BuiltInTestCtrl::HistoricalBitRecordParamsType params("history", 65535u * 2, "Result == Failed");
    client->RequestHistoricalRecords(params, 65535);
    ASSERT_TRUE(serviceImpl.calls.waitCount(1));
    EXPECT_EQ(serviceImpl.calls.received().front(), M_BuiltInTestCtrl::RequestHistoricalRecords(params, 65535));

    M_BuiltInTestCtrl::BitRecordListType records(101);
    for (std::size_t i = 0; i < records.size(); ++i) records[i].RecordName = "record " + std::to_string(i);
    try {
        service->ResponseHistoricalRecords(params, records, 101);
        FAIL() << "101 records were accepted";
    } catch (const std::invalid_argument& e) {
        EXPECT_NE(std::string(e.what()).find("M_BuiltInTestCtrl::IClient::ResponseHistoricalRecords::RecordList"),
                  std::string::npos)
            << e.what();
    }
    records.pop_back();
    service->ResponseHistoricalRecords(params, records, 101);
    ASSERT_TRUE(clientImpl.calls.waitCount(1));
    const auto received = clientImpl.calls.received();
    ASSERT_EQ(received.size(), 1u) << "the refused page was sent";  // it would have arrived before this one
    EXPECT_EQ(received.front().RecordList.size(), 100u);
    EXPECT_EQ(received.front(), M_BuiltInTestCtrl::ResponseHistoricalRecords(params, records, 101));
}

struct DeviceClient : M_Device::IClient {
    Calls<M_Device::ReportValue> calls;
    void ReportValue(const std::string& id, const M_Common::PropertyType& value, bool dispose) override {
        calls.add(M_Device::ReportValue(id, value), dispose);
    }
};

TEST(Platform, DeviceValuesAreKeyedByIdWhileRequestsAreKeyedBySenderOnly) {
    modtest::expectSeparateInstances<M_Device::Service, M_Device::Client, DeviceClient>(
        [](M_Device::Service& s, const M_Device::ReportValue& p, bool d) { s->ReportValue(p.KeyId, p.Value, d); },
        [](const M_Device::ReportValue& p) { return p.KeyId; },
        M_Device::ReportValue("fan", property("speed", "1")),
        M_Device::ReportValue("fan", property("speed", "2")),
        M_Device::ReportValue("pump", property("speed", "1")));
    EXPECT_EQ(keysOf<VendorData_M_Device_IService_RequestValue>(), kActor);
}

struct TransferService : M_FileTransfer::IService {
    Calls<M_FileTransfer::CmdStartFileTransfer> calls;
    void CmdStartFileTransfer(const std::string& id, const M_FileTransfer::FileTransferInfoType& info) override {
        calls.add(M_FileTransfer::CmdStartFileTransfer(id, info));
    }
};
struct TransferClient : M_FileTransfer::IClient {
    Calls<M_FileTransfer::ReportFileTransferStatus> calls;
    void ReportFileTransferStatus(const std::string& id, const M_FileTransfer::FileTransferStatusType& status,
                                  const M_FileTransfer::FileTransferInfoOptionalType& info, bool dispose) override {
        calls.add(M_FileTransfer::ReportFileTransferStatus(id, status, info), dispose);
    }
};

TEST(Platform, FileTransferCarriesEveryByteValueAndAnAbsentInfo) {
    TransferService serviceImpl;
    TransferClient clientImpl;
    auto service = M_FileTransfer::Service::create(newSession(), "transfer", serviceImpl);
    auto client = M_FileTransfer::Client::create(newSession(), "console", clientImpl);
    client.waitUntilConnected();

    M_Common::EncryptionType encryption;
    encryption.Algorithm = "aes-gcm";
    for (int i = 0; i < 256; ++i) encryption.Token.push_back(static_cast<uint8_t>(i));
    encryption.Iv = {0, 0, 255, 0};
    M_FileTransfer::FileTransferInfoType info;
    info.SourceFileUrl = "file:///a";
    info.EncryptionInfo = {encryption};
    client->CmdStartFileTransfer("t1", info);
    ASSERT_TRUE(serviceImpl.calls.waitCount(1));
    const auto start = serviceImpl.calls.received().front();
    ASSERT_EQ(start.FileTransferInfo.EncryptionInfo.size(), 1u);
    EXPECT_EQ(start.FileTransferInfo.EncryptionInfo.front().Token, encryption.Token);
    EXPECT_EQ(start, M_FileTransfer::CmdStartFileTransfer("t1", info));

    M_FileTransfer::FileTransferStatusType status;
    status.TransferStatus = M_FileTransfer::TransferStatusKind::In_Progress;
    service->ReportFileTransferStatus("t1", status, {}, false);
    ASSERT_TRUE(clientImpl.calls.waitCount(1));
    EXPECT_TRUE(clientImpl.calls.received().front().FileTransferInfo.empty());
    EXPECT_EQ(clientImpl.calls.received().front(), M_FileTransfer::ReportFileTransferStatus("t1", status, {}));

    // KeyId names the transfer in the commands but is a key only of the status report.
    EXPECT_TRUE(keysOf<VendorData_M_FileTransfer_IService_CmdStartFileTransfer>().empty());
    EXPECT_TRUE(keysOf<VendorData_M_FileTransfer_IService_CmdCancelFileTransfer>().empty());
    EXPECT_EQ(keysOf<VendorData_M_FileTransfer_IClient_ReportFileTransferStatus>(), kActorAndKeyId);
}

struct ErrorClient : M_ErrorMemory::IClient {
    Calls<M_ErrorMemory::ReportEntry> calls;
    void ReportEntry(const std::string& id, const M_ErrorMemory::ErrorEntryType& value, bool dispose) override {
        calls.add(M_ErrorMemory::ReportEntry(id, value), dispose);
    }
};

TEST(Platform, ErrorEntriesAreKeyedByIdButTheDeleteCommandIsNot) {
    M_ErrorMemory::ErrorEntryType warning;
    warning.ErrorClass = M_ErrorMemory::ErrorClassKind::Warning;
    M_ErrorMemory::ErrorEntryType fatal = warning;
    fatal.ErrorClass = M_ErrorMemory::ErrorClassKind::Fatal_Error;
    modtest::expectSeparateInstances<M_ErrorMemory::Service, M_ErrorMemory::Client, ErrorClient>(
        [](M_ErrorMemory::Service& s, const M_ErrorMemory::ReportEntry& p, bool d) { s->ReportEntry(p.KeyId, p.Value, d); },
        [](const M_ErrorMemory::ReportEntry& p) { return p.KeyId; }, M_ErrorMemory::ReportEntry("E1", warning),
        M_ErrorMemory::ReportEntry("E1", fatal), M_ErrorMemory::ReportEntry("E2", warning));
    EXPECT_TRUE(keysOf<VendorData_M_ErrorMemory_IService_CmdDeleteEntry>().empty());
}

struct LanguageClient : M_LanguageManager::IClient {
    Calls<M_LanguageManager::ReportTranslations> calls;
    void ReportTranslations(const std::string& text, const M_LanguageManager::TextListType& translations,
                            bool dispose) override {
        calls.add(M_LanguageManager::ReportTranslations(text, translations), dispose);
    }
};

TEST(Platform, TranslationsAreKeyedByTheirDefaultText) {
    M_LanguageManager::TextListType one(1), two(2);
    modtest::expectSeparateInstances<M_LanguageManager::Service, M_LanguageManager::Client, LanguageClient>(
        [](M_LanguageManager::Service& s, const M_LanguageManager::ReportTranslations& p, bool d) {
            s->ReportTranslations(p.KeyDefaultLanguageText, p.Translations, d);
        },
        [](const M_LanguageManager::ReportTranslations& p) { return p.KeyDefaultLanguageText; },
        M_LanguageManager::ReportTranslations("Open", one), M_LanguageManager::ReportTranslations("Open", two),
        M_LanguageManager::ReportTranslations("Close", one));
}

struct TerminalService : M_TerminalCtrl::IService {
    Calls<M_TerminalCtrl::CmdSetBlackoutMode> calls;
    void CmdSetBlackoutMode(bool enable) override { calls.add(M_TerminalCtrl::CmdSetBlackoutMode(enable)); }
};

TEST(Platform, TerminalBlackoutOffIsAMessage) {
    TerminalService serviceImpl;
    auto service = M_TerminalCtrl::Service::create(newSession(), "terminal", serviceImpl);
    auto client = M_TerminalCtrl::Client::createWriteOnly(newSession(), "console");
    client->CmdSetBlackoutMode(true);
    client->CmdSetBlackoutMode(false);
    ASSERT_TRUE(serviceImpl.calls.waitCount(2));
    EXPECT_EQ(serviceImpl.calls.received(),
              (std::vector<M_TerminalCtrl::CmdSetBlackoutMode>{M_TerminalCtrl::CmdSetBlackoutMode(true),
                                                               M_TerminalCtrl::CmdSetBlackoutMode(false)}));
}

}  // namespace
