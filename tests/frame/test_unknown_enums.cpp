// A peer may send enumeration values that this build does not declare (a newer interface revision, or a
// corrupt peer): they arrive as literal 0 instead of the whole message being lost, at the top of a value,
// nested, in lists and in optionals. The peer here is a plain DDS writer of the same wire types.
#include <dds/dds.h>
#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include "M_Alert.h"
#include "M_Camera.h"
#include "M_ImageProcessing.h"
#include "kelva/actors/Session.h"
#include "vantrel/M_Alert.h"
#include "vantrel/M_Camera.h"
#include "vantrel/M_ImageProcessing.h"
#include "vantrel/frame/Convert.h"
#include "vantrel/test/Support.h"

using vantrel::test::waitUntil;

namespace {

// A plain DDS writer of one wire type, offering what every topic of the system requests.
template <class Wire>
class RawWriter {
public:
    RawWriter(const dds_topic_descriptor_t* descriptor, const char* topicName) {
        m_participant = dds_create_participant(vantrel::test::domainId(), nullptr, nullptr);
        dds_qos_t* qos = dds_create_qos();
        dds_qset_reliability(qos, DDS_RELIABILITY_RELIABLE, DDS_SECS(1));
        dds_qset_durability(qos, DDS_DURABILITY_TRANSIENT_LOCAL);
        dds_qset_history(qos, DDS_HISTORY_KEEP_ALL, DDS_LENGTH_UNLIMITED);
        const dds_entity_t topic = dds_create_topic(m_participant, descriptor, topicName, qos, nullptr);
        m_writer = dds_create_writer(m_participant, topic, qos, nullptr);
        dds_delete_qos(qos);
    }
    ~RawWriter() { dds_delete(m_participant); }

