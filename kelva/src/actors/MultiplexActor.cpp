#include "kelva/actors/MultiplexActor.h"

#include "kelva/actors/SessionImpl.h"

namespace kelva::actors {

MultiplexActor::MultiplexActor(const std::shared_ptr<SessionImpl>& session, std::string moduleName, Factory factory)
    : m_session(session), m_moduleName(std::move(moduleName)), m_factory(std::move(factory)) {}

MultiplexActor::~MultiplexActor() { shutdown(); }

std::shared_ptr<SimpleActor> MultiplexActor::addActor(const std::string& name) {
    auto session = m_session.lock();
    if (!session) throw std::runtime_error("Failure locking std::weak_ptr<SessionImpl> in ActorImpl");
    auto actor = m_factory(session, name);
    std::lock_guard<std::mutex> lock(m_mutex);
    m_actors.push_back(actor);
    return actor;
}

void MultiplexActor::shutdown() {
    std::vector<std::shared_ptr<SimpleActor>> actors;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_shutdown) return;
        m_shutdown = true;
        actors.swap(m_actors);
    }
    for (auto& actor : actors) actor->shutdown();
    if (auto session = m_session.lock()) session->releaseActor(this);
}

bool MultiplexActor::isValid() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return !m_shutdown && !m_session.expired();
}

SimpleActor* MultiplexActor::simpleActor() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_actors.empty() ? nullptr : m_actors.front().get();
}

}  // namespace kelva::actors
