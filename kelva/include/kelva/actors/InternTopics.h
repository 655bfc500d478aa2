#pragma once
// The toolkit's own topics, on which every session describes its process, itself and its actors (types in
// kelva_intern.idl): their names and QoS, for the sessions that write them and the tools that read them.
#include <dds/dds.h>

#include "kelva/Export.h"

namespace kelva::actors::intern {

inline constexpr const char* kProcessTopic = "kelva_intern_Process";
inline constexpr const char* kSessionTopic = "kelva_intern_Session";
inline constexpr const char* kActorInfoTopic = "kelva_intern_ActorInfo";

// Reliable, transient-local, keep last 1: a reader that joins late gets the latest description of each.
// The caller deletes it.
KELVA_EXPORT dds_qos_t* topicQos();

}  // namespace kelva::actors::intern
