#include "vantrel/tool/Samples.h"

#include <cstdio>

namespace vantrel::tool {

bool disposedAfter(const dds_sample_info_t* infos, dds_return_t n, dds_return_t i) {
    if (!infos[i].valid_data || infos[i].instance_state != DDS_IST_NOT_ALIVE_DISPOSED) return false;
    for (dds_return_t j = i + 1; j < n; ++j)
        if (infos[j].instance_handle == infos[i].instance_handle) return false;  // a later sample comes first
    return true;
}

std::string guidText(const dds_guid_t& g) {
    char text[40];
    std::snprintf(text, sizeof text, "%02x%02x%02x%02x:%02x%02x%02x%02x:%02x%02x%02x%02x:%02x%02x%02x%02x", g.v[0],
                  g.v[1], g.v[2], g.v[3], g.v[4], g.v[5], g.v[6], g.v[7], g.v[8], g.v[9], g.v[10], g.v[11], g.v[12],
                  g.v[13], g.v[14], g.v[15]);
    return text;
}

}  // namespace vantrel::tool
