#pragma once
// The creation of facades, one template per creation variant. `Side` describes one facade of a module:
//   facadeName, moduleName, Sender, Observer, sendMethods() (the operation names it sends).
#include <memory>
#include <string>
#include <vector>

#include "kelva/actors/Session.h"
#include "kelva/actors/SimpleActor.h"
#include "kelva/utils/Log.h"
#include "vantrel/frame/FacadeCore.h"

namespace vantrel::frame {

struct FacadeAccess {
    template <class Facade>
    static Facade make(std::weak_ptr<kelva::actors::IActor> actor, bool write, bool read,
                       std::shared_ptr<kelva::actors::Session> session,
                       std::shared_ptr<kelva::actors::MonitorSession> monitor) {
        return Facade(std::move(actor), write, read, std::move(session), std::move(monitor));
    }

    template <class Facade, class Side>
    static Facade createWriteOnly(std::shared_ptr<kelva::actors::Session> session, const std::string& name) {
        KELVA_TRACE_ENTRY();
        auto impl = kelva::actors::SessionImpl::getSessionImpl(*session);
        auto actor = impl->createActor(name, false, Side::moduleName);
        actor->template createSender<typename Side::Sender>(Side::sendMethods());
        return make<Facade>(actor, true, false, std::move(session), nullptr);
    }

    // Target: the application's interface implementation (pointer) or its callback map (pointer).
    template <class Facade, class Side, class Target>
    static Facade createCustom(std::shared_ptr<kelva::actors::Session> session, const std::string& name,
                               Target target, const std::vector<std::string>& methods) {
        KELVA_TRACE_ENTRY();
        auto impl = kelva::actors::SessionImpl::getSessionImpl(*session);
        auto actor = impl->createActor(name, false, Side::moduleName);
        actor->template createObserver<typename Side::Observer>(methods, target);  // observer before sender
        actor->template createSender<typename Side::Sender>(Side::sendMethods());
        return make<Facade>(actor, true, true, std::move(session), nullptr);
    }

    template <class Facade, class Side, class Target>
    static Facade createCustomReadOnly(std::shared_ptr<kelva::actors::MonitorSession> monitor, const std::string& name,
                                       Target target, const std::vector<std::string>& methods) {
        KELVA_TRACE_ENTRY();
        auto impl = kelva::actors::SessionImpl::getSessionImpl(*monitor);
        auto actor = impl->createActor(name, false, Side::moduleName);
        actor->template createObserver<typename Side::Observer>(methods, target);
        return make<Facade>(actor, false, true, nullptr, std::move(monitor));
    }

    template <class Facade, class Side, class Target>
    static Facade createCustomReadOnlyMultiplex(std::shared_ptr<kelva::actors::MonitorSession> monitor, Target target,
                                                const std::vector<std::string>& methods) {
        KELVA_TRACE_ENTRY();
        auto impl = kelva::actors::SessionImpl::getSessionImpl(*monitor);
        auto factory = [target, methods](std::shared_ptr<kelva::actors::SessionImpl> session, const std::string& name) {
            auto actor = session->createActor(name, false, Side::moduleName);
            actor->template createObserver<typename Side::Observer>(methods, target);
            return actor;
        };
        auto actor = impl->createActorMultiplex(false, Side::moduleName, factory);
        return make<Facade>(actor, false, false, nullptr, std::move(monitor));
    }

    // The facade's sender viewed as the operation interface (see operator-> of the facades).
    template <class Sender>
    static std::shared_ptr<Sender> sender(FacadeCore& facade) {
        KELVA_TRACE_ENTRY();
        void* cached = nullptr;
        auto actor = facade.lockActor(cached);
        const char* who = facade.m_facadeName;
        if (!actor) throw std::logic_error(std::string(who) + "::m_actor not initialised!");
        kelva::actors::SimpleActor* simple = actor->simpleActor();
        if (!simple || !simple->hasSession())
            throw std::logic_error(std::string(who) + "::m_actor has no session! Invalid state!");
        // The sender shares the actor's ownership, as SimpleActor::sender() hands it out.
        if (cached && !simple->isShutdown()) return std::shared_ptr<Sender>(std::move(actor), static_cast<Sender*>(cached));
        auto sender = simple->template sender<Sender>();
        if (!sender) throw std::logic_error(std::string(who) + " invalid sender!");
        facade.cacheSender(actor.get(), sender.get());
        return sender;
    }

    static bool isCheckMostDerivedClassType(kelva::actors::Session& session) {
        return kelva::actors::SessionImpl::getSessionImpl(session)->isCheckMostDerivedClassType();
    }
    static bool isCheckMostDerivedClassType(kelva::actors::MonitorSession& session) {
        return kelva::actors::SessionImpl::getSessionImpl(session)->isCheckMostDerivedClassType();
    }
};

}  // namespace vantrel::frame
