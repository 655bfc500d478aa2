#include "vantrel/frame/FacadeCore.h"

#include <stdexcept>

#include "kelva/actors/IActor.h"
#include "kelva/actors/Session.h"
#include "kelva/actors/SessionImpl.h"
#include "kelva/actors/SimpleActor.h"
#include "kelva/utils/Log.h"
#include "kelva/utils/System.h"

namespace vantrel::frame {

FacadeCore::FacadeCore(const char* facadeName, std::weak_ptr<kelva::actors::IActor> actor, bool writeEnabled,
                       bool readEnabled, std::shared_ptr<kelva::actors::Session> session,
                       std::shared_ptr<kelva::actors::MonitorSession> monitorSession)
    : m_actor(std::move(actor)), m_writeEnabled(writeEnabled), m_readEnabled(readEnabled),
      m_session(std::move(session)), m_monitorSession(std::move(monitorSession)), m_facadeName(facadeName) {}

FacadeCore::FacadeCore(FacadeCore&& other) noexcept
    : m_actor(other.takeActor()), m_writeEnabled(other.m_writeEnabled), m_readEnabled(other.m_readEnabled),
      m_session(std::move(other.m_session)), m_monitorSession(std::move(other.m_monitorSession)),
      m_facadeName(other.m_facadeName) {
    other.m_writeEnabled = other.m_readEnabled = false;
}

std::weak_ptr<kelva::actors::IActor> FacadeCore::takeActor() noexcept {
    std::lock_guard<std::mutex> lock(m_actorMutex);
    m_sender = nullptr;
    return std::exchange(m_actor, {});
}

FacadeCore& FacadeCore::operator=(FacadeCore&& other) noexcept {
    if (this == &other) return *this;
    try {
        invalidateImpl();  // the facade assigned over lets go of its own actor first
    } catch (...) {
    }
    {
        auto actor = other.takeActor();
        std::lock_guard<std::mutex> lock(m_actorMutex);
        m_actor = std::move(actor);
        m_sender = nullptr;
    }
    m_writeEnabled = std::exchange(other.m_writeEnabled, false);
    m_readEnabled = std::exchange(other.m_readEnabled, false);
    m_session = std::move(other.m_session);
    m_monitorSession = std::move(other.m_monitorSession);
    return *this;
}

FacadeCore::~FacadeCore() {
    try {
        invalidateImpl();
    } catch (...) {
    }
    m_monitorSession.reset();
    m_session.reset();
    takeActor();
}

std::shared_ptr<kelva::actors::IActor> FacadeCore::lockActor() const {
    std::lock_guard<std::mutex> lock(m_actorMutex);
    return m_actor.lock();
}

std::shared_ptr<kelva::actors::IActor> FacadeCore::lockActor(void*& cachedSender) const {
    std::lock_guard<std::mutex> lock(m_actorMutex);
    cachedSender = m_sender;
    return m_actor.lock();
}

void FacadeCore::cacheSender(const kelva::actors::IActor* actor, void* sender) {
    std::lock_guard<std::mutex> lock(m_actorMutex);
    // Only if the facade still refers to the actor the sender was found on.
    if (auto current = m_actor.lock(); current.get() == actor) m_sender = sender;
}

long FacadeCore::actorOwners() const {
    std::lock_guard<std::mutex> lock(m_actorMutex);
    return m_actor.use_count();
}

std::shared_ptr<kelva::actors::IActor> FacadeCore::requireActor() const {
    auto actor = lockActor();
    if (!actor) throw std::logic_error(std::string(m_facadeName) + "::m_actor not initialised!");
    return actor;
}

kelva::actors::IActor& FacadeCore::actorImpl() {
    return *requireActor();  // the session keeps it alive; the strong reference is released here
}

kelva::actors::CallbackInfo FacadeCore::callbackInfoImpl() const {
    auto actor = requireActor();
    kelva::actors::SimpleActor* simple = actor->simpleActor();
    return simple ? simple->callbackInfo() : kelva::actors::CallbackInfo{};
}

kelva::actors::ActorInfo FacadeCore::actorInfoImpl() const {
    auto actor = lockActor();
    if (!actor) throw std::logic_error("Actor not initialised!");
    kelva::actors::SimpleActor* simple = actor->simpleActor();
    if (!simple) throw std::logic_error("Actor not initialised!");
    return simple->actorInfo();
}

bool FacadeCore::isValidImpl() const {
    auto actor = lockActor();
    return actor && actor->isValid();
}

void FacadeCore::invalidateImpl() {
    bool inCallback = false;
    if (auto actor = lockActor()) {
        if (auto session = actor->sessionImpl()) inCallback = session->dispatcher().onDispatcherThread();
        actor->shutdown();
    }
    kelva::utils::log::debug() << "Waiting for actor to shutdown ...";
    // From a callback of the same session the actor is released only when that callback returns, so
    // waiting here could never end.
    while (!inCallback && actorOwners() != 0) kelva::utils::system::msSleep(10);
    kelva::utils::log::debug() << "Waiting for actor to shutdown ... DONE";
    takeActor();
}

void FacadeCore::setNameImpl(const std::string& name) {
    auto actor = requireActor();
    if (auto* simple = actor->simpleActor()) simple->setClientName(name);
}

void FacadeCore::waitUntilConnectedImpl() {
    auto actor = requireActor();
    if (auto* simple = actor->simpleActor()) simple->waitUntilConnected();
}

std::shared_ptr<kelva::actors::Session> sessionFor(int domain) {
    return kelva::actors::SessionFactory::instance().getSession(domain);
}

std::shared_ptr<kelva::actors::MonitorSession> monitorSessionFor(int domain) {
    return kelva::actors::SessionFactory::instance().getMonitorSession(domain);
}

void defaultBody(const char* qualifiedOperation) {
    kelva::utils::log::warn() << "default implementation called: " << qualifiedOperation
                              << ". Forgot to override this method?";
}

}  // namespace vantrel::frame
