// The descriptions that sessions publish of their actors (kelva_intern::ActorInfo): a monitor that joins
// later sees exactly the live actors with their interface versions, and a peer that speaks another
// version of a module is reported once.
#include <dds/dds.h>
#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <string>
#include <thread>

#include "kelva/actors/Session.h"
#include "kelva_intern.h"
#include "vantrel/M_Alert.h"
#include "vantrel/M_Watchdog.h"
#include "vantrel/test/LogCapture.h"
#include "vantrel/test/Support.h"

using kelva::utils::log::Level;
using vantrel::test::waitUntil;

namespace {

// A plain DDS participant reading the actor descriptions as a tool that starts late would.
class LateMonitor {
public:
    LateMonitor() {
        m_participant = dds_create_participant(vantrel::test::domainId(), nullptr, nullptr);
        dds_qos_t* qos = dds_create_qos();
        dds_qset_reliability(qos, DDS_RELIABILITY_RELIABLE, DDS_SECS(1));
        dds_qset_durability(qos, DDS_DURABILITY_TRANSIENT_LOCAL);
        dds_qset_history(qos, DDS_HISTORY_KEEP_LAST, 1);
        const dds_entity_t topic =
            dds_create_topic(m_participant, &kelva_intern_ActorInfo_desc, "kelva_intern_ActorInfo", qos, nullptr);
        m_reader = dds_create_reader(m_participant, topic, qos, nullptr);
        m_writer = dds_create_writer(m_participant, topic, qos, nullptr);
        dds_delete_qos(qos);
    }
    ~LateMonitor() { dds_delete(m_participant); }

    // Actor name -> interface version of every live description (disposed and unregistered ones masked out).
    std::map<std::string, std::string> live() const {
        void* samples[64] = {nullptr};
        dds_sample_info_t infos[64];
        const dds_return_t n = dds_read_mask(m_reader, samples, infos, 64, 64,
                                             DDS_ANY_SAMPLE_STATE | DDS_ANY_VIEW_STATE | DDS_ALIVE_INSTANCE_STATE);
        std::map<std::string, std::string> live;
        for (dds_return_t i = 0; i < n; ++i) {
            const auto& s = *static_cast<const kelva_intern_ActorInfo*>(samples[i]);
            if (infos[i].valid_data) live[s.Name] = s.InterfaceVersion;
        }
        if (n > 0) dds_return_loan(m_reader, samples, n);
        return live;
    }

    // Publishes the description of an actor of session "peer-session" for `module` speaking `version`.
    void announce(const char* actorId, const char* module, const char* version) {
        kelva_intern_ActorInfo s{};
        s.ActorId = const_cast<char*>(actorId);
        s.SessionId = const_cast<char*>("peer-session");
        s.Name = const_cast<char*>("foreign");
        s.ModuleName = const_cast<char*>(module);
        s.InterfaceVersion = const_cast<char*>(version);
        ASSERT_EQ(dds_write(m_writer, &s), DDS_RETCODE_OK);
    }

private:
    dds_entity_t m_participant, m_reader, m_writer;
};

TEST(ActorInfo, AMonitorJoiningLaterSeesOnlyLiveActorsAndAPeerOfAnotherVersionIsReportedOnce) {
    vantrel::test::LogCapture capture(Level::warn);
    auto session = std::make_shared<kelva::actors::Session>(vantrel::test::domainId());
    auto kept = M_Alert::Client::createWriteOnly(session, "kept");
    {
        auto gone = M_Alert::Client::createWriteOnly(session, "gone");
        auto alsoGone = M_Watchdog::Service::createWriteOnly(session, "also-gone");
    }
    LateMonitor monitor;
    monitor.announce("peer:1", "M_Alert", "2.0.0");
    monitor.announce("peer:2", "M_Alert", "2.0.0");
    monitor.announce("peer:3", "M_Camera", "7.0.0");  // not used here: not reported
    monitor.announce("peer:4", "M_Alert", M_Alert::InterfaceVersion.c_str());
    // One line for the two peer actors of version 2.0.0, naming either of them.
    const std::string line = "Interface version mismatch: M_Alert is " + M_Alert::InterfaceVersion +
                             " here, 2.0.0 in peer session peer-session (actor peer:";
    auto mismatches = [&] {
        std::size_t n = 0;
        for (const auto& text : capture.texts(Level::warn)) {
            if (text.rfind("Interface version mismatch: ", 0) != 0) continue;
            ++n;
            EXPECT_TRUE(text == line + "1)" || text == line + "2)") << text;
        }
        return n;
    };
    std::map<std::string, std::string> live;
    ASSERT_TRUE(waitUntil([&] { return (live = monitor.live()).count("kept") == 1 && mismatches() == 1; }));
    EXPECT_EQ(live["kept"], M_Alert::InterfaceVersion);
    // Give withdrawn descriptions and repeated reports the time to show up if they were still there.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    live = monitor.live();
    EXPECT_EQ(live.count("gone"), 0u);
    EXPECT_EQ(live.count("also-gone"), 0u);
    EXPECT_EQ(mismatches(), 1u);

    kept.invalidate();
    EXPECT_TRUE(waitUntil([&] { return monitor.live().count("kept") == 0; })) << "the monitor still sees it";
}

}  // namespace