    bool matched() const {
        dds_publication_matched_status_t status{};
        return dds_get_publication_matched_status(m_writer, &status) == DDS_RETCODE_OK && status.current_count > 0;
    }
    dds_return_t write(const Wire& sample) { return dds_write(m_writer, &sample); }

private:
    dds_entity_t m_participant, m_writer;
};

struct Received {
    std::mutex mutex;
    std::vector<M_Alert::AlarmLogType> logs;
    std::vector<M_ImageProcessing::ImageProcessingSettingsType> settings;
    std::vector<M_Common::OperationModeType> modes;
};

struct AlertConsole : M_Alert::IClient {
    Received& received;
    explicit AlertConsole(Received& r) : received(r) {}
    void ReportAlarmLog(const std::string&, const M_Alert::AlarmLogType& log, bool) override {
        std::lock_guard<std::mutex> lock(received.mutex);
        received.logs.push_back(log);
    }
};

struct ImagingConsole : M_ImageProcessing::IClient {
    Received& received;
    explicit ImagingConsole(Received& r) : received(r) {}
    void ReportImageProcessingSettings(const M_ImageProcessing::ImageProcessingSettingsType& s) override {
        std::lock_guard<std::mutex> lock(received.mutex);
        received.settings.push_back(s);
    }
};

struct Camera : M_Camera::IService {
    Received& received;
    explicit Camera(Received& r) : received(r) {}
    void ConfigOperationMode(const M_Common::OperationModeType& mode) override {
        std::lock_guard<std::mutex> lock(received.mutex);
        received.modes.push_back(mode);
    }
};

constexpr int32_t kUndeclared = 99;
constexpr int32_t kNegative = -5;

TEST(UnknownEnumerations, ArriveAsLiteralZeroNestedInListsAndInOptionals) {
    auto session = std::make_shared<kelva::actors::Session>(vantrel::test::domainId());
    Received console;
    AlertConsole alertConsole(console);
    ImagingConsole imagingConsole(console);
    Camera camera(console);
    auto alert = M_Alert::Client::create(session, "alert-console", alertConsole);
    auto imaging = M_ImageProcessing::Client::create(session, "imaging-console", imagingConsole);
    auto cameraService = M_Camera::Service::create(session, "camera", camera);

    RawWriter<VendorData_M_Alert_IClient_ReportAlarmLog> logWriter(&VendorData_M_Alert_IClient_ReportAlarmLog_desc,
                                                                   "M_Alert_IClient_ReportAlarmLog");
    RawWriter<VendorData_M_ImageProcessing_IClient_ReportImageProcessingSettings> settingsWriter(
        &VendorData_M_ImageProcessing_IClient_ReportImageProcessingSettings_desc,
        "M_ImageProcessing_IClient_ReportImageProcessingSettings");
    RawWriter<VendorData_M_Camera_IService_ConfigOperationMode> modeWriter(
        &VendorData_M_Camera_IService_ConfigOperationMode_desc, "M_Camera_IService_ConfigOperationMode");
    ASSERT_TRUE(waitUntil([&] { return logWriter.matched() && settingsWriter.matched() && modeWriter.matched(); }));

    // Nested in a value: AlarmLogType.Status and .Category.
    VendorData_M_Alert_IClient_ReportAlarmLog log{};
    log.kelva_sending_actor = const_cast<char*>("peer");
    log.KeyAlarmId = const_cast<char*>("a1");
    vantrel::frame::setRawEnum(log.Alarm.Status, kUndeclared);
    vantrel::frame::setRawEnum(log.Alarm.Category, kNegative);
    log.Alarm.IsSuppressed = true;
    log.Alarm.Condition.SubsystemName = log.Alarm.Condition.ComponentName = log.Alarm.Condition.Measure =
        log.Alarm.Condition.Nature = log.Alarm.Condition.AlarmDescription = const_cast<char*>("Power");
    ASSERT_EQ(logWriter.write(log), DDS_RETCODE_OK);

    // In a list: one declared value between two undeclared ones.
    VendorData_M_ImageProcessing_FrameDropKind_Type modes[3];
    vantrel::frame::setRawEnum(modes[0], kUndeclared);
    vantrel::frame::setRawEnum(modes[1], 1);
    vantrel::frame::setRawEnum(modes[2], kNegative);
    VendorData_M_ImageProcessing_IClient_ReportImageProcessingSettings settings{};
    settings.kelva_sending_actor = const_cast<char*>("peer");
    settings.Settings.SupportedFrameDropModes._buffer = modes;
    settings.Settings.SupportedFrameDropModes._length = settings.Settings.SupportedFrameDropModes._maximum = 3;
    settings.Settings.IsCmdScaleSupported = true;
    ASSERT_EQ(settingsWriter.write(settings), DDS_RETCODE_OK);

    // In optionals: OperationModeType.EnumeratedValue and .TransitionState.
    VendorData_M_Common_OperationModeStateKind_Type state;
    vantrel::frame::setRawEnum(state, kUndeclared);
    VendorData_M_Common_ModeTransitionKind_Type transition;
    vantrel::frame::setRawEnum(transition, kNegative);
    VendorData_M_Camera_IService_ConfigOperationMode mode{};
    mode.kelva_sending_actor = const_cast<char*>("peer");
    mode.Mode.Name = const_cast<char*>("Day");
    mode.Mode.EnumeratedValue._buffer = &state;
    mode.Mode.EnumeratedValue._length = mode.Mode.EnumeratedValue._maximum = 1;
    mode.Mode.TransitionState._buffer = &transition;
    mode.Mode.TransitionState._length = mode.Mode.TransitionState._maximum = 1;
    ASSERT_EQ(modeWriter.write(mode), DDS_RETCODE_OK);

    ASSERT_TRUE(waitUntil([&] {
        std::lock_guard<std::mutex> lock(console.mutex);
        return !console.logs.empty() && !console.settings.empty() && !console.modes.empty();
    })) << "a message with an undeclared enumeration value was lost";
    std::lock_guard<std::mutex> lock(console.mutex);
    EXPECT_EQ(console.logs[0].Status, static_cast<M_Alert::AlarmStatusKind::Type>(0));
    EXPECT_EQ(console.logs[0].Category, M_Alert::AlarmCategoryKind::Critical_Warning);
    EXPECT_EQ(console.logs[0].Condition.AlarmDescription, "Power");
    const std::vector<M_ImageProcessing::FrameDropKind::Type> expectedModes{
        static_cast<M_ImageProcessing::FrameDropKind::Type>(0), static_cast<M_ImageProcessing::FrameDropKind::Type>(1),
        static_cast<M_ImageProcessing::FrameDropKind::Type>(0)};
    EXPECT_EQ(console.settings[0].SupportedFrameDropModes, expectedModes);
    const auto& received = console.modes[0];
    EXPECT_EQ(received.EnumeratedValue, decltype(received.EnumeratedValue){M_Common::OperationModeStateKind::Type{}});
    EXPECT_EQ(received.TransitionState, decltype(received.TransitionState){M_Common::ModeTransitionKind::Type{}});
    EXPECT_EQ(received.Name, "Day");
}

}  // namespace
