// What "vantrel ps" and the bridge's monitor show: who takes part in a domain. The toolkit publishes every
// process, session and actor on its kelva_intern topics; the DDS layer's built-in topics give every
// reader and writer with its QoS and type, from which matches and mismatches follow.
#include "vantrel/tool/BusView.h"

#include <map>
#include <set>
#include <vector>

#include <dds/ddsi/ddsi_xqos.h>
#include <dds/ddsi/ddsi_typelib.h>

#include "kelva/actors/InternTopics.h"
#include "kelva_intern.h"
#include "vantrel/tool/Describe.h"
#include "vantrel/tool/Samples.h"

namespace vantrel::tool {

using nlohmann::json;

namespace {

struct Endpoint {
    std::string guid, participant, topic, type;
    dds_reliability_kind_t reliability = DDS_RELIABILITY_BEST_EFFORT;
    dds_durability_kind_t durability = DDS_DURABILITY_VOLATILE;
    const dds_typeinfo_t* typeInfo = nullptr;
};

// Every alive instance's sample of a reader, handed to `use` (loans returned afterwards). Read, not taken,
// so that the next snapshot sees them again: one read with room for all (a read of a full batch would
// return the same samples again, so the room grows until it is not full). What is no longer alive is
// taken away first.
template <class T, class Use>
void readAll(dds_entity_t reader, Use use) {
    for (;;) {
        void* gone[64] = {};
        dds_sample_info_t goneInfos[64];
        const dds_return_t n = dds_take_mask(reader, gone, goneInfos, 64, 64,
                                             DDS_ANY_SAMPLE_STATE | DDS_ANY_VIEW_STATE | DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE |
                                                 DDS_NOT_ALIVE_NO_WRITERS_INSTANCE_STATE);
        if (n <= 0) break;
        dds_return_loan(reader, gone, n);
    }
    for (std::size_t room = 256;; room *= 4) {
        std::vector<void*> samples(room, nullptr);
        std::vector<dds_sample_info_t> infos(room);
        const dds_return_t n = dds_read(reader, samples.data(), infos.data(), room, static_cast<uint32_t>(room));
        if (n <= 0) return;
        if (static_cast<std::size_t>(n) == room) {
            dds_return_loan(reader, samples.data(), n);
            continue;
        }
        for (dds_return_t i = 0; i < n; ++i)
            if (infos[i].valid_data && infos[i].instance_state == DDS_IST_ALIVE) use(*static_cast<const T*>(samples[i]));
        dds_return_loan(reader, samples.data(), n);
        return;
    }
}

dds_entity_t internReader(dds_entity_t participant, const dds_topic_descriptor_t* desc, const char* name) {
    dds_qos_t* qos = kelva::actors::intern::topicQos();
    const dds_entity_t topic = dds_create_topic(participant, desc, name, qos, nullptr);
    const dds_entity_t reader = dds_create_reader(participant, topic, qos, nullptr);
    dds_delete_qos(qos);
    return reader;
}

std::vector<std::string> strings(const dds_sequence_string& seq) {
    std::vector<std::string> out;
    for (uint32_t i = 0; i < seq._length; ++i) out.emplace_back(seq._buffer[i] ? seq._buffer[i] : "");
    return out;
}

}  // namespace

BusView::BusView(Bus& bus)
    : m_bus(bus),
      m_processes(internReader(bus.participant(), &kelva_intern_Process_desc, kelva::actors::intern::kProcessTopic)),
      m_sessions(internReader(bus.participant(), &kelva_intern_Session_desc, kelva::actors::intern::kSessionTopic)),
      m_actors(internReader(bus.participant(), &kelva_intern_ActorInfo_desc, kelva::actors::intern::kActorInfoTopic)),
      m_publications(dds_create_reader(bus.participant(), DDS_BUILTIN_TOPIC_DCPSPUBLICATION, nullptr, nullptr)),
      m_subscriptions(dds_create_reader(bus.participant(), DDS_BUILTIN_TOPIC_DCPSSUBSCRIPTION, nullptr, nullptr)) {}

json BusView::snapshot() {
    dds_guid_t own;
    dds_get_guid(m_bus.participant(), &own);
    const std::string ownGuid = guidText(own);

    struct Proc { std::string host, program; int64_t pid; };
    struct Sess { std::string id, host; int64_t pid; int32_t domain; bool monitor; };
    struct Act { std::string id, session, name, module, version; std::vector<std::string> reads, writes; };
    std::vector<Proc> procs;
    std::vector<Sess> sess;
    std::vector<Act> acts;
    readAll<kelva_intern_Process>(m_processes, [&](const auto& p) {
        procs.push_back({p.HostName ? p.HostName : "", p.ProgramName ? p.ProgramName : "", p.ProcessId});
    });
    readAll<kelva_intern_Session>(m_sessions, [&](const auto& s) {
        sess.push_back({s.SessionId ? s.SessionId : "", s.HostName ? s.HostName : "", s.ProcessId, s.DomainId, s.IsMonitor});
    });
    readAll<kelva_intern_ActorInfo>(m_actors, [&](const auto& a) {
        acts.push_back({a.ActorId, a.SessionId, a.Name, a.ModuleName, a.InterfaceVersion ? a.InterfaceVersion : "",
                        strings(a.MethodsRead), strings(a.MethodsWrite)});
    });

    // Endpoints per topic, without the tool's own (the kelva_intern and built-in readers above).
    std::map<std::string, std::vector<Endpoint>> writers, readers;
    auto collect = [&](dds_entity_t reader, std::map<std::string, std::vector<Endpoint>>& into) {
        readAll<dds_builtintopic_endpoint_t>(reader, [&](const dds_builtintopic_endpoint_t& e) {
            Endpoint ep;
            ep.guid = guidText(e.key);
            ep.participant = guidText(e.participant_key);
            if (ep.participant == ownGuid) return;
            ep.topic = e.topic_name;
            ep.type = e.type_name;
            dds_qget_reliability(e.qos, &ep.reliability, nullptr);
            dds_qget_durability(e.qos, &ep.durability);
            const dds_typeinfo_t* ti = nullptr;
            if (dds_builtintopic_get_endpoint_type_info(const_cast<dds_builtintopic_endpoint_t*>(&e), &ti) == DDS_RETCODE_OK && ti)
                ep.typeInfo = reinterpret_cast<const dds_typeinfo_t*>(ddsi_typeinfo_dup(reinterpret_cast<const ddsi_typeinfo_t*>(ti)));
            into[ep.topic].push_back(ep);
        });
    };
    collect(m_publications, writers);
    collect(m_subscriptions, readers);

    // Mismatches: QoS a reader requests that a writer does not offer, different types on one topic, and
    // actors of one module with different interface versions.
    std::vector<std::string> mismatches;
    std::set<std::string> topics;
    for (const auto& [t, _] : writers) topics.insert(t);
    for (const auto& [t, _] : readers) topics.insert(t);
    for (const auto& topic : topics) {
        const auto& ws = writers[topic];
        const auto& rs = readers[topic];
        std::vector<const Endpoint*> all;
        for (const auto& e : ws) all.push_back(&e);
        for (const auto& e : rs) all.push_back(&e);
        for (const auto* e : all)
            if (e->type != all.front()->type)
                mismatches.push_back(topic + ": type names differ (" + all.front()->type + " vs " + e->type + ")");
        for (const auto& w : ws)
            for (const auto& r : rs) {
                if (r.reliability == DDS_RELIABILITY_RELIABLE && w.reliability != DDS_RELIABILITY_RELIABLE)
                    mismatches.push_back(topic + ": writer " + w.guid + " offers best-effort, reader " + r.guid + " requests reliable");
                if (r.durability > w.durability)
                    mismatches.push_back(topic + ": writer " + w.guid + " offers a weaker durability than reader " + r.guid + " requests");
                if (w.typeInfo && r.typeInfo && w.type == r.type &&
                    !ddsi_typeinfo_equal(reinterpret_cast<const ddsi_typeinfo_t*>(w.typeInfo),
                                         reinterpret_cast<const ddsi_typeinfo_t*>(r.typeInfo), DDSI_TYPE_IGNORE_DEPS))
                    mismatches.push_back(topic + ": writer " + w.guid + " and reader " + r.guid + " declare different type information for " + w.type);
            }
    }
    std::map<std::string, std::set<std::string>> versions;
    for (const auto& a : acts) versions[a.module].insert(a.version);
    for (const auto& [module, vs] : versions) {
        const auto* known = catalog::findModule(module);
        std::set<std::string> all = vs;
        if (known) all.insert(known->version);
        if (all.size() > 1) {
            std::string list;
            for (const auto& v : all) list += (list.empty() ? "" : ", ") + v;
            mismatches.push_back(module + ": interface versions differ on the bus (" + list + ")");
        }
    }

    // Matched peers of an operation: the readers (for what an actor sends) or writers (for what it reads).
    const auto& config = m_bus.config();
    auto peers = [&](const std::string& module, const std::string& operation, bool sends) {
        for (const char* iface : {"IService", "IClient"}) {
            const auto* op = catalog::findOperation(module + "." + iface + "." + operation);
            if (!op) continue;
            const std::string topic = topicNameOf(*op, config);
            return sends ? readers[topic].size() : writers[topic].size();
        }
        return std::size_t{0};
    };
    auto side = [](const Act& a) -> std::string {
        const auto* module = catalog::findModule(a.module);
        if (!module) return "?";
        // A service sends IClient operations and reads IService ones; a client the reverse.
        for (const bool sends : {true, false})
            for (const auto& name : sends ? a.writes : a.reads) {
                const auto* op = catalog::findOperation(a.module + "." + name);
                if (!op) continue;
                const bool clientOperation = std::string(op->interface) == "IClient";
                return sends == clientOperation ? "Service" : "Client";
            }
        return "?";
    };

    json out = {{"domain", m_bus.domain()}, {"processes", json::array()}, {"sessions", json::array()},
                {"actors", json::array()}, {"mismatches", mismatches}};
    for (const auto& p : procs) out["processes"].push_back({{"host", p.host}, {"pid", p.pid}, {"program", p.program}});
    for (const auto& s : sess)
        out["sessions"].push_back({{"id", s.id}, {"host", s.host}, {"pid", s.pid}, {"domain", s.domain}, {"monitor", s.monitor}});
    for (const auto& a : acts) {
        json reads = json::object(), writes = json::object();
        for (const auto& m : a.reads) reads[m] = {{"writers", peers(a.module, m, false)}};
        for (const auto& m : a.writes) writes[m] = {{"readers", peers(a.module, m, true)}};
        out["actors"].push_back({{"id", a.id}, {"session", a.session}, {"name", a.name}, {"module", a.module},
                                 {"side", side(a)}, {"version", a.version}, {"reads", reads}, {"sends", writes}});
    }
    for (auto* map : {&writers, &readers})
        for (auto& [_, eps] : *map)
            for (auto& e : eps)
                if (e.typeInfo) dds_free_typeinfo(const_cast<dds_typeinfo_t*>(e.typeInfo));
    return out;
}

}  // namespace vantrel::tool
