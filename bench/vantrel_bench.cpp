// vantrel-bench: the frame (module facades) against raw ddsc with the same idlc types and the same QoS, on
// loopback. It prints a table of ratios for the parts named (without names: all of them):
//   small       throughput, one writer process, one reader process: CmdRaiseAlarm
//   large       the same for ReportAlertStatus with 300 entries, every message delivered (keep-all), and
//               with its default keep-last 1 (the reader skips replaced messages; for information)
//   roundtrip   CmdRaiseAlarm answered by ReportAlarmLog (client -> service -> client)
//   latency     the smallest round trip of the interface (M_SignalGenerator ConfigGeneratorState answered by
//               ReportGeneratorState from the service's handler) against a raw ping-pong with a waitset
//               thread per side (one thread hand-off per hop, as the frame's dispatcher) and one with
//               listeners (delivery on the DDS layer's receive thread)
//   send        in-process cost of one call without a reader: time and heap allocations per call
//   startup     the client and service of every module in one process; two processes matching
//   secure      throughput and round trip of the frame with DDS security (authentication, access control,
//               encryption; key material made by "vantrel security setup") against the same without it
//   python      the Python binding's send of the small command (bench/python_send.py) against the frame's
//               throughput in C++
//   record      the vantrel tool's recorder beside a plain ddsc subscriber of the same stream (small messages
//               at full speed, 1 MB messages at 30 Hz): counts and CPU; each recording compared byte for
//               byte with what was sent, replayed into a fresh domain, recorded again and compared
//   rate        what "vantrel hz" and "vantrel bw" report against the rate and bytes the writer sent
// "vantrel-bench profile <frame|raw> <small|large|large-all> <n>" runs one writer and one reader in one
// process for a profiler such as callgrind.
// Every part repeats (the frame/raw parts after a warm-up) and reports the median with the spread
// [min..max] over repetitions. The two-process parts run this binary again as their peer ("vantrel-bench
// peer <role> ..."); the peer talks to the parent over its stdin/stdout and ends when its stdin closes.
// The tool parts run the vantrel executable of this build beside it.
#include <dds/dds.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <mutex>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "AllModules.h"
#include "Child.h"
#include "M_Alert.h"  // the idlc C types
#include "M_SignalGenerator.h"
#include "Table.h"
#include "ToolParts.h"
#include "kelva/actors/Session.h"
#include "kelva/actors/SessionImpl.h"
#include "kelva/config/Config.h"
#include "vantrel/M_Alert.h"
#include "vantrel/M_SignalGenerator.h"

extern char** environ;

// ---- Heap allocations per thread: every operator new, and every malloc/calloc/realloc (C and C++) ----

namespace {
thread_local std::uint64_t t_news = 0;
thread_local std::uint64_t t_mallocs = 0;
}  // namespace

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void __libc_free(void*);
void* malloc(std::size_t n) noexcept {
    ++t_mallocs;
    return __libc_malloc(n);
}
void* calloc(std::size_t n, std::size_t size) noexcept {
    ++t_mallocs;
    return __libc_calloc(n, size);
}
void* realloc(void* p, std::size_t n) noexcept {
    ++t_mallocs;
    return __libc_realloc(p, n);
}
void free(void* p) noexcept { __libc_free(p); }
}
#endif

void* operator new(std::size_t n) {
    ++t_news;
    if (void* p = std::malloc(n ? n : 1)) return p;
    throw std::bad_alloc();
}
void* operator new[](std::size_t n) { return ::operator new(n); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }

namespace {

using Clock = std::chrono::steady_clock;
using kelva::actors::Session;

double secondsSince(Clock::time_point t0) { return std::chrono::duration<double>(Clock::now() - t0).count(); }

using vantrel::bench::fmt;
using vantrel::bench::fmtSummary;
using vantrel::bench::quantile;
using vantrel::bench::row;
using vantrel::bench::summarize;
using vantrel::bench::verdict;

// ---- Sessions and raw entities with the toolkit's default QoS ----

// Set for the throughput of every large message: the state reports' topics become volatile keep-all (the
// rest as by default), on both sides. With the default keep-last 1 the reader skips whatever a newer
// message replaced before its take, so how much it processes depends on scheduling.
bool g_keepAllReports = false;

std::shared_ptr<Session> makeSession(int domain, int firstWriteTimeoutMs = 2000) {
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

// The toolkit's defaults: reliable (blocking at most 50 ms) everywhere; "*_IClient_Report*" transient-local
// keep-last 1 (unless g_keepAllReports), the rest volatile keep-all; writers do not dispose when they
// unregister.
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

void check(dds_return_t rc, const char* what) {
    if (rc < 0) throw std::runtime_error(std::string(what) + ": " + dds_strretcode(rc));
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

void waitForReader(dds_entity_t writer) {
    const auto t0 = Clock::now();
    dds_publication_matched_status_t st{};
    while (dds_get_publication_matched_status(writer, &st) == DDS_RETCODE_OK && st.current_count == 0) {
        if (secondsSince(t0) > 20) throw std::runtime_error("raw writer: no reader matched in 20 s");
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

// A raw reader with its own thread, like the toolkit's dispatcher: a waitset on a read condition, samples
// taken as loans in batches of 16, valid data handed to `onSample`.
class RawReader {
public:
    RawReader(dds_entity_t participant, const dds_topic_descriptor_t* desc, const char* name,
              std::function<void(const void*)> onSample)
        : m_onSample(std::move(onSample)) {
        dds_qos_t* qos = rawQos(name, false);
        m_reader = dds_create_reader(participant, rawTopic(participant, desc, name), qos, nullptr);
        dds_delete_qos(qos);
        check(m_reader, "dds_create_reader");
        m_condition = dds_create_readcondition(m_reader, DDS_ANY_STATE);
        m_waitset = dds_create_waitset(participant);
        m_wakeup = dds_create_guardcondition(participant);
        check(dds_waitset_attach(m_waitset, m_condition, 0), "dds_waitset_attach");
        check(dds_waitset_attach(m_waitset, m_wakeup, 0), "dds_waitset_attach");
        m_thread = std::thread([this] { run(); });
    }
    ~RawReader() {
        m_stop = true;
        dds_set_guardcondition(m_wakeup, true);
        m_thread.join();
        dds_delete(m_waitset);
        dds_delete(m_wakeup);
        dds_delete(m_reader);
    }

private:
    void run() {
        while (!m_stop) {
            dds_waitset_wait(m_waitset, nullptr, 0, DDS_INFINITY);
            void* samples[16];
            dds_sample_info_t infos[16];
            for (;;) {
                samples[0] = nullptr;
                const dds_return_t n = dds_take(m_condition, samples, infos, 16, 16);
                if (n <= 0) break;
                for (dds_return_t i = 0; i < n; ++i)
                    if (infos[i].valid_data) m_onSample(samples[i]);
                dds_return_loan(m_reader, samples, n);
            }
        }
    }

    std::function<void(const void*)> m_onSample;
    dds_entity_t m_reader = 0, m_condition = 0, m_waitset = 0, m_wakeup = 0;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

// ---- The messages ----

M_Alert::AlarmConditionInfoType smallCondition() {
    return M_Alert::AlarmConditionInfoType("Power", "Battery", "Voltage", "Low", "battery voltage below limit");
}

constexpr int kLargeEntries = 300;

M_Alert::AlertStatusType largeStatus() {
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

// The raw large message points at the API value's strings; the element array lives in `elements`.
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

const char* const kRawActor = "bench-raw-actor";
const char* const kSmallTopic = "M_Alert_IService_CmdRaiseAlarm";
const char* const kLargeTopic = "M_Alert_IClient_ReportAlertStatus";
const char* const kLogTopic = "M_Alert_IClient_ReportAlarmLog";

// ---- The peer process ----

void say(const std::string& line) {
    static std::mutex mutex;
    std::lock_guard<std::mutex> lock(mutex);
    std::fputs((line + "\n").c_str(), stdout);
    std::fflush(stdout);
}

void waitForStdinEof() {
    char buffer[64];
    while (read(0, buffer, sizeof buffer) > 0) {
    }
}

class Peer {
public:
    explicit Peer(const std::vector<std::string>& args) {
        int toChild[2], fromChild[2];
        if (pipe(toChild) != 0 || pipe(fromChild) != 0) throw std::runtime_error("pipe failed");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, toChild[0], 0);
        posix_spawn_file_actions_adddup2(&actions, fromChild[1], 1);
        for (int fd : {toChild[0], toChild[1], fromChild[0], fromChild[1]}) posix_spawn_file_actions_addclose(&actions, fd);
        std::vector<std::string> all{"/proc/self/exe", "peer"};
        all.insert(all.end(), args.begin(), args.end());
        std::vector<char*> argv;
        for (auto& a : all) argv.push_back(a.data());
        argv.push_back(nullptr);
        const int rc = posix_spawn(&m_pid, "/proc/self/exe", &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        close(toChild[0]);
        close(fromChild[1]);
        m_in = toChild[1];
        m_out = fromChild[0];
        if (rc != 0) throw std::runtime_error("posix_spawn failed");
    }
    ~Peer() {
        close(m_in);  // the peer ends when its stdin closes
        for (int i = 0; i < 200; ++i) {
            if (waitpid(m_pid, nullptr, WNOHANG) == m_pid) {
                close(m_out);
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
        close(m_out);
    }

    // The next line the peer printed, or "" after `timeoutMs` without one.
    std::string line(int timeoutMs) {
        const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
        for (;;) {
            const auto nl = m_buffer.find('\n');
            if (nl != std::string::npos) {
                std::string l = m_buffer.substr(0, nl);
                m_buffer.erase(0, nl + 1);
                return l;
            }
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
            if (left <= 0) return "";
            pollfd p{m_out, POLLIN, 0};
            if (poll(&p, 1, static_cast<int>(left)) <= 0) continue;
            char chunk[256];
            const ssize_t n = read(m_out, chunk, sizeof chunk);
            if (n <= 0) throw std::runtime_error("peer ended unexpectedly");
            m_buffer.append(chunk, static_cast<std::size_t>(n));
        }
    }
    // Skips lines until one starts with `prefix`; throws after `timeoutMs`.
    std::string expect(const std::string& prefix, int timeoutMs) {
        const auto t0 = Clock::now();
        while (secondsSince(t0) * 1000 < timeoutMs) {
            std::string l = line(timeoutMs);
            if (l.rfind(prefix, 0) == 0) return l;
        }
        throw std::runtime_error("peer: no \"" + prefix + "\" within " + std::to_string(timeoutMs) + " ms");
    }

private:
    pid_t m_pid = 0;
    int m_in = -1, m_out = -1;
    std::string m_buffer;
};

// ---- 1. Throughput ----

// The writer's side: send(marker, id) writes one message; the marker ends a batch and carries its id.
struct Source {
    virtual ~Source() = default;
    virtual void send(bool marker, int id) = 0;
};

struct FrameSmallSource final : Source {
    std::shared_ptr<Session> session;
    M_Alert::Client client;
    M_Alert::AlarmConditionInfoType value = smallCondition(), marker = smallCondition();
    explicit FrameSmallSource(int domain) : session(makeSession(domain)), client(M_Alert::Client::createWriteOnly(session, "bench-writer")) {
        marker.Measure = "end";
    }
    void send(bool isMarker, int id) override {
        if (!isMarker) return client->CmdRaiseAlarm(value);
        marker.Nature = std::to_string(id);
        client->CmdRaiseAlarm(marker);
    }
};

struct RawSmallSource final : Source {
    dds_entity_t participant, writer;
    M_Alert::AlarmConditionInfoType value = smallCondition(), marker = smallCondition();
    VendorData_M_Alert_IService_CmdRaiseAlarm message{}, markerMessage{};
    explicit RawSmallSource(int domain)
        : participant(dds_create_participant(domain, nullptr, nullptr)),
          writer(rawWriter(participant, &VendorData_M_Alert_IService_CmdRaiseAlarm_desc, kSmallTopic)) {
        marker.Measure = "end";
        message = {const_cast<char*>(kRawActor), wireOf(value)};
    }
    ~RawSmallSource() override { dds_delete(participant); }
    void send(bool isMarker, int id) override {
        if (!isMarker) {
            check(dds_write(writer, &message), "dds_write");
            return;
        }
        marker.Nature = std::to_string(id);
        markerMessage = {const_cast<char*>(kRawActor), wireOf(marker)};
        check(dds_write(writer, &markerMessage), "dds_write");
    }
};

struct FrameLargeSource final : Source {
    std::shared_ptr<Session> session;
    M_Alert::Service service;
    M_Alert::AlertStatusType value = largeStatus(), marker = largeStatus();
    explicit FrameLargeSource(int domain) : session(makeSession(domain)), service(M_Alert::Service::createWriteOnly(session, "bench-writer")) {}
    void send(bool isMarker, int id) override {
        if (!isMarker) return service->ReportAlertStatus(value, false);
        marker.NumberOfActiveThreatAlerts = static_cast<uint32_t>(id);
        service->ReportAlertStatus(marker, false);
    }
};

struct RawLargeSource final : Source {
    dds_entity_t participant, writer;
    M_Alert::AlertStatusType value = largeStatus();
    std::vector<VendorData_M_Alert_AlarmConditionStatusType> elements;
    VendorData_M_Alert_IClient_ReportAlertStatus message{};
    explicit RawLargeSource(int domain)
        : participant(dds_create_participant(domain, nullptr, nullptr)),
          writer(rawWriter(participant, &VendorData_M_Alert_IClient_ReportAlertStatus_desc, kLargeTopic)) {
        message = wireOf(value, kRawActor, elements);
    }
    ~RawLargeSource() override { dds_delete(participant); }
    void send(bool isMarker, int id) override {
        message.Status.NumberOfActiveThreatAlerts = isMarker ? static_cast<uint32_t>(id) : 0;
        check(dds_write(writer, &message), "dds_write");
    }
};

// The reader's side: counts messages and answers each marker with "ack <id> <count>" (the peer prints it).
struct Counter {
    std::atomic<long> count{0};
    std::function<void(const std::string&)> ack = say;
    void onMessage(const char* markerId) {
        const long n = ++count;
        if (markerId) {
            count -= n;
            ack("ack " + std::string(markerId) + " " + std::to_string(n));
        }
    }
};

// The frame's or raw reader of the small or large message, counting into `counter` until destroyed.
class Sink {
public:
    Sink(const std::string& variant, const std::string& size, int domain, Counter& counter) {
        smallImpl.c = largeImpl.c = &counter;
        if (variant == "frame") {
            session = makeSession(domain);
            if (size == "small") service = M_Alert::Service::create(session, "bench-reader", smallImpl);
            else client = M_Alert::Client::create(session, "bench-reader", largeImpl);
            return;
        }
        participant = dds_create_participant(domain, nullptr, nullptr);
        if (size == "small") {
            reader = std::make_unique<RawReader>(participant, &VendorData_M_Alert_IService_CmdRaiseAlarm_desc, kSmallTopic, [&counter](const void* s) {
                const auto& m = *static_cast<const VendorData_M_Alert_IService_CmdRaiseAlarm*>(s);
                counter.onMessage(std::strcmp(m.Condition.Measure, "end") == 0 ? m.Condition.Nature : nullptr);
            });
        } else {
            reader = std::make_unique<RawReader>(participant, &VendorData_M_Alert_IClient_ReportAlertStatus_desc, kLargeTopic, [&counter](const void* s) {
                const auto& m = *static_cast<const VendorData_M_Alert_IClient_ReportAlertStatus*>(s);
                const std::string id = std::to_string(m.Status.NumberOfActiveThreatAlerts);
                counter.onMessage(m.Status.NumberOfActiveThreatAlerts ? id.c_str() : nullptr);
            });
        }
    }
    ~Sink() {
        reader.reset();
        if (participant) dds_delete(participant);
    }

private:
    struct SmallImpl : M_Alert::IService {
        Counter* c = nullptr;
        void CmdRaiseAlarm(const M_Alert::AlarmConditionInfoType& v) override {
            c->onMessage(v.Measure == "end" ? v.Nature.c_str() : nullptr);
        }
    } smallImpl;
    struct LargeImpl : M_Alert::IClient {
        Counter* c = nullptr;
        void ReportAlertStatus(const M_Alert::AlertStatusType& v, bool) override {
            const std::string id = std::to_string(v.NumberOfActiveThreatAlerts);
            c->onMessage(v.NumberOfActiveThreatAlerts ? id.c_str() : nullptr);
        }
    } largeImpl;
    std::shared_ptr<Session> session;
    M_Alert::Service service;  // after the implementations they call
    M_Alert::Client client;
    dds_entity_t participant = 0;
    std::unique_ptr<RawReader> reader;
};

int peerSink(const std::string& variant, const std::string& size, int domain) {
    g_keepAllReports = size == "large-all";
    Counter counter;
    Sink sink(variant, size, domain, counter);
    say("ready");
    waitForStdinEof();
    return 0;
}

std::unique_ptr<Source> makeSource(const std::string& variant, const std::string& size, int domain) {
    if (variant == "frame")
        return size == "small" ? std::unique_ptr<Source>(new FrameSmallSource(domain)) : std::unique_ptr<Source>(new FrameLargeSource(domain));
    return size == "small" ? std::unique_ptr<Source>(new RawSmallSource(domain)) : std::unique_ptr<Source>(new RawLargeSource(domain));
}

// For profiling ("vantrel-bench profile <frame|raw> <small|large> <n>", e.g. under callgrind): writer and
// reader in this one process, `n` messages and then markers until the reader has seen one (every large
// message is a marker and is answered before the next).
int profile(const std::string& variant, const std::string& size, int n) {
    g_keepAllReports = size == "large-all";
    const int domain = 1 + static_cast<int>(getpid() % 190);
    std::mutex mutex;
    std::condition_variable acked;
    std::string last;
    Counter counter;
    counter.ack = [&](const std::string& line) {
        std::lock_guard<std::mutex> lock(mutex);
        last = line;
        acked.notify_all();
    };
    Sink sink(variant, size, domain, counter);
    const std::unique_ptr<Source> source = makeSource(variant, size, domain);
    auto waitAck = [&](int id, int ms) {
        std::unique_lock<std::mutex> lock(mutex);
        return acked.wait_for(lock, std::chrono::milliseconds(ms), [&] { return last.rfind("ack " + std::to_string(id) + " ", 0) == 0; });
    };
    int id = 1;
    while (!waitAck(id, 0)) {  // discovery
        source->send(true, id);
        if (!waitAck(id, 100) && ++id > 600) throw std::runtime_error("profile: the reader never answered");
    }
    const auto t0 = Clock::now();
    if (size == "large") {
        // Keep-last 1 would let the reader skip most messages: here each one waits for its reader.
        for (int i = 0; i < n; ++i) {
            source->send(true, ++id);
            if (!waitAck(id, 5000)) throw std::runtime_error("profile: a large message went unanswered");
        }
    } else {
        for (int i = 0; i < n; ++i) source->send(false, 0);
    }
    source->send(true, ++id);
    while (!waitAck(id, 1000)) source->send(true, ++id);  // keep-last 1 may replace a marker in flight
    std::printf("%s %s: %d messages in %.3f s, %s\n", variant.c_str(), size.c_str(), n, secondsSince(t0), last.c_str());
    return 0;
}

// One variant's writer (here) and reader (a peer process), discovered and ready for batches.
class ThroughputSide {
public:
    ThroughputSide(const std::string& variant, const std::string& size, int domain)
        : m_size(size), m_peer({"sink", variant, size, std::to_string(domain)}) {
        m_peer.expect("ready", 20000);
        m_source = makeSource(variant, size, domain);
        // Until both sides have discovered each other, markers may go unheard: repeat one until it is answered.
        for (const auto t0 = Clock::now();; ++m_id) {
            m_source->send(true, m_id);
            if (m_peer.line(50).rfind("ack", 0) == 0) break;
            if (secondsSince(t0) > 20) throw std::runtime_error("throughput: the reader never answered");
        }
    }

    // Messages per second of a batch of `n`, timed from its first write until the reader acknowledged
    // its last. Keep-all topics must deliver every message.
    double batch(int n) {
        ++m_id;
        const auto t0 = Clock::now();
        for (int i = 1; i < n; ++i) m_source->send(false, 0);
        m_source->send(true, m_id);
        const std::string want = "ack " + std::to_string(m_id) + " ";
        std::string ack;
        while ((ack = m_peer.expect("ack", 60000)).rfind(want, 0) != 0) {
        }
        const double seconds = secondsSince(t0);
        const long received = std::stol(ack.substr(want.size()));
        if (m_size != "large" && received != n)
            throw std::runtime_error("throughput: " + std::to_string(received) + " of " + std::to_string(n) + " received");
        return n / seconds;
    }

private:
    std::string m_size;
    Peer m_peer;
    std::unique_ptr<Source> m_source;
    int m_id = 1;
};

struct Throughput {
    std::vector<double> frame, raw;
};

// Each repetition starts both variants afresh (new processes, new discovery), warms them up and times one
// batch of each, frame and raw alternating: both see the same machine, and how the processes' threads
// happen to share the two CPUs varies between repetitions instead of favouring one variant for a whole run.
Throughput throughput(const std::string& size, int frameDomain, int rawDomain, int n, int reps) {
    g_keepAllReports = size == "large-all";
    Throughput result;
    for (int rep = 0; rep < reps; ++rep) {
        for (const char* variant : {"frame", "raw"}) {
            const bool frame = std::string(variant) == "frame";
            ThroughputSide side(variant, size, frame ? frameDomain : rawDomain);
            side.batch(n / 5);
            (frame ? result.frame : result.raw).push_back(side.batch(n));
        }
    }
    return result;
}

// ---- 2. Round trip ----

// Ping-pong driven from the receiving thread: each reply with the expected sequence number records its
// latency and sends the next command.
class PingPong {
public:
    std::function<void(uint32_t)> send;

    // Latencies in microseconds of `count` round trips; fewer if the time runs out.
    std::vector<double> run(int count, int timeoutMs) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_latencies.clear();
        m_latencies.reserve(static_cast<std::size_t>(count));
        m_remaining = count;
        ++m_seq;
        m_t0 = Clock::now();
        send(m_seq);
        m_done.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] { return m_remaining == 0; });
        m_remaining = 0;
        return m_latencies;
    }

    void onReply(uint32_t seq) {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (seq != m_seq || m_remaining == 0) return;
        m_latencies.push_back(std::chrono::duration<double, std::micro>(Clock::now() - m_t0).count());
        if (--m_remaining == 0) return m_done.notify_all();
        ++m_seq;
        m_t0 = Clock::now();
        send(m_seq);
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_done;
    std::vector<double> m_latencies;
    int m_remaining = 0;
    uint32_t m_seq = 0;
    Clock::time_point m_t0;
};

// The service's side (peer): answers each CmdRaiseAlarm with a ReportAlarmLog holding its condition.
int peerEcho(const std::string& variant, int domain) {
    if (variant == "frame") {
        struct Echo : M_Alert::IService {
            std::atomic<M_Alert::Service*> service{nullptr};
            M_Alert::AlarmLogType log;
            void CmdRaiseAlarm(const M_Alert::AlarmConditionInfoType& c) override {
                log.Condition = c;
                (*service.load())->ReportAlarmLog("A1", log, false);
            }
        } echo;
        auto session = makeSession(domain);
        auto service = M_Alert::Service::create(session, "bench-echo", echo);
        echo.service = &service;
        say("ready");
        waitForStdinEof();
        return 0;
    }
    const dds_entity_t participant = dds_create_participant(domain, nullptr, nullptr);
    {
        const dds_entity_t writer = rawWriter(participant, &VendorData_M_Alert_IClient_ReportAlarmLog_desc, kLogTopic);
        RawReader reader(participant, &VendorData_M_Alert_IService_CmdRaiseAlarm_desc, kSmallTopic, [&](const void* s) {
            VendorData_M_Alert_IClient_ReportAlarmLog reply{};
            reply.kelva_sending_actor = const_cast<char*>(kRawActor);
            reply.KeyAlarmId = const_cast<char*>("A1");
            reply.Alarm.Condition = static_cast<const VendorData_M_Alert_IService_CmdRaiseAlarm*>(s)->Condition;
            check(dds_write(writer, &reply), "dds_write");
        });
        say("ready");
        waitForStdinEof();
    }
    dds_delete(participant);
    return 0;
}

// One variant's client side (here) and echoing service (a peer process), discovered and warmed up.
class RoundTripSide {
public:
    RoundTripSide(const std::string& variant, int domain, int warmUp) : m_peer({"echo", variant, std::to_string(domain)}) {
        m_peer.expect("ready", 20000);
        m_replies.p = &m_pingPong;
        if (variant == "frame") {
            m_session = makeSession(domain);
            m_client = M_Alert::Client::create(m_session, "bench-rt", m_replies);
            m_pingPong.send = [this](uint32_t seq) {
                m_condition.Nature = std::to_string(seq);
                m_client->CmdRaiseAlarm(m_condition);
            };
        } else {
            m_participant = dds_create_participant(domain, nullptr, nullptr);
            m_writer = rawWriter(m_participant, &VendorData_M_Alert_IService_CmdRaiseAlarm_desc, kSmallTopic);
            m_reader = std::make_unique<RawReader>(m_participant, &VendorData_M_Alert_IClient_ReportAlarmLog_desc, kLogTopic, [this](const void* s) {
                const auto& m = *static_cast<const VendorData_M_Alert_IClient_ReportAlarmLog*>(s);
                m_pingPong.onReply(static_cast<uint32_t>(std::strtoul(m.Alarm.Condition.Nature, nullptr, 10)));
            });
            m_message = {const_cast<char*>(kRawActor), wireOf(m_condition)};
            m_pingPong.send = [this](uint32_t seq) {
                std::snprintf(m_seqText, sizeof m_seqText, "%u", seq);
                m_message.Condition.Nature = m_seqText;
                check(dds_write(m_writer, &m_message), "dds_write");
            };
            waitForReader(m_writer);
        }
        // Until both sides have discovered each other, a command or its reply may go unheard: retry.
        for (const auto t0 = Clock::now(); m_pingPong.run(1, 100).empty();)
            if (secondsSince(t0) > 20) throw std::runtime_error("round trip: no reply");
        m_pingPong.run(warmUp, 30000);
    }
    ~RoundTripSide() {
        m_client.invalidate();
        m_reader.reset();
        if (m_participant) dds_delete(m_participant);
    }

    // Latencies in microseconds of `count` round trips.
    std::vector<double> run(int count) {
        auto latencies = m_pingPong.run(count, 60000);
        if (static_cast<int>(latencies.size()) != count) throw std::runtime_error("round trip: replies missing");
        return latencies;
    }

private:
    struct Replies : M_Alert::IClient {
        PingPong* p = nullptr;
        void ReportAlarmLog(const std::string&, const M_Alert::AlarmLogType& log, bool) override {
            p->onReply(static_cast<uint32_t>(std::strtoul(log.Condition.Nature.c_str(), nullptr, 10)));
        }
    };
    Peer m_peer;
    PingPong m_pingPong;
    M_Alert::AlarmConditionInfoType m_condition = smallCondition();
    Replies m_replies;
    std::shared_ptr<Session> m_session;
    M_Alert::Client m_client;  // after the replies it calls
    dds_entity_t m_participant = 0, m_writer = 0;
    std::unique_ptr<RawReader> m_reader;
    VendorData_M_Alert_IService_CmdRaiseAlarm m_message{};
    char m_seqText[16] = {};
};

struct RoundTrip {
    std::vector<double> frameMedians, frameP99s, rawMedians, rawP99s;
};

// Repetitions of `count` round trips, frame and raw alternating, each with fresh processes (see throughput).
RoundTrip roundTrip(int frameDomain, int rawDomain, int count, int reps) {
    RoundTrip result;
    for (int rep = 0; rep < reps; ++rep) {
        {
            RoundTripSide frame("frame", frameDomain, count / 4);
            const auto f = frame.run(count);
            result.frameMedians.push_back(quantile(f, 0.5));
            result.frameP99s.push_back(quantile(f, 0.99));
        }
        {
            RoundTripSide raw("raw", rawDomain, count / 4);
            const auto r = raw.run(count);
            result.rawMedians.push_back(quantile(r, 0.5));
            result.rawP99s.push_back(quantile(r, 0.99));
        }
    }
    return result;
}

// ---- 2b. The smallest round trip: frame, raw waitset, raw listener ----

const char* const kPingTopic = "M_SignalGenerator_IService_ConfigGeneratorState";
const char* const kPongTopic = "M_SignalGenerator_IClient_ReportGeneratorState";

// A raw reader whose samples are handed to `onSample` on the DDS layer's receive thread (a listener).
class RawListenerReader {
public:
    RawListenerReader(dds_entity_t participant, const dds_topic_descriptor_t* desc, const char* name,
                      std::function<void(const void*)> onSample)
        : m_onSample(std::move(onSample)) {
        dds_qos_t* qos = rawQos(name, false);
        dds_listener_t* listener = dds_create_listener(this);
        dds_lset_data_available(listener, &onData);
        m_reader = dds_create_reader(participant, rawTopic(participant, desc, name), qos, listener);
        dds_delete_listener(listener);
        dds_delete_qos(qos);
        check(m_reader, "dds_create_reader");
    }
    ~RawListenerReader() { dds_delete(m_reader); }

private:
    static void onData(dds_entity_t reader, void* arg) {
        auto* self = static_cast<RawListenerReader*>(arg);
        void* samples[16];
        dds_sample_info_t infos[16];
        for (;;) {
            samples[0] = nullptr;
            const dds_return_t n = dds_take(reader, samples, infos, 16, 16);
            if (n <= 0) break;
            for (dds_return_t i = 0; i < n; ++i)
                if (infos[i].valid_data) self->m_onSample(samples[i]);
            dds_return_loan(reader, samples, n);
        }
    }
    std::function<void(const void*)> m_onSample;
    dds_entity_t m_reader = 0;
};

// Raw ping-pong endpoints of one process: a writer of `out` and a reader of `in` (waitset thread or
// listener) calling `onValue` with the uint32 carried.
class RawPingPongEnd {
public:
    RawPingPongEnd(int domain, bool listener, const dds_topic_descriptor_t* outDesc, const char* out,
                   const dds_topic_descriptor_t* inDesc, const char* in, std::function<void(uint32_t)> onValue)
        : m_participant(dds_create_participant(domain, nullptr, nullptr)) {
        check(m_participant, "dds_create_participant");
        m_writer = rawWriter(m_participant, outDesc, out);
        const bool inIsPing = std::strcmp(in, kPingTopic) == 0;
        auto value = [inIsPing](const void* s) {
            return inIsPing ? static_cast<const VendorData_M_SignalGenerator_IService_ConfigGeneratorState*>(s)->State
                            : static_cast<const VendorData_M_SignalGenerator_IClient_ReportGeneratorState*>(s)->GeneratorState;
        };
        auto handler = [value, onValue = std::move(onValue)](const void* s) { onValue(value(s)); };
        if (listener) m_listenerReader = std::make_unique<RawListenerReader>(m_participant, inDesc, in, handler);
        else m_waitsetReader = std::make_unique<RawReader>(m_participant, inDesc, in, handler);
    }
    ~RawPingPongEnd() {
        m_waitsetReader.reset();
        m_listenerReader.reset();
        dds_delete(m_participant);
    }
    void sendPing(uint32_t v) {
        VendorData_M_SignalGenerator_IService_ConfigGeneratorState m{const_cast<char*>(kRawActor), v};
        check(dds_write(m_writer, &m), "dds_write");
    }
    void sendPong(uint32_t v) {
        VendorData_M_SignalGenerator_IClient_ReportGeneratorState m{const_cast<char*>(kRawActor), v};
        check(dds_write(m_writer, &m), "dds_write");
    }
    dds_entity_t writer() const { return m_writer; }

private:
    dds_entity_t m_participant;
    dds_entity_t m_writer = 0;
    std::unique_ptr<RawReader> m_waitsetReader;
    std::unique_ptr<RawListenerReader> m_listenerReader;
};

// The service's side (peer): answers each ConfigGeneratorState with ReportGeneratorState of its value.
int peerPong(const std::string& variant, int domain) {
    if (variant == "frame") {
        struct Pong : M_SignalGenerator::IService {
            std::atomic<M_SignalGenerator::Service*> service{nullptr};
            void ConfigGeneratorState(uint32_t state) override { (*service.load())->ReportGeneratorState(state); }
        } pong;
        auto session = makeSession(domain);
        auto service = M_SignalGenerator::Service::create(session, "bench-pong", pong);
        pong.service = &service;
        say("ready");
        waitForStdinEof();
        return 0;
    }
    std::unique_ptr<RawPingPongEnd> end;
    std::atomic<RawPingPongEnd*> self{nullptr};
    end = std::make_unique<RawPingPongEnd>(domain, variant == "raw-listener", &VendorData_M_SignalGenerator_IClient_ReportGeneratorState_desc,
                                           kPongTopic, &VendorData_M_SignalGenerator_IService_ConfigGeneratorState_desc, kPingTopic,
                                           [&self](uint32_t v) {
                                               if (auto* e = self.load()) e->sendPong(v);
                                           });
    self = end.get();
    say("ready");
    waitForStdinEof();
    self = nullptr;
    end.reset();
    return 0;
}

// One variant's pinging client (here) and its ponging service (a peer process), discovered and warmed up.
class LatencySide {
public:
    LatencySide(const std::string& variant, int domain, int warmUp) : m_peer({"pong", variant, std::to_string(domain)}) {
        m_peer.expect("ready", 20000);
        m_replies.p = &m_pingPong;
        if (variant == "frame") {
            m_session = makeSession(domain);
            m_client = M_SignalGenerator::Client::create(m_session, "bench-ping", m_replies);
            m_pingPong.send = [this](uint32_t seq) { m_client->ConfigGeneratorState(seq); };
        } else {
            m_raw = std::make_unique<RawPingPongEnd>(domain, variant == "raw-listener",
                                                     &VendorData_M_SignalGenerator_IService_ConfigGeneratorState_desc, kPingTopic,
                                                     &VendorData_M_SignalGenerator_IClient_ReportGeneratorState_desc, kPongTopic,
                                                     [this](uint32_t v) { m_pingPong.onReply(v); });
            m_pingPong.send = [this](uint32_t seq) { m_raw->sendPing(seq); };
            waitForReader(m_raw->writer());
        }
        for (const auto t0 = Clock::now(); m_pingPong.run(1, 100).empty();)
            if (secondsSince(t0) > 20) throw std::runtime_error("latency: no reply");
        m_pingPong.run(warmUp, 30000);
    }
    ~LatencySide() {
        m_client.invalidate();
        m_raw.reset();
    }
    std::vector<double> run(int count) {
        auto latencies = m_pingPong.run(count, 60000);
        if (static_cast<int>(latencies.size()) != count) throw std::runtime_error("latency: replies missing");
        return latencies;
    }

private:
    struct Replies : M_SignalGenerator::IClient {
        PingPong* p = nullptr;
        void ReportGeneratorState(uint32_t state) override { p->onReply(state); }
    };
    Peer m_peer;
    PingPong m_pingPong;
    Replies m_replies;
    std::shared_ptr<Session> m_session;
    M_SignalGenerator::Client m_client;  // after the replies it calls
    std::unique_ptr<RawPingPongEnd> m_raw;
};

struct Latency {
    std::vector<double> frameMedians, frameP99s, waitsetMedians, waitsetP99s, listenerMedians, listenerP99s;
};

// Repetitions of `count` round trips after `count / 10` to warm up, the three variants alternating, each
// with fresh processes.
Latency latency(int domain, int count, int reps) {
    Latency result;
    for (int rep = 0; rep < reps; ++rep) {
        for (const char* variant : {"frame", "raw-waitset", "raw-listener"}) {
            LatencySide side(variant, domain + rep % 2, count / 10);
            const auto l = side.run(count);
            const std::string v = variant;
            auto& medians = v == "frame" ? result.frameMedians : v == "raw-waitset" ? result.waitsetMedians : result.listenerMedians;
            auto& p99s = v == "frame" ? result.frameP99s : v == "raw-waitset" ? result.waitsetP99s : result.listenerP99s;
            medians.push_back(quantile(l, 0.5));
            p99s.push_back(quantile(l, 0.99));
        }
    }
    return result;
}

// ---- 3. The send path in-process ----

struct CallCost {
    std::vector<double> ns, news, mallocs;  // per call, one value per repetition
};

// One repetition: `n` calls, their time and allocations per call appended to `cost`.
template <class Call>
void measure(Call&& call, int n, CallCost& cost) {
    const std::uint64_t news0 = t_news, mallocs0 = t_mallocs;
    const auto t0 = Clock::now();
    for (int i = 0; i < n; ++i) call();
    const double seconds = secondsSince(t0);
    cost.ns.push_back(seconds * 1e9 / n);
    cost.news.push_back(static_cast<double>(t_news - news0) / n);
    cost.mallocs.push_back(static_cast<double>(t_mallocs - mallocs0) / n);
}

struct SendCosts {
    CallCost frameSmall, rawSmall, frameLarge, rawLarge;
};

// Frame and raw writers side by side; their repetitions alternate so that both see the same machine.
SendCosts sendPath(int frameDomain, int rawDomain, int reps) {
    auto session = makeSession(frameDomain, /*firstWriteTimeoutMs=*/0);
    auto client = M_Alert::Client::createWriteOnly(session, "bench-send");
    auto service = M_Alert::Service::createWriteOnly(session, "bench-send-service");
    const dds_entity_t participant = dds_create_participant(rawDomain, nullptr, nullptr);
    const dds_entity_t small = rawWriter(participant, &VendorData_M_Alert_IService_CmdRaiseAlarm_desc, kSmallTopic);
    const dds_entity_t large = rawWriter(participant, &VendorData_M_Alert_IClient_ReportAlertStatus_desc, kLargeTopic);
    const auto condition = smallCondition();
    const auto status = largeStatus();
    const VendorData_M_Alert_IService_CmdRaiseAlarm smallMessage{const_cast<char*>(kRawActor), wireOf(condition)};
    std::vector<VendorData_M_Alert_AlarmConditionStatusType> elements;
    const auto largeMessage = wireOf(status, kRawActor, elements);

    auto frameSmall = [&] { client->CmdRaiseAlarm(condition); };
    auto rawSmall = [&] { check(dds_write(small, &smallMessage), "dds_write"); };
    auto frameLarge = [&] { service->ReportAlertStatus(status, false); };
    auto rawLarge = [&] { check(dds_write(large, &largeMessage), "dds_write"); };
    SendCosts warmUp, costs;  // the warm-up includes the first call's bounded wait, here 0 ms
    for (int rep = -1; rep < reps; ++rep) {
        SendCosts& into = rep < 0 ? warmUp : costs;
        measure(frameSmall, 20000, into.frameSmall);
        measure(rawSmall, 20000, into.rawSmall);
        measure(frameLarge, 1000, into.frameLarge);
        measure(rawLarge, 1000, into.rawLarge);
    }
    dds_delete(participant);
    return costs;
}

// ---- 4. Start-up at full scale ----

long residentKiB() {
    std::ifstream statm("/proc/self/statm");
    long pages = 0, resident = 0;
    statm >> pages >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

struct Endpoints {
    int total = 0, matched = 0;
};

// The module endpoints (topics "M_...") of a participant and how many of them have a match.
Endpoints moduleEndpoints(dds_entity_t participant) {
    auto children = [](dds_entity_t e) {
        std::vector<dds_entity_t> out(4096);
        const dds_return_t n = dds_get_children(e, out.data(), out.size());
        out.resize(n > 0 ? std::min<std::size_t>(static_cast<std::size_t>(n), out.size()) : 0);
        return out;
    };
    Endpoints result;
    for (dds_entity_t group : children(participant)) {
        for (dds_entity_t e : children(group)) {
            const dds_entity_t topic = dds_get_topic(e);
            char name[256];
            if (topic < 0 || dds_get_name(topic, name, sizeof name) < 0 || std::strncmp(name, "M_", 2) != 0) continue;
            dds_publication_matched_status_t pub{};
            dds_subscription_matched_status_t sub{};
            if (dds_get_publication_matched_status(e, &pub) == DDS_RETCODE_OK) {
                ++result.total;
                result.matched += pub.current_count > 0;
            } else if (dds_get_subscription_matched_status(e, &sub) == DDS_RETCODE_OK) {
                ++result.total;
                result.matched += sub.current_count > 0;
            }
        }
    }
    return result;
}

// Polls until every module endpoint of the session has a match; returns the endpoint count.
int waitAllMatched(const std::shared_ptr<Session>& session, int timeoutMs) {
    const dds_entity_t participant = kelva::actors::SessionImpl::getSessionImpl(*session)->participant();
    const auto t0 = Clock::now();
    for (;;) {
        const Endpoints e = moduleEndpoints(participant);
        if (e.total > 0 && e.matched == e.total) return e.total;
        if (secondsSince(t0) * 1000 > timeoutMs)
            throw std::runtime_error("match: " + std::to_string(e.matched) + " of " + std::to_string(e.total) + " matched");
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

// Peer: the client and the service of every module in this process; prints time and resident memory.
int peerStartup(int domain) {
    const long before = residentKiB();
    const auto t0 = Clock::now();
    auto session = makeSession(domain);
    auto all = vantrel::bench::createAllModules(session, true, true);
    const double ms = secondsSince(t0) * 1000;
    const int endpoints = moduleEndpoints(kelva::actors::SessionImpl::getSessionImpl(*session)->participant()).total;
    say("startup " + std::to_string(ms) + " " + std::to_string(before) + " " + std::to_string(residentKiB()) + " " +
        std::to_string(endpoints));
    return 0;
}

// Peer: the service of every module; reports once all its endpoints are matched.
int peerServices(int domain) {
    const auto t0 = Clock::now();
    auto session = makeSession(domain);
    auto all = vantrel::bench::createAllModules(session, false, true);
    const int endpoints = waitAllMatched(session, 60000);
    say("matched " + std::to_string(secondsSince(t0) * 1000) + " " + std::to_string(endpoints));
    waitForStdinEof();
    return 0;
}

struct Startup {
    std::vector<double> createMs, rssMiB, matchMs;
    int endpointsOne = 0, endpointsTwo = 0;
};

Startup startup(int domain, int reps) {
    Startup s;
    for (int rep = 0; rep < reps; ++rep) {
        Peer peer({"startup", std::to_string(domain)});
        std::istringstream in(peer.expect("startup", 60000).substr(8));
        double ms = 0;
        long before = 0, after = 0;
        in >> ms >> before >> after >> s.endpointsOne;
        s.createMs.push_back(ms);
        s.rssMiB.push_back(static_cast<double>(after - before) / 1024.0);
    }
    for (int rep = 0; rep < reps; ++rep) {
        const int d = domain + 1 + rep;
        const auto t0 = Clock::now();
        Peer peer({"services", std::to_string(d)});
        auto session = makeSession(d);
        auto all = vantrel::bench::createAllModules(session, true, false);
        s.endpointsTwo = waitAllMatched(session, 60000);
        std::istringstream in(peer.expect("matched", 60000).substr(8));
        int theirs = 0;
        double theirMs = 0;
        in >> theirMs >> theirs;
        s.endpointsTwo += theirs;
        s.matchMs.push_back(secondsSince(t0) * 1000);
    }
    return s;
}

// ---- The table ----

// The ratio of each frame repetition to the raw one right after it: drift over the run cancels out.
std::vector<double> ratiosOf(const std::vector<double>& frame, const std::vector<double>& raw) {
    std::vector<double> ratios;
    for (std::size_t i = 0; i < frame.size() && i < raw.size(); ++i) ratios.push_back(frame[i] / raw[i]);
    return ratios;
}
std::string pairRatios(const std::vector<double>& frame, const std::vector<double>& raw) {
    return fmtSummary(ratiosOf(frame, raw), 2);
}

std::string machine() {
    std::ifstream cpuinfo("/proc/cpuinfo");
    std::string line, model = "unknown cpu";
    while (std::getline(cpuinfo, line))
        if (line.rfind("model name", 0) == 0) {
            model = line.substr(line.find(':') + 2);
            break;
        }
    std::ifstream loadavg("/proc/loadavg");
    std::string l1;
    loadavg >> l1;
    return model + ", " + std::to_string(std::thread::hardware_concurrency()) + " cpus, load " + l1;
}

void roundTripRows(int base);
void secureRows(int base);
void pythonRows(int base);
void latencyRows(int base);
void sendRows(int base, int reps);
void startupRows(int base);

// The parts by name; no names: all of them.
int runParts(const std::vector<std::string>& parts) {
    auto want = [&](const char* part) { return parts.empty() || std::find(parts.begin(), parts.end(), part) != parts.end(); };
    const int base = 1 + static_cast<int>(getpid() % 190);  // domains base .. base+19
    const std::time_t now = std::time(nullptr);
    char date[32];
    std::strftime(date, sizeof date, "%Y-%m-%d %H:%M", std::localtime(&now));
    std::printf("vantrel-bench %s on %s\n", date, machine().c_str());
    std::printf("medians [min..max] over repetitions; frame = module facades, raw = ddsc dds_write/dds_take, same types and QoS;\n"
                "frame and raw repetitions alternate; frame/raw is the median [min..max] of the ratios of each pair\n\n");
    row("part", "frame", "raw", "frame/raw", "target");
    row("----", "-----", "---", "---------", "------");

    const int reps = 7;
    auto tp = [&](const char* size, int n, int offset, const char* label, bool target) {
        const Throughput t = throughput(size, base + offset, base + offset + 1, n, target ? 15 : 7);
        const double ratio = summarize(ratiosOf(t.frame, t.raw)).median;
        row(label, fmtSummary(t.frame), fmtSummary(t.raw), pairRatios(t.frame, t.raw), target ? ">= 0.90 " + verdict(ratio >= 0.9) : "- (skips)");
    };
    if (want("small")) tp("small", 50000, 0, "1 throughput CmdRaiseAlarm (msg/s)", true);
    if (want("large")) {
        tp("large-all", 1000, 2, "1 throughput ReportAlertStatus x300 (msg/s)", true);
        tp("large", 1000, 12, "1 same, keep-last 1 (msg/s)", false);
        g_keepAllReports = false;
    }
    if (want("roundtrip")) roundTripRows(base);
    if (want("latency")) latencyRows(base);
    if (want("send")) sendRows(base, reps);
    if (want("startup")) startupRows(base);
    if (want("secure")) secureRows(base);
    if (want("python")) pythonRows(base);
    if (want("record")) vantrel::bench::recordRows();
    if (want("rate")) vantrel::bench::rateRows();
    std::printf("\nload at end: %s\n", machine().c_str());
    return 0;
}

void latencyRows(int base) {
    const Latency l = latency(base + 10, 10000, 5);
    const double median = summarize(ratiosOf(l.frameMedians, l.waitsetMedians)).median;
    const double p99 = summarize(ratiosOf(l.frameP99s, l.waitsetP99s)).median;
    row("2b latency median (us), raw = waitset", fmtSummary(l.frameMedians, 1), fmtSummary(l.waitsetMedians, 1),
        pairRatios(l.frameMedians, l.waitsetMedians), "<= 1.30 " + verdict(median <= 1.3));
    row("2b latency p99 (us), raw = waitset", fmtSummary(l.frameP99s, 1), fmtSummary(l.waitsetP99s, 1),
        pairRatios(l.frameP99s, l.waitsetP99s), "<= 1.50 " + verdict(p99 <= 1.5));
    row("2b latency median (us), raw = listener", fmtSummary(l.frameMedians, 1), fmtSummary(l.listenerMedians, 1),
        pairRatios(l.frameMedians, l.listenerMedians), "-");
    row("2b latency p99 (us), raw = listener", fmtSummary(l.frameP99s, 1), fmtSummary(l.listenerP99s, 1),
        pairRatios(l.frameP99s, l.listenerP99s), "-");
}

void roundTripRows(int base) {
    const RoundTrip rt = roundTrip(base + 4, base + 5, 2000, 7);
    const double ratio = summarize(ratiosOf(rt.frameMedians, rt.rawMedians)).median;
    row("2 round trip median (us)", fmtSummary(rt.frameMedians, 1), fmtSummary(rt.rawMedians, 1),
        pairRatios(rt.frameMedians, rt.rawMedians), "<= 1.15 " + verdict(ratio <= 1.15));
    row("2 round trip p99 (us)", fmtSummary(rt.frameP99s, 1), fmtSummary(rt.rawP99s, 1), pairRatios(rt.frameP99s, rt.rawP99s), "-");
}

// Frame against frame: DDS security on (authentication, access control, every topic encrypted) and off,
// alternating, each repetition with fresh processes. The key material is made by the tool, one identity
// for both ends, granted both sides of M_Alert.
void secureRows(int base) {
    const std::string keys = "/tmp/vantrel-bench-keys-" + std::to_string(getpid());
    {
        vantrel::bench::Child setup({VANTREL_BENCH_TOOL, "security", "setup", keys, "--app", "bench:M_Alert=service,M_Alert=client"});
        if (setup.finish(60).exitCode != 0) throw std::runtime_error("vantrel security setup failed:\n" + setup.output());
    }
    const std::string config = keys + "/bench.toml";
    auto securedIf = [&](bool secured) {
        if (secured) setenv("VANTREL_BENCH_SECURITY", config.c_str(), 1);
        else unsetenv("VANTREL_BENCH_SECURITY");
    };
    std::vector<double> tp[2], rt[2], rt99[2];  // [0] unsecured, [1] secured
    for (int rep = 0; rep < 7; ++rep) {
        for (int secured = 0; secured < 2; ++secured) {
            securedIf(secured);
            ThroughputSide side("frame", "small", base + 14 + secured);
            side.batch(4000);
            tp[secured].push_back(side.batch(20000));
        }
    }
    for (int rep = 0; rep < 5; ++rep) {
        for (int secured = 0; secured < 2; ++secured) {
            securedIf(secured);
            RoundTripSide side("frame", base + 14 + secured, 500);
            const auto latencies = side.run(2000);
            rt[secured].push_back(quantile(latencies, 0.5));
            rt99[secured].push_back(quantile(latencies, 0.99));
        }
    }
    securedIf(false);
    std::filesystem::remove_all(keys);
    row("secured part", "secured", "unsecured", "secured/unsecured", "target");
    row("8 secured throughput CmdRaiseAlarm (msg/s)", fmtSummary(tp[1]), fmtSummary(tp[0]), pairRatios(tp[1], tp[0]), "-");
    row("8 secured round trip median (us)", fmtSummary(rt[1], 1), fmtSummary(rt[0], 1), pairRatios(rt[1], rt[0]), "-");
    row("8 secured round trip p99 (us)", fmtSummary(rt99[1], 1), fmtSummary(rt99[0], 1), pairRatios(rt99[1], rt99[0]), "-");
}

// The Python binding's send path: bench/python_send.py (a Python client sending CmdRaiseAlarm to a Python
// service in another process, timed as part 1 times its batches) against the frame's part 1 in C++, in
// the same run, repetitions interleaved.
void pythonRows(int base) {
    std::vector<double> cpp, python;
    for (int rep = 0; rep < 3; ++rep) {
        for (int i = 0; i < 2; ++i) {
            ThroughputSide side("frame", "small", base + 16);
            side.batch(4000);
            cpp.push_back(side.batch(20000));
        }
        setenv("PYTHONPATH", VANTREL_BENCH_PYTHONPATH, 1);
        setenv("KELVA_TEST_DOMAIN", std::to_string(base + 17).c_str(), 1);
        vantrel::bench::Child script({VANTREL_BENCH_PYTHON, VANTREL_BENCH_PYTHON_SEND, "20000", "2"});
        std::istringstream rates(script.waitFor("batches (msg/s):", 300).substr(16));
        for (double r; rates >> r;) python.push_back(r);
        if (script.finish(30).exitCode != 0) throw std::runtime_error("python_send.py failed:\n" + script.output());
        unsetenv("KELVA_TEST_DOMAIN");
    }
    // The send path alone, no reader: what a call costs the caller, where the throughput above is paced by
    // the reliable pipeline as much as by the sender.
    std::vector<double> pythonNs;
    setenv("KELVA_TEST_DOMAIN", std::to_string(base + 18).c_str(), 1);
    vantrel::bench::Child calls({VANTREL_BENCH_PYTHON, VANTREL_BENCH_PYTHON_SEND, "--send-path", "20000", "7"});
    std::istringstream costs(calls.waitFor("calls (ns/call):", 300).substr(16));
    for (double c; costs >> c;) pythonNs.push_back(c);
    if (calls.finish(30).exitCode != 0) throw std::runtime_error("python_send.py failed:\n" + calls.output());
    unsetenv("KELVA_TEST_DOMAIN");
    const std::vector<double> cppNs = sendPath(base + 18, base + 19, 7).frameSmall.ns;

    const double ratio = summarize(python).median / summarize(cpp).median;
    const double callRatio = summarize(cppNs).median / summarize(pythonNs).median;  // as a ratio of throughputs
    row("python part", "Python", "C++ frame", "Python/C++", "target");
    row("9 send CmdRaiseAlarm, Python (msg/s)", fmtSummary(python), fmtSummary(cpp), fmt(ratio, 2), ">= 0.33 " + verdict(ratio >= 1.0 / 3));
    row("9 send path, no reader (ns/call)", fmtSummary(pythonNs), fmtSummary(cppNs), fmt(callRatio, 2) + " (calls/s)",
        ">= 0.33 " + verdict(callRatio >= 1.0 / 3));
}

void sendRows(int base, int reps) {
    const SendCosts sc = sendPath(base + 6, base + 7, reps);
    row("3 send CmdRaiseAlarm (ns/call)", fmtSummary(sc.frameSmall.ns), fmtSummary(sc.rawSmall.ns),
        pairRatios(sc.frameSmall.ns, sc.rawSmall.ns), "-");
    const double smallNews = summarize(sc.frameSmall.news).median;
    row("3 send CmdRaiseAlarm (operator new/call)", fmt(smallNews, 2), fmt(summarize(sc.rawSmall.news).median, 2), "-",
        "0 " + verdict(smallNews < 0.01));
    row("3 send CmdRaiseAlarm (malloc/call)", fmt(summarize(sc.frameSmall.mallocs).median, 2),
        fmt(summarize(sc.rawSmall.mallocs).median, 2), "-", "-");
    row("3 send ReportAlertStatus x300 (ns/call)", fmtSummary(sc.frameLarge.ns), fmtSummary(sc.rawLarge.ns),
        pairRatios(sc.frameLarge.ns, sc.rawLarge.ns), "-");
    row("3 send ReportAlertStatus (operator new/call)", fmt(summarize(sc.frameLarge.news).median, 2),
        fmt(summarize(sc.rawLarge.news).median, 2), "-", "0 " + verdict(summarize(sc.frameLarge.news).median < 0.01));
    row("3 send ReportAlertStatus (malloc/call)", fmt(summarize(sc.frameLarge.mallocs).median, 2),
        fmt(summarize(sc.rawLarge.mallocs).median, 2), "-", "-");
}

void startupRows(int base) {
    const Startup st = startup(base + 8, 3);
    const std::string modules = std::to_string(vantrel::bench::moduleCount());
    row("4 create " + modules + " clients+services (ms)", fmtSummary(st.createMs), "-", "-",
        std::to_string(st.endpointsOne) + " endpoints");
    row("4 resident memory of that (MiB)", fmtSummary(st.rssMiB, 1), "-", "-", "-");
    row("4 two processes all matched (ms)", fmtSummary(st.matchMs), "-", "-",
        std::to_string(st.endpointsTwo) + " endpoints");
}

int runPeer(int argc, char** argv) {
    alarm(300);  // a peer whose parent hangs does not outlive it by much
    const std::string role = argc > 2 ? argv[2] : "";
    if (role == "sink" && argc == 6) return peerSink(argv[3], argv[4], std::atoi(argv[5]));
    if (role == "echo" && argc == 5) return peerEcho(argv[3], std::atoi(argv[4]));
    if (role == "pong" && argc == 5) return peerPong(argv[3], std::atoi(argv[4]));
    if (role == "startup" && argc == 4) return peerStartup(std::atoi(argv[3]));
    if (role == "services" && argc == 4) return peerServices(std::atoi(argv[3]));
    if (role == "subscriber") return vantrel::bench::runToolPeer(argc, argv);
    std::fprintf(stderr, "vantrel-bench: unknown peer role\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    // Loopback only: the repository's configuration unless the caller chose one.
    setenv("CYCLONEDDS_URI", "file://" VANTREL_BENCH_LOOPBACK_CONFIG, 0);
    try {
        if (argc > 1 && std::string(argv[1]) == "peer") return runPeer(argc, argv);
        if (argc == 5 && std::string(argv[1]) == "profile") return profile(argv[2], argv[3], std::atoi(argv[4]));
        const std::vector<std::string> parts(argv + 1, argv + argc);
        const std::vector<std::string> known{"small", "large", "roundtrip", "latency", "send", "startup", "secure", "python", "record", "rate"};
        if (std::all_of(parts.begin(), parts.end(), [&](const std::string& p) { return std::find(known.begin(), known.end(), p) != known.end(); }))
            return runParts(parts);
        {
            std::fprintf(stderr,
                         "usage: vantrel-bench [small] [large] [roundtrip] [latency] [send] [startup] [secure] [python] [record] [rate]\n"
                         "       (no part: all; prints the table)\n"
                         "       vantrel-bench profile <frame|raw> <small|large|large-all> <n>   (one process, for a profiler)\n");
            return 2;
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "vantrel-bench: %s\n", e.what());
        return 1;
    }
}
