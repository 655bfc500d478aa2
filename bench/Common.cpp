#include "Common.h"

#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "kelva/config/Config.h"

namespace vantrel::bench {

namespace {
bool g_keepAllReports = false;
}  // namespace

double secondsSince(Clock::time_point t0) { return std::chrono::duration<double>(Clock::now() - t0).count(); }

void keepAllReports(bool on) { g_keepAllReports = on; }

std::shared_ptr<Session> makeSession(int domain, int firstWriteTimeoutMs) {
    kelva::config::Config config;  // the defaults, whatever KELVA_CONFIG says: the raw side copies them
    if (g_keepAllReports) config.qos.insert(config.qos.begin(), kelva::config::QosRule{"*_IClient_Report*"});
    config.logLevel = kelva::utils::log::Level::error;
    config.firstWriteTimeoutMs = firstWriteTimeoutMs;
    // The secured rows: every session of the run, this process's and its peers', with the security files of
    // the configuration that VANTREL_BENCH_SECURITY names (inherited by the peers).
    if (const char* secured = std::getenv("VANTREL_BENCH_SECURITY"))
        config.security = kelva::config::Config::fromFile(secured).security;
    return std::make_shared<Session>(domain, config);
}

void check(dds_return_t rc, const char* what) {
    if (rc < 0) throw std::runtime_error(std::string(what) + ": " + dds_strretcode(rc));
}

// The product's defaults: reliable (blocking at most the default rule's time) everywhere;
// "*_IClient_Report*" transient-local keep-last 1 (unless keepAllReports), the rest volatile keep-all; writers
// do not dispose when they unregister.
dds_qos_t* rawQos(const char* topicName, bool forWriter) {
    const bool state = std::strstr(topicName, "_IClient_Report") != nullptr && !g_keepAllReports;
    dds_qos_t* qos = dds_create_qos();
    dds_qset_reliability(qos, DDS_RELIABILITY_RELIABLE, DDS_MSECS(kelva::config::QosRule{}.maxBlockingTimeMs));
    dds_qset_durability(qos, state ? DDS_DURABILITY_TRANSIENT_LOCAL : DDS_DURABILITY_VOLATILE);
    if (state) dds_qset_history(qos, DDS_HISTORY_KEEP_LAST, 1);
    else dds_qset_history(qos, DDS_HISTORY_KEEP_ALL, DDS_LENGTH_UNLIMITED);
    if (forWriter) dds_qset_writer_data_lifecycle(qos, false);
    return qos;
}

dds_entity_t rawTopic(dds_entity_t participant, const dds_topic_descriptor_t* desc, const char* name) {
    dds_qos_t* qos = rawQos(name, false);
    const dds_entity_t topic = dds_create_topic(participant, desc, name, qos, nullptr);
    dds_delete_qos(qos);
    check(topic, "dds_create_topic");
    return topic;
}

dds_entity_t rawWriter(dds_entity_t participant, const dds_topic_descriptor_t* desc, const char* name) {
    dds_qos_t* qos = rawQos(name, true);
    const dds_entity_t writer = dds_create_writer(participant, rawTopic(participant, desc, name), qos, nullptr);
    dds_delete_qos(qos);
    check(writer, "dds_create_writer");
    return writer;
}

dds_entity_t rawReader(dds_entity_t participant, const dds_topic_descriptor_t* desc, const char* name,
                       const dds_listener_t* listener) {
    dds_qos_t* qos = rawQos(name, false);
    const dds_entity_t reader = dds_create_reader(participant, rawTopic(participant, desc, name), qos, listener);
    dds_delete_qos(qos);
    check(reader, "dds_create_reader");
    return reader;
}

void waitMatched(dds_entity_t writer, int readers, double seconds) {
    const auto t0 = Clock::now();
    dds_publication_matched_status_t st{};
    for (;;) {
        check(dds_get_publication_matched_status(writer, &st), "dds_get_publication_matched_status");
        if (static_cast<int>(st.current_count) >= readers) return;
        if (secondsSince(t0) > seconds) {
            char topic[256] = "?";
            dds_get_name(dds_get_topic(writer), topic, sizeof topic);
            throw std::runtime_error(std::string(topic) + ": " + std::to_string(st.current_count) + " of " +
                                     std::to_string(readers) + " readers matched after " + std::to_string(seconds) + " s");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

void takeEach(dds_entity_t reader, dds_entity_t condition, const std::function<void(const void*)>& onSample) {
    void* samples[16];
    dds_sample_info_t infos[16];
    for (;;) {
        samples[0] = nullptr;
        const dds_return_t n = dds_take(condition, samples, infos, 16, 16);
        if (n <= 0) break;
        for (dds_return_t i = 0; i < n; ++i)
            if (infos[i].valid_data) onSample(samples[i]);
        dds_return_loan(reader, samples, n);
    }
}

RawReader::RawReader(dds_entity_t participant, dds_entity_t reader, std::function<void(const void*)> onSample)
    : m_onSample(std::move(onSample)), m_reader(reader) {
    check(m_reader, "dds_create_reader");
    m_condition = dds_create_readcondition(m_reader, DDS_ANY_STATE);
    m_waitset = dds_create_waitset(participant);
    m_wakeup = dds_create_guardcondition(participant);
    check(dds_waitset_attach(m_waitset, m_condition, 0), "dds_waitset_attach");
    check(dds_waitset_attach(m_waitset, m_wakeup, 0), "dds_waitset_attach");
    m_thread = std::thread([this] { run(); });
}

RawReader::~RawReader() {
    m_stop = true;
    dds_set_guardcondition(m_wakeup, true);
    m_thread.join();
    dds_delete(m_waitset);
    dds_delete(m_wakeup);
    dds_delete(m_reader);
}

void RawReader::run() {
    while (!m_stop) {
        dds_waitset_wait(m_waitset, nullptr, 0, DDS_INFINITY);
        takeEach(m_reader, m_condition, m_onSample);
    }
}

M_Alert::AlarmConditionInfoType smallCondition() {
    return M_Alert::AlarmConditionInfoType("Power", "Battery", "Voltage", "Low", "battery voltage below limit");
}

M_Alert::AlertStatusType largeStatus() {
    constexpr int kLargeEntries = 300;
    M_Alert::AlertStatusType status;
    for (int i = 0; i < kLargeEntries; ++i) {
        const std::string n = std::to_string(i);
        status.AlarmConditionStatusList.emplace_back(
            M_Alert::AlarmConditionInfoType("Subsystem" + n, "Component" + n, "Measure", "Nature", "alarm " + n),
            M_Alert::AlarmCategoryKind::Warning, "Warning", "Condition" + n, false, false);
    }
    status.NumberOfActiveWarningAlarms = kLargeEntries;
    return status;
}

VendorData_M_Alert_AlarmConditionInfoType wireOf(const M_Alert::AlarmConditionInfoType& c) {
    auto p = [](const std::string& s) { return const_cast<char*>(s.c_str()); };
    return {p(c.SubsystemName), p(c.ComponentName), p(c.Measure), p(c.Nature), p(c.AlarmDescription)};
}

VendorData_M_Alert_IClient_ReportAlertStatus wireOf(const M_Alert::AlertStatusType& s, const char* actor,
                                                    std::vector<VendorData_M_Alert_AlarmConditionStatusType>& elements) {
    elements.clear();
    for (const auto& e : s.AlarmConditionStatusList)
        elements.push_back({wireOf(e.ConditionInfo), static_cast<VendorData_M_Alert_AlarmCategoryKind_Type>(e.Category),
                            const_cast<char*>(e.CategoryName.c_str()), const_cast<char*>(e.ConditionName.c_str()),
                            e.HasMultipleInstances, e.IsOverridden});
    VendorData_M_Alert_IClient_ReportAlertStatus m{};
    m.kelva_sending_actor = const_cast<char*>(actor);
    m.Status.AlarmConditionStatusList = {static_cast<uint32_t>(elements.size()), static_cast<uint32_t>(elements.size()),
                                         elements.data(), false};
    m.Status.NumberOfActiveWarningAlarms = s.NumberOfActiveWarningAlarms;
    return m;
}

}  // namespace vantrel::bench
