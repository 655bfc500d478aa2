#pragma once
// What every generated observer shares: it creates one reader per selected operation and dispatches each
// received sample to the application's implementation or callback map, with the callback information
// set for the duration of the call. `Op` (generated per operation) provides:
//   Wire, Interface, Args (tuple of API argument values), Wrapper, Injector, name, hook, hasDispose,
//   decode(Args&, const Wire&, bool disposed), call(Interface&, const Args&).
#include <algorithm>
#include <atomic>
#include <memory>
#include <functional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "vantrel/Export.h"
#include "kelva/access/TopicPoolRead.h"
#include "kelva/actors/SimpleActor.h"
#include "kelva/base/PluginLoader.h"
#include "kelva/utils/Log.h"
#include "kelva/utils/System.h"
#include "vantrel/frame/CallbackMap.h"

namespace vantrel::frame {

class VANTREL_EXPORT ObserverCore {
public:
    ObserverCore(kelva::actors::SimpleActor& actor, kelva::access::TopicPoolRead& pool, kelva::base::PluginLoader& loader)
        : m_actor(actor), m_pool(pool), m_loader(loader) {}
    // Injectors that plug-ins still hold refuse to run once their observer is gone.
    ~ObserverCore() { m_alive->store(false); }
    ObserverCore(const ObserverCore&) = delete;
    ObserverCore& operator=(const ObserverCore&) = delete;

    // Target: Interface* (may be null: then nothing is read) or const CallbackMap*. If anything fails (a
    // reader cannot be made, a plug-in lacks a hook or its hook throws), the readers made so far are removed
    // before the exception leaves: no handler can run into an observer that was never completed.
    template <class... Ops, class Target>
    void start(const std::vector<std::string>& methods, Target target) {
        if (target == nullptr) {
            kelva::utils::log::warn() << "User callback not valid.";
            return;
        }
        // An interface without operations (a module whose service only reports) has nothing to override.
        if (methods.empty() && sizeof...(Ops) != 0) kelva::utils::log::warn() << "no single overridden method detected.";
        std::vector<kelva::access::IReader*> made;
        made.reserve(sizeof...(Ops));  // recording a reader that exists must not fail
        try {
            (addReader<Ops>(methods, target, made), ...);
            // Every hook is looked up before the first is called: a plug-in lacking one gets no injector.
            std::vector<std::function<void()>> offers;
            for (const auto& plugin : m_loader.pluginNames()) (offers.push_back(injectorOffer<Ops>(plugin, target)), ...);
            for (auto& offer : offers) offer();
        } catch (...) {
            m_alive->store(false);  // injectors already handed out must not reach this observer
            for (auto it = made.rbegin(); it != made.rend(); ++it) m_pool.removeReader(**it);
            throw;
        }
    }

private:
    template <class Op, class Target>
    void addReader(const std::vector<std::string>& methods, Target target, std::vector<kelva::access::IReader*>& made) {
        if (std::find(methods.begin(), methods.end(), Op::name) == methods.end()) return;
        // Each handler decodes into the same values every time (the reader calls it on the dispatcher
        // thread only, one sample at a time): strings and lists keep their storage from the previous
        // sample, so a steady stream of similar samples is decoded without allocating.
        auto onData = [this, target, args = typename Op::Args{}](const typename Op::Wire& wire,
                                                                 const dds_sample_info_t&) mutable {
            receive<Op>(target, wire, false, args);
        };
        if constexpr (Op::hasDispose) {
            // A disposed keyed instance reaches the application as the operation with its key arguments
            // and the dispose flag true.
            auto onDispose = [this, target, args = typename Op::Args{}](const typename Op::Wire& wire,
                                                                        const dds_sample_info_t& info) mutable {
                if (info.instance_state == DDS_IST_NOT_ALIVE_DISPOSED) receive<Op>(target, wire, true, args);
            };
            made.push_back(&m_pool.createTopicRead<typename Op::Wire>(onData, onDispose));
        } else {
            made.push_back(&m_pool.createTopicRead<typename Op::Wire>(onData));
        }
    }

    template <class Op, class Target>
    void receive(Target target, const typename Op::Wire& wire, bool disposed, typename Op::Args& args) {
        Op::decode(args, wire, disposed);
        dispatch<Op>(target, wire.kelva_sending_actor ? wire.kelva_sending_actor : "", args);
    }

    // Looks the plug-in's `_FromPlugin` hook of Op up (throws if it lacks it) and returns the call that hands
    // it the injector.
    template <class Op, class Target>
    std::function<void()> injectorOffer(const std::string& plugin, Target target) {
        using Hook = void (*)(const std::string&, typename Op::Injector);
        Hook hook = m_loader.loadFunc<Hook>(plugin, Op::hook);
        return [this, hook, target] {
            hook(m_actor.actorId(), [this, target, alive = m_alive](const std::string& sender, const auto&... values) {
                if (!alive->load()) throw std::logic_error(std::string("injector of ") + Op::name + " used after its observer is gone");
                const typename Op::Args args(values...);
                kelva::utils::log::trace() << "call user-callback from plugin";
                dispatch<Op>(target, sender.c_str(), args, /*injected=*/true);
                kelva::utils::log::trace() << "... rmodel user-callback from plugin returned.";
            });
        };
    }

    // The actor's base information with the sender, the operation and the reception time.
    void setInfo(const char* sender, const char* operation) {
        m_actor.setCallbackInfo(sender, operation, kelva::utils::time::getCurrentUnixTimestamp());
    }

    template <class Op>
    void dispatch(typename Op::Interface* impl, const char* sender, const typename Op::Args& args,
                  bool /*injected*/ = false) {
        setInfo(sender, Op::name);
        kelva::utils::log::trace() << "Calling rmodel user-callback ...";
        Op::call(*impl, args);
        kelva::utils::log::trace() << "... rmodel user-callback returned.";
        m_actor.resetCallbackInfo();
    }

    // A received operation without an entry in the map is logged and dropped; an injected one is the
    // plug-in's mistake and throws the standard out-of-range error back to it.
    template <class Op>
    void dispatch(const CallbackMap* map, const char* sender, const typename Op::Args& args, bool injected = false) {
        auto entry = map->find(Op::name);
        if (entry == map->end()) {
            if (injected) throw std::out_of_range("invalid map<K, T> key");
            kelva::utils::log::error() << "No callback found for " << Op::name;
            return;
        }
        setInfo(sender, Op::name);
        for (kelva::utils::callback::Base* base : entry->second) {
            const auto* wrapper = Op::Wrapper::from(base);
            if (!wrapper) {
                kelva::utils::log::error() << "Callback for " << Op::name << " has wrong type or is null!";
                continue;
            }
            kelva::utils::log::trace() << "Calling rmodel user-callback ...";
            std::apply(*wrapper, args);
            kelva::utils::log::trace() << "... rmodel user-callback returned.";
        }
        m_actor.resetCallbackInfo();
    }

    kelva::actors::SimpleActor& m_actor;
    kelva::access::TopicPoolRead& m_pool;
    kelva::base::PluginLoader& m_loader;
    std::shared_ptr<std::atomic<bool>> m_alive = std::make_shared<std::atomic<bool>>(true);
};

}  // namespace vantrel::frame
