#pragma once
// What the verbs that take samples share: taking serialized samples in batches, the disposal a kept
// sample stands for, and the text of a GUID.
#include <dds/dds.h>
#include <dds/ddsi/ddsi_serdata.h>

#include <string>

namespace vantrel::tool {

// Takes every serialized sample the reader holds, a batch at a time: `use(data, infos, n)` owns the
// references it is handed (it must unref each).
template <class Use>
void takeSerialized(dds_entity_t reader, Use use) {
    constexpr int kBatch = 64;
    ddsi_serdata* data[kBatch];
    dds_sample_info_t infos[kBatch];
    for (;;) {
        const dds_return_t n = dds_takecdr(reader, data, kBatch, infos, DDS_ANY_STATE);
        if (n <= 0) return;
        use(data, infos, n);
    }
}

// A disposal that arrives while an instance's last sample is still unread marks that sample instead of
// coming as one of its own: true when sample i of a batch carries such a disposal after it.
bool disposedAfter(const dds_sample_info_t* infos, dds_return_t n, dds_return_t i);

// The operations a batch of taken serialized samples stands for, as recordings carry them: each data sample;
// each disposal as the serialized keys, also one that marks a kept sample (after that sample); an
// unregistration is no operation (released here). `use(data, info, dispose)` owns each reference.
template <class Use>
void forEachOperation(ddsi_serdata** data, const dds_sample_info_t* infos, dds_return_t n, Use use) {
    for (dds_return_t i = 0; i < n; ++i) {
        const bool dispose = !infos[i].valid_data;
        if (dispose && infos[i].instance_state != DDS_IST_NOT_ALIVE_DISPOSED) {
            ddsi_serdata_unref(data[i]);
            continue;
        }
        ddsi_serdata* keys = disposedAfter(infos, n, i) ? ddsi_serdata_to_untyped(data[i]) : nullptr;
        use(data[i], infos[i], dispose);
        if (keys) use(keys, infos[i], true);
    }
}

// "0110a8c0:00002f3e:00000001:000001c1"
std::string guidText(const dds_guid_t& guid);

}  // namespace vantrel::tool
