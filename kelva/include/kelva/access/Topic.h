#pragma once
#include <dds/dds.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "kelva/Export.h"
#include "kelva/access/GuardedTopic.h"
#include "kelva/access/Listener.h"
#include "kelva/access/TypeTraits.h"

namespace kelva::access {

// A DDS topic of a pool, by its mapped name.
class KELVA_EXPORT ITopic {
public:
    virtual ~ITopic() = default;
    virtual dds_entity_t entity() const = 0;
    virtual const std::string& name() const = 0;
    virtual const char* className() const = 0;
};

template <class T>
class Topic final : public ITopic {
public:
    Topic(dds_entity_t participant, std::string name, const dds_qos_t* qos) : m_name(std::move(name)) {
        m_entity = createGuardedTopic(participant, TypeTraits<T>::descriptor(), m_name.c_str(), qos,
                                      m_listener.listener());
        if (m_entity < 0)
            throw std::runtime_error("dds_create_topic(" + m_name + "): " + dds_strretcode(m_entity));
    }
    ~Topic() override { dds_delete(m_entity); }
    Topic(const Topic&) = delete;
    Topic& operator=(const Topic&) = delete;

    dds_entity_t entity() const override { return m_entity; }
    const std::string& name() const override { return m_name; }
    const char* className() const override { return TypeTraits<T>::className(); }

private:
    std::string m_name;
    ListenerTopic<T> m_listener;
    dds_entity_t m_entity = 0;
};

}  // namespace kelva::access
