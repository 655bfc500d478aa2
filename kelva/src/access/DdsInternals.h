#pragma once
// The few places where the sample guard reads structures of the DDS layer that its C++-usable headers do
// not reach (their headers compile only as C). Implemented in DdsInternals.c.
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct ddsi_sertype;
struct serdatapool;
struct nn_rdata;

// The serialized-sample pool of the domain a sertype is registered in (null when it is not registered).
struct serdatapool* kelva_dds_domain_serdata_pool(const struct ddsi_sertype* registered);

// One fragment of a received sample: its bytes cover [*min, *maxp1) of the serialized sample.
const unsigned char* kelva_dds_fragment(const struct nn_rdata* fragment, uint32_t* min, uint32_t* maxp1,
                                        const struct nn_rdata** next);

// The GUID (16 bytes, network order) of the writer that sent the received sample; false when the packet
// does not tell (not a plain RTPS message).
int kelva_dds_sending_writer(const struct nn_rdata* fragment, unsigned char guid[16]);

#ifdef __cplusplus
}
#endif
