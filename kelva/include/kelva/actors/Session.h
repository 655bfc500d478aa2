#pragma once
// Shared handles of a session implementation. A Session takes part with senders and observers; a
// MonitorSession is the same machinery meant for read-only monitoring.
// The session's machinery (SessionImpl) stays behind the handle: applications see only this header.
#include <map>
#include <memory>
#include <mutex>

#include "kelva/Export.h"

namespace kelva::config {
struct Config;
}  // namespace kelva::config

namespace kelva::actors {

class SessionImpl;

class KELVA_EXPORT Session {
public:
    // A new session (participant) on `domainId`, configured from the environment (KELVA_CONFIG).
    explicit Session(int domainId);
    Session(int domainId, const config::Config& config);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    int domainId() const;

private:
    friend class SessionImpl;
    std::shared_ptr<SessionImpl> m_impl;
};

class KELVA_EXPORT MonitorSession {
public:
    explicit MonitorSession(int domainId);
    MonitorSession(int domainId, const config::Config& config);
    ~MonitorSession();
    MonitorSession(const MonitorSession&) = delete;
    MonitorSession& operator=(const MonitorSession&) = delete;

    int domainId() const;

private:
    friend class SessionImpl;
    std::shared_ptr<SessionImpl> m_impl;
};

// Process-wide sessions by domain, created on first request and shared afterwards.
class KELVA_EXPORT SessionFactory {
public:
    static SessionFactory& instance();

    std::shared_ptr<Session> getSession(int domainId);
    std::shared_ptr<MonitorSession> getMonitorSession(int domainId);
    // Drops the factory's references (sessions end when their last user lets go).
    void reset();

private:
    std::mutex m_mutex;
    std::map<int, std::shared_ptr<Session>> m_sessions;
    std::map<int, std::shared_ptr<MonitorSession>> m_monitors;
};

}  // namespace kelva::actors
