#pragma once
#include <dds/dds.h>

#include <stdexcept>
#include <string>

#include "kelva/Export.h"
#include "kelva/access/ConnectState.h"
#include "kelva/access/Listener.h"
#include "kelva/access/QosPattern.h"
#include "kelva/access/Topic.h"
#include "kelva/utils/Log.h"

namespace kelva::access {

class KELVA_EXPORT IWriter {
public:
    virtual ~IWriter() = default;
    virtual ConnectState& connectState() = 0;
};

template <class T>
class Writer final : public IWriter {
public:
    Writer(dds_entity_t publisher, const Topic<T>& topic, const QosPattern& qos, const std::string& moduleName)
        : m_state(moduleName, topic.name(), TypeTraits<T>::className()), m_listener(m_state) {
        m_entity = dds_create_writer(publisher, topic.entity(), qos.qosWrite(), m_listener.listener());
        if (m_entity < 0)
            throw std::runtime_error("dds_create_writer(" + topic.name() + "): " + dds_strretcode(m_entity));
    }
    ~Writer() override { dds_delete(m_entity); }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    ConnectState& connectState() override { return m_state; }
    dds_entity_t entity() const { return m_entity; }

    // Waits at most `timeoutMs` for a matched reader; true when one is matched.
    bool waitForMatch(int timeoutMs) { return m_state.waitConnected(timeoutMs); }

    // Writes one sample. Not connected: logs at info level unless quiet, throws if asked to.
    void write(const T& sample, bool logQuietly, bool throwIfUnconnected) {
        if (utils::log::Logger::isEnabled(utils::log::Level::trace))
            utils::log::trace() << "send: " << "sample" << "==" << render(sample);
        if (!m_state.isConnected()) {
            if (!logQuietly)
                utils::log::info() << "Writer not connected while sending (" << TypeTraits<T>::className() << ").";
            if (throwIfUnconnected) throw std::runtime_error("Service for Cmd is unavailable yet - try later.");
        }
        const dds_return_t rc = dds_write(m_entity, &sample);
        if (rc != DDS_RETCODE_OK)
            throw std::runtime_error(std::string("dds_write(") + TypeTraits<T>::className() + "): " + dds_strretcode(rc));
    }

    // Disposes the instance that the key members of `keyHolder` select; writes no data.
    void dispose(const T& keyHolder) {
        const dds_return_t rc = dds_dispose(m_entity, &keyHolder);
        if (rc != DDS_RETCODE_OK)
            throw std::runtime_error(std::string("dds_dispose(") + TypeTraits<T>::className() + "): " + dds_strretcode(rc));
    }

private:
    ConnectState m_state;
    ListenerWrite<T> m_listener;
    dds_entity_t m_entity = 0;
};

}  // namespace kelva::access
