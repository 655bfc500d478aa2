#pragma once
// Whether a topic's writer has at least one matched reader. Written by DDS listener threads, read by
// senders; waiters (the first-write wait) are woken on every change.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

#include "kelva/Export.h"

namespace kelva::access {

class KELVA_EXPORT ConnectState {
public:
    ConnectState(std::string nameModule, std::string nameTopic, std::string nameType)
        : m_nameModule(std::move(nameModule)), m_nameTopic(std::move(nameTopic)), m_nameType(std::move(nameType)) {}

    bool isConnected() const noexcept { return m_connected.load(std::memory_order_acquire); }
    void setIsConnected() { set(true); }
    void setIsNotConnected() { set(false); }

    const std::string& nameModule() const { return m_nameModule; }
    const std::string& nameTopic() const { return m_nameTopic; }
    const std::string& nameType() const { return m_nameType; }

    // Blocks until connected or until `timeoutMs` passed; returns whether connected.
    bool waitConnected(int timeoutMs) const {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::milliseconds(timeoutMs), [this] { return isConnected(); });
    }

private:
    void set(bool connected) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_connected.store(connected, std::memory_order_release);
        }
        m_changed.notify_all();
    }

    std::string m_nameModule;
    std::string m_nameTopic;
    std::string m_nameType;
    std::atomic<bool> m_connected{false};
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
};

}  // namespace kelva::access
