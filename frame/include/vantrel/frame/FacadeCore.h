#pragma once
// What every module's Client and Service facade shares: a weak reference to the actor that carries the
// facade's sender and/or observer, the flags of its creation, and the sessions it was made on. Facades
// are movable values; destroying a valid one shuts its actor down and waits until the toolkit let go.
#include <memory>
#include <mutex>
#include <string>

#include "vantrel/Export.h"
#include "kelva/actors/ActorInfo.h"

namespace kelva::actors {
class IActor;
class Session;
class MonitorSession;
}  // namespace kelva::actors

namespace vantrel::frame {

struct FacadeAccess;

// The logic of the facade operations, once for every module. The generated Client and Service expose it
// through operations of their own (each traces its own signature on entry).
class VANTREL_EXPORT FacadeCore {
public:
    FacadeCore(const FacadeCore&) = delete;
    FacadeCore& operator=(const FacadeCore&) = delete;

protected:
    explicit FacadeCore(const char* facadeName) noexcept : m_facadeName(facadeName) {}
    FacadeCore(const char* facadeName, std::weak_ptr<kelva::actors::IActor> actor, bool writeEnabled,
               bool readEnabled, std::shared_ptr<kelva::actors::Session> session,
               std::shared_ptr<kelva::actors::MonitorSession> monitorSession);
    FacadeCore(FacadeCore&& other) noexcept;
    FacadeCore& operator=(FacadeCore&& other) noexcept;
    ~FacadeCore();

    // Throws std::logic_error "Actor not initialised!" when the facade holds no actor.
    kelva::actors::ActorInfo actorInfoImpl() const;
    const std::shared_ptr<kelva::actors::Session>& session() const { return m_session; }
    const std::shared_ptr<kelva::actors::MonitorSession>& monitorSession() const { return m_monitorSession; }
    bool isValidImpl() const;
    // Shuts the actor down and blocks (polling every 10 ms) until the toolkit released it. Idempotent.
    // Called from a callback of the same session it does not wait: the actor goes when the callback returns.
    void invalidateImpl();
    // The information of the operation being dispatched to this facade right now (empty outside a call);
    // throws "<Facade>::m_actor not initialised!".
    kelva::actors::CallbackInfo callbackInfoImpl() const;
    // The actor; throws "<Facade>::m_actor not initialised!". The reference must not outlive the facade.
    kelva::actors::IActor& actorImpl();
    void setNameImpl(const std::string& name);
    void waitUntilConnectedImpl();

private:
    friend struct FacadeAccess;
    std::shared_ptr<kelva::actors::IActor> lockActor() const;
    // The actor with the sender found for it earlier (null until the first lookup).
    std::shared_ptr<kelva::actors::IActor> lockActor(void*& cachedSender) const;
    // The actor, or the logic error "<Facade>::m_actor not initialised!".
    std::shared_ptr<kelva::actors::IActor> requireActor() const;
    void cacheSender(const kelva::actors::IActor* actor, void* sender);
    std::weak_ptr<kelva::actors::IActor> takeActor() noexcept;
    long actorOwners() const;

    // Guards m_actor only: a facade may be invalidated on one thread while another calls through it.
    mutable std::mutex m_actorMutex;
    std::weak_ptr<kelva::actors::IActor> m_actor;
    // The sender of m_actor, once looked up: it lives as long as the actor, so calls after the first
    // skip the actor's lock and the type check.
    void* m_sender = nullptr;
    bool m_writeEnabled = false;
    bool m_readEnabled = false;
    std::shared_ptr<kelva::actors::Session> m_session;
    std::shared_ptr<kelva::actors::MonitorSession> m_monitorSession;
    const char* m_facadeName;  // "Client" or "Service", for the texts of misuse
};

// The process-wide sessions of the toolkit's session factory, by domain.
VANTREL_EXPORT std::shared_ptr<kelva::actors::Session> sessionFor(int domain);
VANTREL_EXPORT std::shared_ptr<kelva::actors::MonitorSession> monitorSessionFor(int domain);

// Writes the default body's warning for an operation the application did not override.
VANTREL_EXPORT void defaultBody(const char* qualifiedOperation);

}  // namespace vantrel::frame
