#pragma once
// The creation of facades, one template per creation variant. `Side` describes one facade of a module:
//   facadeName, moduleName, interfaceVersion, Sender, Observer, sendMethods() (the operation names it sends).
// A creation that fails leaves nothing behind: an actor made for it is shut down (its readers stopped, its
// description withdrawn, its session lets go of it) before the exception leaves.
#include <memory>
#include <string>
#include <vector>

#include "vantrel/Export.h"
#include "kelva/actors/Session.h"
#include "kelva/actors/SessionImpl.h"
#include "kelva/actors/SimpleActor.h"
#include "vantrel/frame/FacadeCore.h"

namespace vantrel::frame {

struct VANTREL_EXPORT FacadeAccess {
    template <class Facade>
    static Facade make(std::weak_ptr<kelva::actors::IActor> actor, bool write, bool read,
                       std::shared_ptr<kelva::actors::Session> session,
                       std::shared_ptr<kelva::actors::MonitorSession> monitor) {
        return Facade(std::move(actor), write, read, std::move(session), std::move(monitor));
    }

    // The actor named `name` with what `attach` installs on it. If `attach` throws, an actor that this call
    // made is shut down first; one made before under the same name (the duplicate checks throw) stays.
    template <class Side, class Attach>
    static std::shared_ptr<kelva::actors::SimpleActor> actorWith(kelva::actors::SessionImpl& session,
                                                                  const std::string& name, Attach&& attach) {
        bool created = false;
        auto actor = session.createActor(name, false, Side::moduleName, created);
        try {
            if (created) actor->setInterfaceVersion(Side::interfaceVersion);
            attach(*actor);
        } catch (...) {
            if (created) actor->shutdown();
            throw;
        }
        return actor;
    }

    template <class Facade, class Side>
    static Facade createWriteOnly(std::shared_ptr<kelva::actors::Session> session, const std::string& name) {
        auto impl = kelva::actors::SessionImpl::getSessionImpl(*session);
        auto actor = actorWith<Side>(*impl, name, [](kelva::actors::SimpleActor& a) {
            a.template createSender<typename Side::Sender>(Side::sendMethods());
        });
        return make<Facade>(actor, true, false, std::move(session), nullptr);
    }

    // Target: the application's interface implementation (pointer) or its callback map (pointer).
    template <class Facade, class Side, class Target>
    static Facade createCustom(std::shared_ptr<kelva::actors::Session> session, const std::string& name,
                               Target target, const std::vector<std::string>& methods) {
        auto impl = kelva::actors::SessionImpl::getSessionImpl(*session);
        auto actor = actorWith<Side>(*impl, name, [&](kelva::actors::SimpleActor& a) {
            // On an actor made before under this name that sends but does not read, the sender's duplicate
            // check would fail only after the observer had started reading: let it fail before anything is
            // made. (One that reads fails the observer's duplicate check first, as it should.)
            if (a.hasSender() && !a.hasObserver()) a.template createSender<typename Side::Sender>(Side::sendMethods());
            a.template createObserver<typename Side::Observer>(methods, target);  // observer before sender
            a.template createSender<typename Side::Sender>(Side::sendMethods());
        });
        return make<Facade>(actor, true, true, std::move(session), nullptr);
    }

    template <class Facade, class Side, class Target>
    static Facade createCustomReadOnly(std::shared_ptr<kelva::actors::MonitorSession> monitor, const std::string& name,
                                       Target target, const std::vector<std::string>& methods) {
        auto impl = kelva::actors::SessionImpl::getSessionImpl(*monitor);
        auto actor = actorWith<Side>(*impl, name, [&](kelva::actors::SimpleActor& a) {
            a.template createObserver<typename Side::Observer>(methods, target);
        });
        return make<Facade>(actor, false, true, nullptr, std::move(monitor));
    }

    template <class Facade, class Side, class Target>
    static Facade createCustomReadOnlyMultiplex(std::shared_ptr<kelva::actors::MonitorSession> monitor, Target target,
                                                const std::vector<std::string>& methods) {
        auto impl = kelva::actors::SessionImpl::getSessionImpl(*monitor);
        auto factory = [target, methods](std::shared_ptr<kelva::actors::SessionImpl> session, const std::string& name) {
            return actorWith<Side>(*session, name, [&](kelva::actors::SimpleActor& a) {
                a.template createObserver<typename Side::Observer>(methods, target);
            });
        };
        auto actor = impl->createActorMultiplex(false, Side::moduleName, factory);
        return make<Facade>(actor, false, false, nullptr, std::move(monitor));
    }

    // The facade's sender viewed as the operation interface (see operator-> of the facades).
    template <class Sender>
    static std::shared_ptr<Sender> sender(FacadeCore& facade) {
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
