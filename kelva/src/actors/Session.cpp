#include "kelva/actors/Session.h"

#include "kelva/actors/SessionImpl.h"

#include <cstdlib>

namespace kelva::actors {

Session::Session(int domainId) : Session(domainId, config::Config::ofProcess()) {}
Session::Session(int domainId, const config::Config& config) : m_impl(SessionImpl::create(domainId, config, false)) {}
Session::~Session() { m_impl->shutdown(); }
int Session::domainId() const { return m_impl->domainId(); }

MonitorSession::MonitorSession(int domainId) : MonitorSession(domainId, config::Config::ofProcess()) {}
MonitorSession::MonitorSession(int domainId, const config::Config& config)
    : m_impl(SessionImpl::create(domainId, config, true)) {}
MonitorSession::~MonitorSession() { m_impl->shutdown(); }
int MonitorSession::domainId() const { return m_impl->domainId(); }

SessionFactory& SessionFactory::instance() {
    static SessionFactory factory;
    return factory;
}

std::shared_ptr<Session> SessionFactory::getSession(int domainId) {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto& slot = m_sessions[domainId];
    if (!slot) slot = std::make_shared<Session>(domainId);
    return slot;
}

std::shared_ptr<MonitorSession> SessionFactory::getMonitorSession(int domainId) {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto& slot = m_monitors[domainId];
    if (!slot) slot = std::make_shared<MonitorSession>(domainId);
    return slot;
}

void SessionFactory::reset() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_sessions.clear();
    m_monitors.clear();
}

}  // namespace kelva::actors
