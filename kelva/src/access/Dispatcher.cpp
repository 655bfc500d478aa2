#include "kelva/access/Dispatcher.h"

#if defined(__GLIBCXX__)
#include <cxxabi.h>  // abi::__forced_unwind
#endif

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include "kelva/utils/Log.h"
#include "kelva/utils/System.h"

namespace kelva::access {

Dispatcher::Dispatcher(dds_entity_t participant) {
    m_waitset = dds_create_waitset(participant);
    if (m_waitset < 0) throw std::runtime_error(std::string("dds_create_waitset: ") + dds_strretcode(m_waitset));
    m_wakeup = dds_create_guardcondition(participant);
    if (m_wakeup < 0) throw std::runtime_error(std::string("dds_create_guardcondition: ") + dds_strretcode(m_wakeup));
    dds_waitset_attach(m_waitset, m_wakeup, m_wakeup);
    m_thread = std::thread([this] { run(); });
    m_threadId = m_thread.get_id();
}

Dispatcher::~Dispatcher() {
    stop();
    dds_delete(m_wakeup);
    dds_delete(m_waitset);
}

void Dispatcher::stop() {
    if (m_stop.exchange(true)) return;
    dds_set_guardcondition(m_wakeup, true);
    if (m_thread.joinable()) {
        if (onDispatcherThread()) m_thread.detach();  // a handler shut its own session down
        else m_thread.join();
    }
}

void Dispatcher::addReadCondition(dds_entity_t condition, Handler handler) {
    {
        std::lock_guard<std::mutex> lock(m_mapMutex);
        m_handlers[condition] = std::make_shared<Handler>(std::move(handler));
    }
    const dds_return_t rc = dds_waitset_attach(m_waitset, condition, condition);
    if (rc != DDS_RETCODE_OK) {
        std::lock_guard<std::mutex> lock(m_mapMutex);
        m_handlers.erase(condition);
        throw std::runtime_error(std::string("dds_waitset_attach: ") + dds_strretcode(rc));
    }
}

void Dispatcher::removeReadCondition(dds_entity_t condition) {
    // Waiting for the run lock guarantees that no handler is half-way through when this returns; on the
    // dispatcher thread itself the lock is already ours (recursive) and the running handler is kept alive
    // by its shared_ptr copy.
    std::lock_guard<std::recursive_mutex> running(m_runMutex);
    dds_waitset_detach(m_waitset, condition);
    std::lock_guard<std::mutex> lock(m_mapMutex);
    m_handlers.erase(condition);
}

void Dispatcher::keepUntilHandlerReturns(std::shared_ptr<void> object) {
    if (onDispatcherThread()) m_keepAlive.push_back(std::move(object));
}

void Dispatcher::release(std::unique_ptr<Dispatcher> dispatcher) {
    if (!dispatcher) return;
    if (!dispatcher->onDispatcherThread()) return;  // destroyed here, joining the thread
    dispatcher->stop();
    dispatcher->m_deleteWhenDone = true;
    dispatcher.release();  // the thread deletes it when its loop ends
}

void Dispatcher::run() {
    utils::system::nameThisThread("kelva-dispatch");
    loop();
    m_keepAlive.clear();
    if (m_deleteWhenDone) delete this;
}

void Dispatcher::loop() {
    std::vector<dds_attach_t> triggered(64);
    while (!m_stop.load()) {
        const dds_return_t n =
            dds_waitset_wait(m_waitset, triggered.data(), triggered.size(), DDS_INFINITY);
        if (m_stop.load()) break;
        if (n < 0) {
            utils::log::error() << "Dispatcher: dds_waitset_wait failed: " << dds_strretcode(n);
            break;
        }
        // n counts every triggered condition, also those that did not fit into `triggered`; those stay
        // triggered and come back with the next wait.
        const dds_return_t count = std::min<dds_return_t>(n, static_cast<dds_return_t>(triggered.size()));
        for (dds_return_t i = 0; i < count && !m_stop.load(); ++i) {
            const auto condition = static_cast<dds_entity_t>(triggered[i]);
            if (condition == m_wakeup) continue;
            std::lock_guard<std::recursive_mutex> running(m_runMutex);
            std::shared_ptr<Handler> handler;
            {
                std::lock_guard<std::mutex> lock(m_mapMutex);
                auto it = m_handlers.find(condition);
                if (it != m_handlers.end()) handler = it->second;
            }
            if (!handler) continue;
            try {
                (*handler)();
            } catch (const std::exception& e) {
                utils::log::error() << "Dispatcher: handler threw: " << e.what();
            }
#if defined(__GLIBCXX__)
            catch (abi::__forced_unwind&) {
                // The thread is being ended (pthread_exit or cancellation, as an embedding interpreter does
                // at its exit to a thread that asks for its lock): the unwinding must go on, or it aborts.
                throw;
            }
#endif
            catch (...) {
                utils::log::error() << "Dispatcher: handler threw an unknown exception";
            }
            m_keepAlive.clear();
        }
    }
}

}  // namespace kelva::access
