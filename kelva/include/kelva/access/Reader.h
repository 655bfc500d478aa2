#pragma once
// A typed reader whose read condition the session's dispatcher watches. Samples are taken with loans (no
// copy of the sample data) and handed, on the dispatcher thread, to the data handler (every sample with
// data) and to the dispose handler (a sample without data, i.e. a disposal or the last writer gone, and the
// last data sample of an instance that was disposed after it was written).
#include <dds/dds.h>

#include <atomic>
#include <functional>
#include <stdexcept>
#include <string>

#include "kelva/access/Dispatcher.h"
#include "kelva/access/Listener.h"
#include "kelva/access/QosPattern.h"
#include "kelva/access/Topic.h"
#include "kelva/utils/Log.h"

namespace kelva::access {

class IReader {
public:
    virtual ~IReader() = default;
    // Detaches from the dispatcher and deletes the DDS reader; idempotent.
    virtual void stop() = 0;
};

template <class T>
class Reader final : public IReader {
public:
    using DataHandler = std::function<void(const T&, const dds_sample_info_t&)>;
    using DisposeHandler = std::function<void(const T&, const dds_sample_info_t&)>;

    Reader(dds_entity_t subscriber, const Topic<T>& topic, const QosPattern& qos, Dispatcher& dispatcher,
           DataHandler onData, DisposeHandler onDispose = {})
        : m_dispatcher(dispatcher), m_onData(std::move(onData)), m_onDispose(std::move(onDispose)) {
        m_entity = dds_create_reader(subscriber, topic.entity(), qos.qosRead(), m_listener.listener());
        if (m_entity < 0)
            throw std::runtime_error("dds_create_reader(" + topic.name() + "): " + dds_strretcode(m_entity));
        m_condition = dds_create_readcondition(m_entity, DDS_ANY_STATE);
        if (m_condition < 0) {
            dds_delete(m_entity);
            throw std::runtime_error("dds_create_readcondition(" + topic.name() + "): " + dds_strretcode(m_condition));
        }
        m_dispatcher.addReadCondition(m_condition, [this] { onReadCondition(); });
    }
    ~Reader() override { stop(); }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    void stop() override {
        if (m_stopped.exchange(true)) return;
        m_dispatcher.removeReadCondition(m_condition);
        dds_delete(m_entity);  // deletes the read condition with it
    }

    dds_entity_t entity() const { return m_entity; }

private:
    static constexpr int kBatch = 16;

    void onReadCondition() {
        void* samples[kBatch];
        dds_sample_info_t infos[kBatch];
        while (!m_stopped.load()) {
            samples[0] = nullptr;  // null buffer: the DDS layer lends its own samples
            const dds_return_t n = dds_take(m_condition, samples, infos, kBatch, kBatch);
            if (n <= 0) break;
            for (dds_return_t i = 0; i < n && !m_stopped.load(); ++i) handle(*static_cast<const T*>(samples[i]), infos[i]);
            dds_return_loan(m_entity, samples, n);
        }
    }

    void handle(const T& sample, const dds_sample_info_t& info) {
        const bool debug = utils::log::Logger::isEnabled(utils::log::Level::debug);
        const bool alive = info.instance_state == DDS_IST_ALIVE;
        if (debug) {
            utils::log::debug() << "Sample alive:" << alive
                                << " Sample disposed:" << (info.instance_state == DDS_IST_NOT_ALIVE_DISPOSED)
                                << " Sample no_writers:" << (info.instance_state == DDS_IST_NOT_ALIVE_NO_WRITERS);
        }
        if (info.valid_data) {
            // Data is never dropped: a sample written before its instance was disposed still carries data
            // (its instance state already says disposed when both arrived before this take).
            if (debug) utils::log::debug() << "received: " << render(sample) << ". Callbacking user ...";
            m_onData(sample, info);
            utils::log::trace() << "... usercallback called.";
            // The DDS layer adds no separate disposal sample when unread data of the instance was waiting:
            // the last sample of a disposed instance in this take stands for the disposal too.
            if (alive || info.sample_rank != 0 || !m_onDispose || m_stopped.load()) return;
        }
        if (m_onDispose) {
            if (debug) utils::log::debug() << "received for disposing: " << render(sample) << ". Callbacking user ...";
            m_onDispose(sample, info);
            utils::log::trace() << "... usercallback called.";
        }
    }

    Dispatcher& m_dispatcher;
    DataHandler m_onData;
    DisposeHandler m_onDispose;
    ListenerRead<T> m_listener;
    dds_entity_t m_entity = 0;
    dds_entity_t m_condition = 0;
    std::atomic<bool> m_stopped{false};
};

}  // namespace kelva::access
