#pragma once
// One wire message of an operation in memory the DDS layer allocates and frees (strings and sequence
// buffers included), zeroed when made.
#include <dds/dds.h>

#include "vantrel/catalog/Catalog.h"

namespace vantrel::tool {

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

private:
    const catalog::OperationInfo& m_op;
    void* m_data;
};

}  // namespace vantrel::tool
