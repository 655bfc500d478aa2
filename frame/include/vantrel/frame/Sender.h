#pragma once
// What every generated sender shares: the actor, its write pool, one first-call flag and one list of
// `_ToPlugin` hooks per operation (declaration order). A generated operation fills its wire message and
// calls publish() and then callHooks().
#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "vantrel/Export.h"
#include "kelva/access/TopicPoolWrite.h"
#include "kelva/actors/SessionImpl.h"
#include "kelva/actors/SimpleActor.h"
#include "kelva/base/PluginLoader.h"

namespace vantrel::frame {

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
