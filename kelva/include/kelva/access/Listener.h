#pragma once
// Per-type DDS listeners: they log what the DDS layer reports about matching, QoS and losses; the writer's
// listener also keeps the topic's connection state.
#include <dds/dds.h>

#include "kelva/Export.h"
#include "kelva/access/ConnectState.h"
#include "kelva/access/DeliveryStats.h"
#include "kelva/access/QosPattern.h"
#include "kelva/access/TypeTraits.h"
#include "kelva/utils/Log.h"

namespace kelva::access {

// Owns a dds_listener_t whose callbacks receive `self` as argument.
class KELVA_EXPORT ListenerBase {
public:
    ListenerBase() : m_listener(dds_create_listener(this)) {}
    ~ListenerBase() { dds_delete_listener(m_listener); }
    ListenerBase(const ListenerBase&) = delete;
    ListenerBase& operator=(const ListenerBase&) = delete;
    const dds_listener_t* listener() const { return m_listener; }

protected:
    dds_listener_t* m_listener;
};

template <class T>
class ListenerWrite : public ListenerBase {
public:
    explicit ListenerWrite(ConnectState& state) : m_state(state) {
        dds_lset_publication_matched(m_listener, &onPublicationMatched);
        dds_lset_offered_incompatible_qos(m_listener, &onIncompatibleQos);
        dds_lset_offered_deadline_missed(m_listener, &onDeadlineMissed);
        dds_lset_liveliness_lost(m_listener, &onLivelinessLost);
    }

private:
    static void onPublicationMatched(dds_entity_t, const dds_publication_matched_status_t status, void* arg) {
        auto* self = static_cast<ListenerWrite*>(arg);
        utils::log::debug() << "Publication matched: " << "status.current_count()" << "==" << status.current_count
                            << " (" << TypeTraits<T>::className() << ")";
        if (status.current_count != 0) self->m_state.setIsConnected();
        else self->m_state.setIsNotConnected();
    }
    static void onIncompatibleQos(dds_entity_t, const dds_offered_incompatible_qos_status_t status, void*) {
        utils::log::warn() << "Writer: Incompatible QoS offered: (" << policyName(status.last_policy_id)
                           << ", count=" << status.total_count << ") " << TypeTraits<T>::className();
    }
    static void onDeadlineMissed(dds_entity_t, const dds_offered_deadline_missed_status_t, void*) {
        utils::log::warn() << "on_offered_deadline_missed " << TypeTraits<T>::className();
    }
    static void onLivelinessLost(dds_entity_t, const dds_liveliness_lost_status_t, void*) {
        utils::log::warn() << "liveliness lost " << TypeTraits<T>::className();
    }

    ConnectState& m_state;
};

template <class T>
class ListenerRead : public ListenerBase {
public:
    ListenerRead() {
        dds_lset_subscription_matched(m_listener, &onSubscriptionMatched);
        dds_lset_sample_rejected(m_listener, &onSampleRejected);
        dds_lset_sample_lost(m_listener, &onSampleLost);
        dds_lset_requested_incompatible_qos(m_listener, &onIncompatibleQos);
        dds_lset_requested_deadline_missed(m_listener, &onDeadlineMissed);
        dds_lset_liveliness_changed(m_listener, &onLivelinessChanged);
    }

private:
    static void onSubscriptionMatched(dds_entity_t, const dds_subscription_matched_status_t status, void*) {
        utils::log::debug() << "Subscription matched: " << "status.current_count()" << "==" << status.current_count
                            << " (" << TypeTraits<T>::className() << ")";
    }
    static void onSampleRejected(dds_entity_t, const dds_sample_rejected_status_t status, void*) {
        DeliveryStats::addRejected(static_cast<uint64_t>(status.total_count_change));
        utils::log::warn() << "on_sample_rejected " << TypeTraits<T>::className()
                           << " last_reason: " << static_cast<int>(status.last_reason);
    }
    static void onSampleLost(dds_entity_t, const dds_sample_lost_status_t status, void*) {
        DeliveryStats::addLost(static_cast<uint64_t>(status.total_count_change));
        utils::log::warn() << "on_sample_lost: " << TypeTraits<T>::className() << " total:" << status.total_count
                           << " change: " << status.total_count_change;
    }
    static void onIncompatibleQos(dds_entity_t, const dds_requested_incompatible_qos_status_t status, void*) {
        utils::log::warn() << "Reader: Incompatible QoS requested: (" << policyName(status.last_policy_id)
                           << ", count=" << status.total_count << ") " << TypeTraits<T>::className();
    }
    static void onDeadlineMissed(dds_entity_t, const dds_requested_deadline_missed_status_t, void*) {
        utils::log::warn() << "on_requested_deadline_missed " << TypeTraits<T>::className();
    }
    static void onLivelinessChanged(dds_entity_t, const dds_liveliness_changed_status_t status, void*) {
        utils::log::debug() << "liveliness changed: " << TypeTraits<T>::className()
                            << " alive_count=" << status.alive_count;
    }
};

template <class T>
class ListenerTopic : public ListenerBase {
public:
    ListenerTopic() { dds_lset_inconsistent_topic(m_listener, &onInconsistentTopic); }

private:
    static void onInconsistentTopic(dds_entity_t, const dds_inconsistent_topic_status_t status, void*) {
        utils::log::error() << "Topic: inconsistent topic " << TypeTraits<T>::className()
                            << ", count=" << status.total_count;
    }
};

}  // namespace kelva::access
