// The guarded topic type: a copy of what the DDS layer's default type holds for a descriptor (so its own
// functions serve it and its type information and wire bytes are unchanged), with its own tables of
// operations whose deserialization entry points check the received bytes first. See GuardedTopic.h.
#include "kelva/access/GuardedTopic.h"

#include <dds/ddsi/ddsi_cdrstream.h>
#include <dds/ddsi/ddsi_serdata.h>
#include <dds/ddsi/ddsi_serdata_default.h>
#include <dds/ddsi/ddsi_sertype.h>
#include <dds/ddsrt/heap.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <set>
#include <string>

#include "DdsInternals.h"
#include "KeyMemberCheck.h"
#include "kelva/access/DeliveryStats.h"
#include "kelva/utils/Log.h"

namespace kelva::access {

namespace {

struct GuardedType {
    ddsi_sertype_default base;  // first: the DDS layer's functions take it for its own default type
    detail::KeyMemberCheck* check;  // null: the key extraction reads no member headers of this type
};

void freeType(ddsi_sertype* sertype);
template <bool Keyed>
ddsi_serdata* fromSer(const ddsi_sertype*, ddsi_serdata_kind, const nn_rdata*, size_t);
template <bool Keyed>
ddsi_serdata* fromSerIov(const ddsi_sertype*, ddsi_serdata_kind, ddsrt_msg_iovlen_t, const ddsrt_iovec_t*, size_t);
ddsi_serdata* toUntyped(const ddsi_serdata* typed);

// One table of each kind for all guarded types: the DDS layer shares a type between topics only when
// their tables are the same.
struct Tables {
    ddsi_sertype_ops type;
    ddsi_serdata_ops keyed;
    ddsi_serdata_ops keyless;
};

const Tables& tables() {
    static const Tables t = [] {
        Tables made{ddsi_sertype_ops_default, ddsi_serdata_ops_xcdr2, ddsi_serdata_ops_xcdr2_nokey};
        made.type.free = &freeType;
        // No derived type per data representation: writers use the topic's own (XCDR2) type, so that
        // samples between a writer and a reader of this process need no conversion.
        made.type.derive_sertype = nullptr;
        made.keyed.from_ser = &fromSer<true>;
        made.keyed.from_ser_iov = &fromSerIov<true>;
        made.keyed.to_untyped = &toUntyped;
        made.keyless.from_ser = &fromSer<false>;
        made.keyless.from_ser_iov = &fromSerIov<false>;
        return made;
    }();
    return t;
}

const ddsi_serdata_ops& defaultOps(bool keyed) { return keyed ? ddsi_serdata_ops_xcdr2 : ddsi_serdata_ops_xcdr2_nokey; }

void freeType(ddsi_sertype* sertype) {
    auto* t = reinterpret_cast<GuardedType*>(sertype);
    delete[] t->base.type.keys.keys;
    delete[] t->base.type.ops.ops;
    delete[] t->base.type.typeinfo_ser.data;
    delete[] t->base.type.typemap_ser.data;
    delete t->check;
    ddsi_sertype_fini(&t->base.c);
    delete t;
}

// Received fragments, in the order the DDS layer chains them (they may overlap).
class FragmentBytes final : public detail::SampleBytes {
public:
    explicit FragmentBytes(const nn_rdata* first) : m_next(first) {}
    bool read(std::size_t at, unsigned char* out, std::size_t n) override {
        for (std::size_t i = 0; i < n; ++i) {
            while (at + i >= m_end) {
                if (!m_next) return false;
                uint32_t min, maxp1;
                m_data = kelva_dds_fragment(m_next, &min, &maxp1, &m_next);
                m_begin = min;
                m_end = maxp1;
            }
            if (at + i < m_begin) return false;
            out[i] = m_data[at + i - m_begin];
        }
        return true;
    }

private:
    const nn_rdata* m_next;
    const unsigned char* m_data = nullptr;
    std::size_t m_begin = 0, m_end = 0;
};

class IovBytes final : public detail::SampleBytes {
public:
    IovBytes(ddsrt_msg_iovlen_t count, const ddsrt_iovec_t* iov) : m_count(count), m_iov(iov) {}
    bool read(std::size_t at, unsigned char* out, std::size_t n) override {
        for (std::size_t i = 0; i < n; ++i) {
            while (at + i >= m_end) {
                if (m_index == m_count) return false;
                m_begin = m_end;
                m_end += m_iov[m_index].iov_len;
                m_data = static_cast<const unsigned char*>(m_iov[m_index].iov_base);
                ++m_index;
            }
            out[i] = m_data[at + i - m_begin];
        }
        return true;
    }

private:
    ddsrt_msg_iovlen_t m_count;
    const ddsrt_iovec_t* m_iov;
    ddsrt_msg_iovlen_t m_index = 0;
    const unsigned char* m_data = nullptr;
    std::size_t m_begin = 0, m_end = 0;
};

using Guid = std::array<unsigned char, 16>;

std::string guidText(const Guid& guid) {
    char text[40];
    std::snprintf(text, sizeof text, "%02x%02x%02x%02x:%02x%02x%02x%02x:%02x%02x%02x%02x:%02x%02x%02x%02x", guid[0],
                  guid[1], guid[2], guid[3], guid[4], guid[5], guid[6], guid[7], guid[8], guid[9], guid[10], guid[11],
                  guid[12], guid[13], guid[14], guid[15]);
    return text;
}

// Counts every dropped sample; logs the first from each writer (a hostile peer cannot flood the log, and
// the set of writers already named stays bounded).
void reportMalformed(const GuardedType& type, const nn_rdata* received, const char* why) {
    DeliveryStats::addMalformed(1);
    Guid guid{};
    const bool known = received && kelva_dds_sending_writer(received, guid.data());
    static std::mutex mutex;
    static std::set<Guid> named;
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (named.size() >= 4096) named.clear();
        if (!named.insert(guid).second) return;
    }
    utils::log::warn() << "Malformed sample dropped: " << type.base.c.type_name << " from writer "
                       << (known ? guidText(guid) : std::string("of this process")) << ": " << why
                       << " (further ones from this writer are counted, not logged)";
}

// The instance map keeps an untyped copy of each key. The DDS layer's own copy takes the key along only for
// samples of its own tables (it compares the table's address), so the key is copied here.
ddsi_serdata* toUntyped(const ddsi_serdata* typed) {
    ddsi_serdata* made = ddsi_serdata_ops_xcdr2.to_untyped(typed);
    if (!made) return nullptr;
    const auto* from = reinterpret_cast<const ddsi_serdata_default*>(typed);
    auto* to = reinterpret_cast<ddsi_serdata_default*>(made);  // new, empty and not shared yet
    const uint32_t size = from->key.keysize;
    const unsigned char* key = from->key.buftype == KEYBUFTYPE_STATIC ? from->key.u.stbuf : from->key.u.dynbuf;
    if (to->pos + size > to->size) {  // grown as the DDS layer grows it
        const uint32_t capacity = (to->pos + size + 127u) & ~127u;
        to = static_cast<ddsi_serdata_default*>(ddsrt_realloc(to, offsetof(ddsi_serdata_default, data) + capacity));
        to->size = capacity;
    }
    char* at = to->data + to->pos;
    std::memcpy(at, key, size);
    to->pos += size;
    // The key is read back from the payload (untyped_to_sample), so it lives there.
    to->key.buftype = KEYBUFTYPE_DYNALIAS;
    to->key.keysize = size & SERDATA_DEFAULT_KEYSIZE_MASK;
    to->key.u.dynbuf = reinterpret_cast<unsigned char*>(at);
    return &to->c;
}

template <bool Keyed>
ddsi_serdata* fromSer(const ddsi_sertype* sertype, ddsi_serdata_kind kind, const nn_rdata* fragments, size_t size) {
    const auto* type = reinterpret_cast<const GuardedType*>(sertype);
    if (kind == SDK_DATA && type->check) {
        FragmentBytes bytes(fragments);
        if (const char* why = type->check->check(bytes, size)) {
            reportMalformed(*type, fragments, why);
            return nullptr;
        }
    }
    ddsi_serdata* sample = defaultOps(Keyed).from_ser(sertype, kind, fragments, size);
    if (!sample) reportMalformed(*type, fragments, "refused by the DDS layer's validation");
    return sample;
}

template <bool Keyed>
ddsi_serdata* fromSerIov(const ddsi_sertype* sertype, ddsi_serdata_kind kind, ddsrt_msg_iovlen_t count,
                         const ddsrt_iovec_t* iov, size_t size) {
    const auto* type = reinterpret_cast<const GuardedType*>(sertype);
    if (kind == SDK_DATA && type->check) {
        IovBytes bytes(count, iov);
        if (const char* why = type->check->check(bytes, size)) {
            reportMalformed(*type, nullptr, why);
            return nullptr;
        }
    }
    ddsi_serdata* sample = defaultOps(Keyed).from_ser_iov(sertype, kind, count, iov, size);
    if (!sample) reportMalformed(*type, nullptr, "refused by the DDS layer's validation");
    return sample;
}

template <class T>
T* copyOf(const T* from, std::size_t n) {
    if (!from || n == 0) return nullptr;
    T* to = new T[n];
    std::copy(from, from + n, to);
    return to;
}

// What the DDS layer's dds_create_topic fills in for its default type (0.10.2), with our tables.
GuardedType* makeType(const dds_topic_descriptor_t* desc, uint32_t allowed, ddsi_sertype_extensibility extensibility) {
    auto* t = new GuardedType{};
    const bool keyed = desc->m_nkeys != 0;
    ddsi_sertype_init(&t->base.c, desc->m_typename, &tables().type, keyed ? &tables().keyed : &tables().keyless, !keyed);
#ifdef DDS_HAS_SHM
    t->base.c.iox_size = desc->m_size;
#endif
    t->base.c.fixed_size = (t->base.c.fixed_size || (desc->m_flagset & DDS_TOPIC_FIXED_SIZE)) ? 1u : 0u;
    t->base.c.allowed_data_representation = allowed;
    t->base.encoding_format = ddsi_sertype_extensibility_enc_format(extensibility);
    t->base.write_encoding_version = CDR_ENC_VERSION_2;
    t->base.serpool = nullptr;  // the domain's, once the type is registered there
    auto& type = t->base.type;
    type.size = desc->m_size;
    type.align = desc->m_align;
    type.flagset = desc->m_flagset;
    type.keys.nkeys = desc->m_nkeys;
    type.keys.keys = keyed ? new ddsi_sertype_default_desc_key_t[desc->m_nkeys] : nullptr;
    for (uint32_t i = 0; i < desc->m_nkeys; ++i) type.keys.keys[i] = {desc->m_keys[i].m_offset, desc->m_keys[i].m_idx};
    type.ops.nops = dds_stream_countops(desc->m_ops, desc->m_nkeys, desc->m_keys);
    type.ops.ops = copyOf(desc->m_ops, type.ops.nops);
    if (desc->m_flagset & DDS_TOPIC_XTYPES_METADATA) {
        type.typeinfo_ser = {desc->type_information.sz, copyOf(desc->type_information.data, desc->type_information.sz)};
        type.typemap_ser = {desc->type_mapping.sz, copyOf(desc->type_mapping.data, desc->type_mapping.sz)};
    }
    t->base.opt_size_xcdr1 = (allowed & DDS_DATA_REPRESENTATION_FLAG_XCDR1) ? dds_stream_check_optimize(&type, CDR_ENC_VERSION_1) : 0;
    t->base.opt_size_xcdr2 = (allowed & DDS_DATA_REPRESENTATION_FLAG_XCDR2) ? dds_stream_check_optimize(&type, CDR_ENC_VERSION_2) : 0;
    t->check = detail::KeyMemberCheck::forType(desc->m_ops, desc->m_nkeys, desc->m_keys).release();
    return t;
}

}  // namespace

