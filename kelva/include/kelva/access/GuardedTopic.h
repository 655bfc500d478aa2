#pragma once
// Topics whose received samples pass the sample guard before the DDS layer deserializes them.
//
// The DDS layer's key extraction (0.10.2) trusts that every key member of a mutable message appears
// exactly once; a sample that repeats one key member's id in place of another passes its validation and
// then makes it read memory it never wrote (a crash, or a sample with a garbage key). A guarded topic's
// type is the DDS layer's own default type (same type information, same wire bytes, same matching with
// any peer), except that received bytes are first checked as the key extraction reads them
// (detail::KeyMemberCheck). A sample that fails, or that the DDS layer's own validation refuses, is
// dropped, counted in DeliveryStats::samplesMalformed() and logged at warn level once per writer.
#include <dds/dds.h>

#include "kelva/Export.h"

namespace kelva::access {

// dds_create_topic with the guard: same arguments, same result (a topic, or a negative return code).
KELVA_EXPORT dds_entity_t createGuardedTopic(dds_entity_t participant, const dds_topic_descriptor_t* descriptor, const char* name,
                                             const dds_qos_t* qos, const dds_listener_t* listener);

}  // namespace kelva::access
