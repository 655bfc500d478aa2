#pragma once
// Who takes part in a domain, as one JSON document (what "vantrel ps --json" prints and the bridge's
// monitor shows): processes, sessions, actors with their side and matched peers, and the QoS, type and
// interface-version mismatches. The readers it needs live as long as the view, so each snapshot sees
// what discovery has gathered so far.
#include <dds/dds.h>
#include <nlohmann/json.hpp>

#include "vantrel/tool/Bus.h"

namespace vantrel::tool {

class BusView {
public:
    explicit BusView(Bus& bus);
    BusView(const BusView&) = delete;
    BusView& operator=(const BusView&) = delete;

    // {"domain", "processes": [{host, pid, program}], "sessions": [{id, host, pid, domain, monitor}],
    //  "actors": [{id, session, name, module, side, version, reads: {Op: {writers}}, sends: {Op: {readers}}}],
    //  "mismatches": [text]}
    nlohmann::json snapshot();

private:
    Bus& m_bus;
    dds_entity_t m_processes, m_sessions, m_actors, m_publications, m_subscriptions;
};

}  // namespace vantrel::tool