dds_entity_t createGuardedTopic(dds_entity_t participant, const dds_topic_descriptor_t* desc, const char* name,
                                const dds_qos_t* qos, const dds_listener_t* listener) {
    if (!desc || !name) return DDS_RETCODE_BAD_PARAMETER;
    uint32_t allowed = (desc->m_flagset & DDS_TOPIC_RESTRICT_DATA_REPRESENTATION) ? desc->restrict_data_representation
                                                                                  : DDS_DATA_REPRESENTATION_RESTRICT_DEFAULT;
    const uint16_t minimumXcdr = dds_stream_minimum_xcdr_version(desc->m_ops);
    if (minimumXcdr == CDR_ENC_VERSION_2) allowed &= ~DDS_DATA_REPRESENTATION_FLAG_XCDR1;

    // The representation the DDS layer picks for the topic. XCDR1 has no member headers, so its key
    // extraction cannot be misled: such types keep the plain default type.
    dds_data_representation_id_t representation =
        (allowed & DDS_DATA_REPRESENTATION_FLAG_XCDR1) ? DDS_DATA_REPRESENTATION_XCDR1 : DDS_DATA_REPRESENTATION_XCDR2;
    uint32_t count = 0;
    dds_data_representation_id_t* ids = nullptr;
    if (qos && dds_qget_data_representation(qos, &count, &ids) && count > 0) representation = ids[0];
    dds_free(ids);
    ddsi_sertype_extensibility extensibility;
    if (representation != DDS_DATA_REPRESENTATION_XCDR2 || !dds_stream_extensibility(desc->m_ops, &extensibility) ||
        dds_stream_type_nesting_depth(desc->m_ops) > DDSI_CDRSTREAM_MAX_NESTING_DEPTH ||
        ((desc->m_flagset & DDS_TOPIC_XTYPES_METADATA) &&
         (!desc->type_information.data || !desc->type_information.sz || !desc->type_mapping.data || !desc->type_mapping.sz)))
        return dds_create_topic(participant, desc, name, qos, listener);  // as ever, errors included

    // Serialized: a type registered by one creation gets its sample pool before another can use it.
    static std::mutex creating;
    std::lock_guard<std::mutex> lock(creating);
    ddsi_sertype* sertype = &makeType(desc, allowed, extensibility)->base.c;
    const dds_entity_t topic = dds_create_topic_sertype(participant, name, &sertype, qos, listener, nullptr);
    if (topic < 0) {
        ddsi_sertype_unref(sertype);
        return topic;
    }
    // `sertype` is now the domain's registered type: ours, or an equal one made earlier.
    auto* registered = reinterpret_cast<GuardedType*>(sertype);
    if (!registered->base.serpool) registered->base.serpool = kelva_dds_domain_serdata_pool(sertype);
    return topic;
}

}  // namespace kelva::access
