#include "kelva/actors/InternTopics.h"

namespace kelva::actors::intern {

dds_qos_t* topicQos() {
    dds_qos_t* qos = dds_create_qos();
    dds_qset_reliability(qos, DDS_RELIABILITY_RELIABLE, DDS_SECS(1));
    dds_qset_durability(qos, DDS_DURABILITY_TRANSIENT_LOCAL);
    dds_qset_history(qos, DDS_HISTORY_KEEP_LAST, 1);
    return qos;
}

}  // namespace kelva::actors::intern
