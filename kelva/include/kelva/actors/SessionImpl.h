#pragma once
// One DDS participant and its machinery: the dispatcher thread, the QoS patterns, the plug-in loader, the
// actors it owns and the publication of what takes part.
#include <dds/dds.h>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "kelva/Export.h"
#include "kelva/access/Dispatcher.h"
#include "kelva/access/QosPattern.h"
#include "kelva/actors/ActorInfo.h"
#include "kelva/actors/ActorInfoChannel.h"
#include "kelva/actors/IActor.h"
#include "kelva/actors/MultiplexActor.h"
#include "kelva/actors/SimpleActor.h"
#include "kelva/base/PluginLoader.h"
#include "kelva/config/Config.h"
#include "kelva/config/Participant.h"

namespace kelva::actors {

class Session;
class MonitorSession;

class KELVA_EXPORT SessionImpl : public std::enable_shared_from_this<SessionImpl> {
public:
    // Creates the participant on `domainId` with `config` (loads its plug-ins; throws on failure).
    static std::shared_ptr<SessionImpl> create(int domainId, const config::Config& config, bool isMonitor);
    ~SessionImpl();
    SessionImpl(const SessionImpl&) = delete;
    SessionImpl& operator=(const SessionImpl&) = delete;

    static std::shared_ptr<SessionImpl> getSessionImpl(Session& session);
    static std::shared_ptr<SessionImpl> getSessionImpl(MonitorSession& session);

    // The actor named `name` of `moduleName` on this session: a new one, or the one made before under the
    // same name and module (a second facade then meets that actor's component checks).
    std::shared_ptr<SimpleActor> createActor(const std::string& name, bool reserved, const std::string& moduleName);
    // The same; `created` tells whether the actor is new (false: the one made before under that name).
    std::shared_ptr<SimpleActor> createActor(const std::string& name, bool reserved, const std::string& moduleName,
                                             bool& created);
    std::shared_ptr<MultiplexActor> createActorMultiplex(bool reserved, const std::string& moduleName,
                                                         MultiplexActor::Factory factory);

    bool isCheckMostDerivedClassType() const { return m_config.checkMostDerivedClassType; }
    base::PluginLoader& pluginLoader() { return m_plugins; }
    int firstWriteCallWaitForMatchTimeoutInMs() const { return m_config.firstWriteTimeoutMs; }
    void publishActorInfo(const ActorInfo& info);
    // Withdraws a released actor's description: monitors that join later do not see it.
    void withdrawActorInfo(const std::string& actorId);
    // The interface version of a module that this session's actors speak; a peer speaking another is
    // logged once at warn level.
    void noteInterfaceVersion(const std::string& moduleName, const std::string& version);

    dds_entity_t participant() const { return m_participant; }
    int domainId() const { return m_domainId; }
    bool isMonitor() const { return m_isMonitor; }
    const std::string& sessionId() const { return m_sessionId; }
    const config::Config& config() const { return m_config; }
    access::Dispatcher& dispatcher() { return *m_dispatcher; }
    const access::QosPatterns& qosPatterns() const { return *m_qos; }

    // Called by an actor that shut down: the session lets go of it.
    void releaseActor(const IActor* actor);
    std::size_t actorCount() const;
    // Shuts every actor down and stops the dispatcher; the participant goes with the object.
    void shutdown();

private:
    SessionImpl(int domainId, const config::Config& config, bool isMonitor);
    void publishSelf();

    int m_domainId;
    bool m_isMonitor;
    config::Config m_config;
    std::string m_sessionId;
    std::unique_ptr<config::Participant> m_dds;  // the participant as the configuration says
    dds_entity_t m_participant = 0;              // its handle
    base::PluginLoader m_plugins;
    std::unique_ptr<access::QosPatterns> m_qos;
    std::unique_ptr<access::Dispatcher> m_dispatcher;
    dds_entity_t m_infoPublisher = 0;
    std::unique_ptr<ActorInfoChannel> m_actorInfo;  // null when actor information is not published

    mutable std::mutex m_mutex;
    std::vector<std::shared_ptr<IActor>> m_actors;
    std::map<std::pair<std::string, std::string>, std::weak_ptr<SimpleActor>> m_byName;
    unsigned m_nextActor = 0;
};

}  // namespace kelva::actors
