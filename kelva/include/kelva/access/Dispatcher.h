#pragma once
// One thread per session that waits on the registered read conditions and runs their handlers, one at a
// time. A handler removed while it runs finishes first (unless it removes itself, from the dispatcher
// thread); exceptions thrown by handlers are logged and do not stop the thread.
#include <dds/dds.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

namespace kelva::access {

class Dispatcher {
public:
    using Handler = std::function<void()>;

    explicit Dispatcher(dds_entity_t participant);
    ~Dispatcher();
    Dispatcher(const Dispatcher&) = delete;
    Dispatcher& operator=(const Dispatcher&) = delete;

    void addReadCondition(dds_entity_t condition, Handler handler);
    // After it returns (from any other thread) the handler of `condition` is not running and never runs again.
    void removeReadCondition(dds_entity_t condition);
    // Stops and joins the thread; idempotent.
    void stop();

    bool onDispatcherThread() const { return std::this_thread::get_id() == m_thread.get_id(); }

private:
    void run();

    dds_entity_t m_waitset = 0;
    dds_entity_t m_wakeup = 0;  // guard condition that interrupts the wait on stop
    std::mutex m_mapMutex;      // guards m_handlers
    std::recursive_mutex m_runMutex;  // held while a handler runs
    std::map<dds_entity_t, std::shared_ptr<Handler>> m_handlers;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

}  // namespace kelva::access
