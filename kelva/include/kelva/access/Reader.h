#pragma once
// A typed reader whose read condition the session's dispatcher watches. Samples are taken with loans (no
// copy of the sample data) and handed, on the dispatcher thread, to the data handler (a sample with data
// whose instance is not disposed) or to the dispose handler (a disposal, or the last data sample of an
// instance that was disposed before the take: that instance's state is gone, not live).
#include <dds/dds.h>

#include <atomic>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>

#include "kelva/Export.h"
#include "kelva/access/Dispatcher.h"
#include "kelva/access/Listener.h"
#include "kelva/access/QosPattern.h"
#include "kelva/access/Topic.h"
#include "kelva/utils/Log.h"

namespace kelva::access {

class KELVA_EXPORT IReader {
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
        const bool disposed = info.instance_state == DDS_IST_NOT_ALIVE_DISPOSED;
        if (debug) {
            utils::log::debug() << "Sample alive:" << alive << " Sample disposed:" << disposed
                                << " Sample no_writers:" << (info.instance_state == DDS_IST_NOT_ALIVE_NO_WRITERS);
        }
        // Data of an instance that was disposed before this take is not live state: the disposal stands for
        // it. Without a dispose handler there is nothing else to report, and an instance whose writers went
        // away still delivers what they wrote.
        if (info.valid_data && (!disposed || !m_onDispose)) {
            if (debug) utils::log::debug() << "received: " << render(sample) << ". Callbacking user ...";
            m_onData(sample, info);
            utils::log::trace() << "... usercallback called.";
            return;
        }
        if (!m_onDispose) return;
        // One disposal per disposed instance: the older samples of it in this take, and the rest of the
        // same instance's samples when a take continues a batch, are superseded by the disposal.
        if (disposed) {
            if (info.sample_rank != 0) return;
            const std::pair<dds_instance_handle_t, uint32_t> disposal{info.instance_handle, info.disposed_generation_count};
            if (info.valid_data && disposal == m_lastDisposal) return;
            m_lastDisposal = disposal;
        }
        if (debug) utils::log::debug() << "received for disposing: " << render(sample) << ". Callbacking user ...";
        m_onDispose(sample, info);
        utils::log::trace() << "... usercallback called.";
    }

    Dispatcher& m_dispatcher;
    DataHandler m_onData;
    DisposeHandler m_onDispose;
    ListenerRead<T> m_listener;
    dds_entity_t m_entity = 0;
    dds_entity_t m_condition = 0;
    std::atomic<bool> m_stopped{false};
    // The disposal dispatched last (instance, generation); touched on the dispatcher thread only.
    std::pair<dds_instance_handle_t, uint32_t> m_lastDisposal{0, 0};
};

}  // namespace kelva::access
