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
#include <vector>

#include "kelva/Export.h"

namespace kelva::access {

class KELVA_EXPORT Dispatcher {
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

    bool onDispatcherThread() const { return std::this_thread::get_id() == m_threadId; }

    // Called on the dispatcher thread by a handler that lets go of the objects it is running in (an
    // application shutting its own facade down from a callback): they are destroyed after the handler
    // returned. From any other thread the object is released at once.
    void keepUntilHandlerReturns(std::shared_ptr<void> object);

    // The owner of a dispatcher that is being destroyed on the dispatcher thread itself hands it over: the
    // thread finishes the running handler and then deletes the dispatcher.
    static void release(std::unique_ptr<Dispatcher> dispatcher);

private:
    void run();
    void loop();

    dds_entity_t m_waitset = 0;
    dds_entity_t m_wakeup = 0;  // guard condition that interrupts the wait on stop
    std::mutex m_mapMutex;      // guards m_handlers
    std::recursive_mutex m_runMutex;  // held while a handler runs
    std::map<dds_entity_t, std::shared_ptr<Handler>> m_handlers;
    std::atomic<bool> m_stop{false};
    std::atomic<bool> m_deleteWhenDone{false};
    std::vector<std::shared_ptr<void>> m_keepAlive;  // touched on the dispatcher thread only
    std::thread m_thread;
    std::thread::id m_threadId;  // stays valid after a detach
};

}  // namespace kelva::access
