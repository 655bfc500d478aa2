#pragma once
// What every generated sender shares: the actor, its write pool, one first-call flag and one list of
// `_ToPlugin` hooks per operation (declaration order). A generated operation fills its wire message and
// calls publish() and then callHooks(); the wire-level entry (WireSender) calls sendWire(), which does both.
#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "vantrel/Export.h"
#include "kelva/access/TopicPoolWrite.h"
#include "kelva/actors/SessionImpl.h"
#include "kelva/actors/SimpleActor.h"
#include "kelva/base/PluginLoader.h"

namespace vantrel::frame {

// The wire-level entry of every generated sender, for code that holds an operation's wire message already
// (the run-time facades of the catalogue): the same send as the typed operation, without converting from
// API values. `operation` is the index in the interface's declaration order; the message is not changed
// (kelva_sending_actor is the sender's actor whatever the message holds); `dispose` counts only for an
// operation with a dispose flag. Bounds are not checked again: the message is whatever the caller made.
class VANTREL_EXPORT WireSender {
public:
    virtual void sendWire(std::size_t operation, const void* message, bool dispose) = 0;

protected:
    virtual ~WireSender();
};

class VANTREL_EXPORT SenderCore {
public:
    using AnyHook = void (*)();

    // `operations`: the interface's operation names in declaration order; `hookPrefix`:
    // "<module>_<interface>_" (hook names are the prefix, the operation and "_ToPlugin").
    SenderCore(kelva::actors::SimpleActor& actor, kelva::access::TopicPoolWrite& pool,
               kelva::base::PluginLoader& loader, const std::string& hookPrefix,
               const std::vector<std::string>& operations);

    // Creates the writers of the operations' topics, so that matching starts before the first send.
    template <class... Wire>
    void createWriters() {
        (m_pool.createTopicWrite<Wire>(), ...);
    }

    const char* actorId() const { return m_actor.actorId().c_str(); }

    // The first send of an operation waits (bounded) for a matched reader; then writes, or disposes the
    // instance the message's keys select.
    template <class Wire>
    void publish(std::size_t operation, const Wire& message, bool dispose) {
        if (m_firstCall[operation].exchange(false)) firstWriteWait<Wire>();
        if (dispose) m_pool.dispose(message);
        else m_pool.write(message, /*logQuietly=*/true, /*throwIfUnconnected=*/false);
    }

    // A wire-level send of the operation `Op` (the traits of a generated sender: Wire, Args, Hook, hasDispose,
    // decode): as the typed operation, the hooks getting the API values the message decodes to.
    template <class Op>
    void sendWire(std::size_t operation, const void* message, bool dispose) {
        typename Op::Wire wire = *static_cast<const typename Op::Wire*>(message);  // the top level only
        wire.kelva_sending_actor = const_cast<char*>(actorId());
        dispose = Op::hasDispose && dispose;
        publish(operation, wire, dispose);
        if (m_hooks.empty() || m_hooks[operation].empty()) return;
        typename Op::Args args;
        Op::decode(args, wire, dispose);
        std::apply([&](const auto&... a) { callHooks<typename Op::Hook>(operation, a...); }, args);
    }

    template <class Hook, class... Args>
    void callHooks(std::size_t operation, const Args&... args) const {
        if (m_hooks.empty()) return;
        const std::string& id = m_actor.actorId();
        for (AnyHook hook : m_hooks[operation]) reinterpret_cast<Hook>(hook)(id, args...);
    }

private:
    template <class Wire>
    void firstWriteWait() {
        auto* writer = m_pool.writer<Wire>();
        if (!writer) return;
        int timeoutMs = 0;
        if (auto session = m_actor.sessionImpl()) timeoutMs = session->firstWriteCallWaitForMatchTimeoutInMs();
        (void)writer->waitForMatch(timeoutMs);  // sent whether or not a reader matched in time
    }

    kelva::actors::SimpleActor& m_actor;
    kelva::access::TopicPoolWrite& m_pool;
    std::unique_ptr<std::atomic<bool>[]> m_firstCall;
    std::vector<std::vector<AnyHook>> m_hooks;  // empty when no plug-in is loaded
};

}  // namespace vantrel::frame
