#pragma once
// An actor with at most one sender and one observer, its own read and write topic pools, an identity and
// published information. Made by SessionImpl::createActor; owned by its session.
#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "kelva/Export.h"
#include "kelva/access/TopicPoolRead.h"
#include "kelva/access/TopicPoolWrite.h"
#include "kelva/actors/ActorInfo.h"
#include "kelva/actors/Assert.h"
#include "kelva/actors/Components.h"
#include "kelva/actors/IActor.h"
#include "kelva/actors/Key.h"
#include "kelva/base/PluginLoader.h"

namespace kelva::actors {

class KELVA_EXPORT SimpleActor : public IActor, public std::enable_shared_from_this<SimpleActor> {
public:
    SimpleActor(const std::shared_ptr<SessionImpl>& session, std::string actorId, std::string name,
                std::string moduleName);
    ~SimpleActor() override;

    void shutdown() override;
    bool isValid() const override;
    std::shared_ptr<SessionImpl> sessionImpl() const override { return m_session.lock(); }
    SimpleActor* simpleActor() override { return this; }

    bool hasSession() const { return !m_session.expired(); }
    bool isShutdown() const { return m_shutdown.load(std::memory_order_acquire); }
    bool hasSender() const;
    bool hasObserver() const;

    const std::string& actorId() const { return m_actorId; }
    ActorInfo actorInfo() const;
    void setClientName(const std::string& name);
    // The interface version of the actor's module (major.minor.patch), published with its description.
    void setInterfaceVersion(const std::string& version);
    // Blocks until at least one of the actor's writers has a matched reader (returns at once when the
    // actor has no writers or is shut down).
    void waitUntilConnected();

    CallbackInfo callbackInfoBase() const;
    void setCallbackInfo(CallbackInfo info);
    void resetCallbackInfo();
    // The same as setCallbackInfo(callbackInfoBase() with these fields) without building a new
    // CallbackInfo: the strings of the previous call are reused, so a dispatch allocates nothing.
    void setCallbackInfo(const char* senderId, const char* operation, long long receptionTime);
    // The information of the call in progress (empty outside a dispatched call).
    CallbackInfo callbackInfo() const;

    access::TopicPoolRead& readPool() { return *m_readPool; }
    access::TopicPoolWrite& writePool() { return *m_writePool; }

    // Makes the sender S(actor, write pool, plug-in loader), installs it and publishes `methods` as what
    // this actor sends.
    template <class S>
    std::shared_ptr<S> createSender(const std::vector<std::string>& methods) {
        utils::log::info() << "Create sender";
        std::shared_ptr<SessionImpl> session = lockSession();
        KELVA_ASSERT(!hasSender(),
                     "Inserting a sender to an actor already containing one. Called Factory::create() twice? (same serviceName + domain)");
        auto sender2 = std::make_shared<S>(*this, *m_writePool, pluginLoaderOf(*session));
        KELVA_ASSERT(sender2, "creation of sender failed");
        installSender(sender2);
        KELVA_ASSERT(hasSender(), "creation of sender failed");
        if (markWriting()) utils::log::warn() << "SimpleActor::createSender: " << "actor is already writing";
        recordMethods(methods, /*write=*/true);
        return sender2;
    }

    // Makes the observer O(actor, read pool, methods, target, plug-in loader), where target is the
    // application's implementation or callback map, installs it and publishes `methods`.
    template <class O, class Target>
    std::shared_ptr<O> createObserver(const std::vector<std::string>& methods, Target&& target) {
        utils::log::info() << "Create observer";
        std::shared_ptr<SessionImpl> session = lockSession();
        KELVA_ASSERT(!hasObserver(),
                     "Inserting an observer to an actor already containing one.Called ObsFactory::add() twice? (same serviceName + domain)");
        auto observer = std::make_shared<O>(*this, *m_readPool, methods, std::forward<Target>(target),
                                            pluginLoaderOf(*session));
        installObserver(observer);
        KELVA_ASSERT(hasObserver(), "creation of observer failed");
        if (markReading()) utils::log::warn() << "SimpleActor::createObserver: " << "actor is already reading";
        recordMethods(methods, /*write=*/false);
        return observer;
    }

    // The installed sender if it is an S; empty otherwise. The reference shares the actor's ownership, so
    // the actor (and with it the sender) stays alive while the caller holds it.
    template <class S>
    std::shared_ptr<S> sender() {
        std::shared_ptr<ISender> installed = currentSender();
        if (!installed || !checkTypeOfSender<S>(installed.get())) return nullptr;
        return std::shared_ptr<S>(shared_from_this(), static_cast<S*>(installed.get()));
    }

private:
    std::shared_ptr<SessionImpl> lockSession() const;
    static base::PluginLoader& pluginLoaderOf(SessionImpl& session);
    void installSender(std::shared_ptr<ISender> sender);
    void installObserver(std::shared_ptr<IObserver> observer);
    std::shared_ptr<ISender> currentSender() const;
    bool markWriting();  // returns whether it was writing before
    bool markReading();
    void recordMethods(const std::vector<std::string>& methods, bool write);

    std::weak_ptr<SessionImpl> m_session;
    const std::string m_actorId;
    int m_domainId = 0;
    std::string m_sessionId;
    std::unique_ptr<access::TopicPoolRead> m_readPool;
    std::unique_ptr<access::TopicPoolWrite> m_writePool;

    mutable std::mutex m_mutex;  // guards everything below
    ActorInfo m_info;
    std::shared_ptr<ISender> m_sender;
    std::shared_ptr<IObserver> m_observer;
    bool m_writing = false;
    bool m_reading = false;
    std::atomic<bool> m_shutdown{false};  // also read without the mutex (isShutdown)
    CallbackInfo m_callbackInfo;      // meaningful while m_inCallback
    bool m_inCallback = false;
    bool m_callbackBaseCurrent = false;  // m_callbackInfo holds this actor's base fields
};

}  // namespace kelva::actors
