#include "kelva/actors/SimpleActor.h"

#include <stdexcept>

#include "kelva/actors/SessionImpl.h"
#include "kelva/utils/System.h"

namespace kelva::actors {

SimpleActor::SimpleActor(const std::shared_ptr<SessionImpl>& session, std::string actorId, std::string name,
                         std::string moduleName)
    : m_session(session), m_actorId(std::move(actorId)), m_domainId(session->domainId()),
      m_sessionId(session->sessionId()) {
    const auto& prefix = session->config().topicPrefix;
    m_readPool = std::make_unique<access::TopicPoolRead>(session->participant(), session->qosPatterns(), prefix,
                                                         moduleName, session->dispatcher());
    m_writePool = std::make_unique<access::TopicPoolWrite>(session->participant(), session->qosPatterns(), prefix,
                                                           moduleName);
    m_info.actorId = m_actorId;
    m_info.sessionId = m_sessionId;
    m_info.name = std::move(name);
    m_info.moduleName = std::move(moduleName);
    m_info.domainId = m_domainId;
}

SimpleActor::~SimpleActor() {
    // Readers first: no handler may run into a sender or observer that is going away.
    m_readPool->stop();
    m_writePool->stop();
}

void SimpleActor::shutdown() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_shutdown) return;
        m_shutdown = true;
    }
    m_readPool->stop();
    m_writePool->stop();
    if (auto session = m_session.lock()) {
        session->withdrawActorInfo(m_actorId);
        session->releaseActor(this);
    }
}

bool SimpleActor::isValid() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return !m_shutdown && !m_session.expired();
}

bool SimpleActor::hasSender() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_sender != nullptr;
}

bool SimpleActor::hasObserver() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_observer != nullptr;
}

ActorInfo SimpleActor::actorInfo() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_info;
}

void SimpleActor::setClientName(const std::string& name) {
    ActorInfo info;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_info.name = name;
        info = m_info;
    }
    if (auto session = m_session.lock()) session->publishActorInfo(info);
}

void SimpleActor::setInterfaceVersion(const std::string& version) {
    std::string module;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_info.interfaceVersion = version;
        module = m_info.moduleName;
    }
    if (auto session = m_session.lock()) session->noteInterfaceVersion(module, version);
}

void SimpleActor::waitUntilConnected() {
    while (isValid() && m_writePool->hasWriters() && !m_writePool->anyConnected()) utils::system::msSleep(10);
}

CallbackInfo SimpleActor::callbackInfoBase() const {
    CallbackInfo info;
    info.actorId = m_actorId;
    std::lock_guard<std::mutex> lock(m_mutex);
    info.moduleName = m_info.moduleName;
    return info;
}

void SimpleActor::setCallbackInfo(CallbackInfo info) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_callbackInfo = std::move(info);
    m_callbackBaseCurrent = false;
    m_inCallback = true;
}

void SimpleActor::setCallbackInfo(const char* senderId, const char* operation, long long receptionTime) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_callbackBaseCurrent) {  // the base fields stay from one call to the next
        m_callbackInfo.actorId = m_actorId;
        m_callbackInfo.moduleName = m_info.moduleName;
        m_callbackBaseCurrent = true;
    }
    m_callbackInfo.senderId.assign(senderId);
    m_callbackInfo.operation.assign(operation);
    m_callbackInfo.receptionTime = receptionTime;
    m_inCallback = true;
}

void SimpleActor::resetCallbackInfo() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_inCallback = false;  // the strings keep their storage for the next call
}

CallbackInfo SimpleActor::callbackInfo() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_inCallback ? m_callbackInfo : CallbackInfo{};
}

std::shared_ptr<SessionImpl> SimpleActor::lockSession() const {
    auto session = m_session.lock();
    if (!session) throw std::runtime_error("Failure locking std::weak_ptr<SessionImpl> in ActorImpl");
    return session;
}

base::PluginLoader& SimpleActor::pluginLoaderOf(SessionImpl& session) { return session.pluginLoader(); }

void SimpleActor::installSender(std::shared_ptr<ISender> sender) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_sender = std::move(sender);
}

void SimpleActor::installObserver(std::shared_ptr<IObserver> observer) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_observer = std::move(observer);
}

std::shared_ptr<ISender> SimpleActor::currentSender() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_shutdown ? nullptr : m_sender;
}

bool SimpleActor::markWriting() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return std::exchange(m_writing, true);
}

bool SimpleActor::markReading() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return std::exchange(m_reading, true);
}

void SimpleActor::recordMethods(const std::vector<std::string>& methods, bool write) {
    ActorInfo info;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        (write ? m_info.methodsWrite : m_info.methodsRead) = methods;
        info = m_info;
    }
    if (auto session = m_session.lock()) session->publishActorInfo(info);
}

}  // namespace kelva::actors
