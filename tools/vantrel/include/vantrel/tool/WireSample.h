#pragma once
// One wire message of an operation in memory the DDS layer allocates and frees (strings and sequence
// buffers included), zeroed when made.
#include <dds/dds.h>

#include <cstring>
#include <string>

#include "vantrel/catalog/Catalog.h"

namespace vantrel::tool {

// The member of every message that names its sending actor; the facade fills it, JSON never does.
inline constexpr const char* kSendingActorMember = "kelva_sending_actor";

class WireSample {
public:
    explicit WireSample(const catalog::OperationInfo& op)
        : m_op(op), m_data(dds_alloc(op.descriptor->m_size)) {}
    ~WireSample() { dds_sample_free(m_data, m_op.descriptor, DDS_FREE_ALL); }
    WireSample(const WireSample&) = delete;
    WireSample& operator=(const WireSample&) = delete;

    void* data() { return m_data; }
    const void* data() const { return m_data; }
    const catalog::OperationInfo& operation() const { return m_op; }

    // Names the sender in kelva_sending_actor, as the facade will on the wire, so that what is printed
    // of the message is what is sent.
    void setSendingActor(const std::string& actorId) {
        for (uint32_t i = 0; i < m_op.message->count; ++i) {
            const auto& member = m_op.message->members[i];
            if (std::strcmp(member.name, kSendingActorMember) != 0 || member.type.kind != catalog::Kind::String)
                continue;
            char** slot = reinterpret_cast<char**>(static_cast<char*>(m_data) + member.offset);
            dds_free(*slot);
            *slot = dds_string_dup(actorId.c_str());
        }
    }

private:
    const catalog::OperationInfo& m_op;
    void* m_data;
};

}  // namespace vantrel::tool
