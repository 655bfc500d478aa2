#include "kelva/actors/SessionImpl.h"

#include <algorithm>
#include <atomic>
#include <stdexcept>

#include "kelva/access/GuardedTopic.h"
#include "kelva/actors/InternTopics.h"
#include "kelva/actors/Session.h"
#include "kelva/utils/System.h"
#include "kelva_intern.h"

namespace kelva::actors {
namespace {

std::string makeSessionId(int domainId) {
    static std::atomic<unsigned> counter{0};
    return utils::system::hostName() + ":" + std::to_string(utils::system::processId()) + ":" +
           std::to_string(domainId) + ":" + std::to_string(counter++);
}

// Writes one sample of a toolkit wire type on a topic of its own; failures are logged, not thrown.
template <class T>
void publishOnce(dds_entity_t publisher, const dds_topic_descriptor_t* descriptor, const char* topicName,
                 const T& sample) {
    dds_qos_t* qos = intern::topicQos();
    const dds_entity_t participant = dds_get_participant(publisher);
    const dds_entity_t topic = access::createGuardedTopic(participant, descriptor, topicName, qos, nullptr);
    if (topic >= 0) {
        const dds_entity_t writer = dds_create_writer(publisher, topic, qos, nullptr);
        if (writer >= 0) dds_write(writer, &sample);
        else utils::log::error() << "SessionImpl: cannot create writer of " << topicName << ": " << dds_strretcode(writer);
    } else {
        utils::log::error() << "SessionImpl: cannot create topic " << topicName << ": " << dds_strretcode(topic);
    }
    dds_delete_qos(qos);
}

}  // namespace

std::shared_ptr<SessionImpl> SessionImpl::create(int domainId, const config::Config& config, bool isMonitor) {
    return std::shared_ptr<SessionImpl>(new SessionImpl(domainId, config, isMonitor));
}

SessionImpl::SessionImpl(int domainId, const config::Config& config, bool isMonitor)
    : m_domainId(domainId), m_isMonitor(isMonitor), m_config(config), m_sessionId(makeSessionId(domainId)) {
    for (const auto& plugin : m_config.plugins) m_plugins.load(plugin.name, plugin.path);
    m_dds = std::make_unique<config::Participant>(domainId, m_config);
    m_participant = m_dds->handle();
    try {
        m_qos = std::make_unique<access::QosPatterns>(m_config);
        m_dispatcher = std::make_unique<access::Dispatcher>(m_participant);
        if (m_config.publishActorInfo) publishSelf();
    } catch (...) {
        m_dispatcher.reset();
        m_dds.reset();
        throw;
    }
}

SessionImpl::~SessionImpl() {
    shutdown();
    // Destroyed from one of its own handlers, the dispatcher deletes itself once that handler returned.
    access::Dispatcher::release(std::move(m_dispatcher));
    m_actorInfo.reset();  // before the participant: its reader's listener stops first
    m_dds.reset();
}

void SessionImpl::publishSelf() {
    m_infoPublisher = dds_create_publisher(m_participant, nullptr, nullptr);
    const std::string host = utils::system::hostName();
    kelva_intern_Process process{};
    process.HostName = const_cast<char*>(host.c_str());
    process.ProcessId = utils::system::processId();
    const std::string program = utils::system::programName();
    process.ProgramName = const_cast<char*>(program.c_str());
    publishOnce(m_infoPublisher, &kelva_intern_Process_desc, intern::kProcessTopic, process);

    kelva_intern_Session session{};
    session.SessionId = const_cast<char*>(m_sessionId.c_str());
    session.HostName = const_cast<char*>(host.c_str());
    session.ProcessId = process.ProcessId;
    session.DomainId = m_domainId;
    session.IsMonitor = m_isMonitor;
    publishOnce(m_infoPublisher, &kelva_intern_Session_desc, intern::kSessionTopic, session);

    m_actorInfo = std::make_unique<ActorInfoChannel>(m_participant, m_sessionId);
}

void SessionImpl::publishActorInfo(const ActorInfo& info) {
    if (m_actorInfo) m_actorInfo->publish(info);
}

void SessionImpl::withdrawActorInfo(const std::string& actorId) {
    if (m_actorInfo) m_actorInfo->withdraw(actorId);
}

void SessionImpl::noteInterfaceVersion(const std::string& moduleName, const std::string& version) {
    if (m_actorInfo) m_actorInfo->noteLocalVersion(moduleName, version);
}

std::shared_ptr<SessionImpl> SessionImpl::getSessionImpl(Session& session) { return session.m_impl; }
std::shared_ptr<SessionImpl> SessionImpl::getSessionImpl(MonitorSession& session) { return session.m_impl; }

std::shared_ptr<SimpleActor> SessionImpl::createActor(const std::string& name, bool reserved, const std::string& moduleName) {
    bool created = false;
    return createActor(name, reserved, moduleName, created);
}

std::shared_ptr<SimpleActor> SessionImpl::createActor(const std::string& name, bool, const std::string& moduleName,
                                                      bool& created) {
    std::lock_guard<std::mutex> lock(m_mutex);
    created = false;
    const auto key = std::make_pair(name, moduleName);
    if (auto it = m_byName.find(key); it != m_byName.end()) {
        if (auto existing = it->second.lock(); existing && existing->isValid()) return existing;
    }
    created = true;
    const std::string actorId = m_sessionId + ":" + std::to_string(m_nextActor++);
    auto actor = std::make_shared<SimpleActor>(shared_from_this(), actorId, name, moduleName);
    m_actors.push_back(actor);
    m_byName[key] = actor;
    return actor;
}

std::shared_ptr<MultiplexActor> SessionImpl::createActorMultiplex(bool, const std::string& moduleName,
                                                                  MultiplexActor::Factory factory) {
    auto actor = std::make_shared<MultiplexActor>(shared_from_this(), moduleName, std::move(factory));
    std::string carriedName;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_actors.push_back(actor);
        carriedName = moduleName + "#monitor" + std::to_string(m_nextActor++);
    }
    try {
        actor->addActor(carriedName);
    } catch (...) {
        actor->shutdown();  // a failed creation leaves no actor in the session
        throw;
    }
    return actor;
}

void SessionImpl::releaseActor(const IActor* actor) {
    std::shared_ptr<IActor> released;  // dropped after the lock: its destructor may take time
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = std::find_if(m_actors.begin(), m_actors.end(), [actor](const auto& a) { return a.get() == actor; });
    if (it == m_actors.end()) return;
    released = std::move(*it);
    m_actors.erase(it);
    // An actor shut down from its own handler lives until that handler returned.
    if (m_dispatcher) m_dispatcher->keepUntilHandlerReturns(released);
}

std::size_t SessionImpl::actorCount() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_actors.size();
}

void SessionImpl::shutdown() {
    if (m_dispatcher) m_dispatcher->stop();
    std::vector<std::shared_ptr<IActor>> actors;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        actors.swap(m_actors);
        m_byName.clear();
    }
    for (auto& actor : actors) actor->shutdown();
    if (m_dispatcher)
        for (auto& actor : actors) m_dispatcher->keepUntilHandlerReturns(actor);
}

}  // namespace kelva::actors
