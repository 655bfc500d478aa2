// Needs the DDS layer's domain and receive-buffer headers, which compile only as C.
#include "DdsInternals.h"

#include <string.h>

#include <dds/dds.h>
#include <dds/ddsi/ddsi_domaingv.h>
#include <dds/ddsi/ddsi_sertype.h>
#include <dds/ddsi/q_radmin.h>

struct serdatapool* kelva_dds_domain_serdata_pool(const struct ddsi_sertype* registered) {
    const struct ddsi_domaingv* gv = (const struct ddsi_domaingv*)ddsrt_atomic_ldvoidp(&registered->gv);
    return gv ? gv->serpool : NULL;
}

const unsigned char* kelva_dds_fragment(const struct nn_rdata* fragment, uint32_t* min, uint32_t* maxp1,
                                        const struct nn_rdata** next) {
    *min = fragment->min;
    *maxp1 = fragment->maxp1;
    *next = fragment->nextfrag;
    return NN_RMSG_PAYLOADOFF(fragment->rmsg, NN_RDATA_PAYLOAD_OFF(fragment));
}

int kelva_dds_sending_writer(const struct nn_rdata* fragment, unsigned char guid[16]) {
    // The packet as received: the RTPS header (its GUID prefix at 8) and, at the submessage's offset, a
    // DATA or DATA_FRAG submessage whose writer entity id is at 12. A packet that changes the source
    // with INFO_SRC is not told apart; it is rare and only the log line would name the wrong writer.
    const unsigned char* packet = NN_RMSG_PAYLOAD(fragment->rmsg);
    if (fragment->submsg_zoff == 0 || memcmp(packet, "RTPS", 4) != 0) return 0;
    memcpy(guid, packet + 8, 12);
    memcpy(guid + 12, packet + NN_RDATA_SUBMSG_OFF(fragment) + 12, 4);
    return 1;
}
