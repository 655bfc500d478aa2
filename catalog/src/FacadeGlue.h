#pragma once
// What the generated glue of every module shares: a run-time Facade over a module's real Client or
// Service. Sending hands the wire message to the wire-level entry of the facade's sender (the typed
// path's actor name, trace, first-write wait, write or dispose, counters and hooks, without a round trip
// through the API types); receiving registers one callback per operation that turns the API arguments
// back into the wire message and hands it to the sink.
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "kelva/actors/Session.h"
#include "kelva/utils/Callback.h"
#include "vantrel/frame/CallbackMap.h"
#include "vantrel/frame/Sender.h"
#include "vantrel/catalog/Facade.h"

namespace vantrel::catalog::glue {

// The callbacks of one facade; the generated `receivers` function of a module fills it.
class Receivers {
public:
    explicit Receivers(const OperationInfo* operations) : m_operations(operations) {}
    Receivers(const Receivers&) = delete;
    Receivers& operator=(const Receivers&) = delete;

    template <class Wrapper, class Function>
    void add(const char* operation, Function function) {
        auto wrapper = std::make_unique<Wrapper>(std::move(function));
        m_map[operation].push_back(wrapper.get());
        m_wrappers.push_back(std::move(wrapper));
    }

    // Called by a callback: the sender of the call being dispatched, for kelva_sending_actor. Valid until
    // the next call (one received operation is dispatched at a time per session).
    char* senderId() {
        m_senderId = m_senderOf ? m_senderOf() : std::string();
        return const_cast<char*>(m_senderId.c_str());
    }
    void deliver(std::size_t operation, const void* message, bool dispose) const {
        if (m_sink) m_sink(m_operations[operation], message, dispose);
    }

    const vantrel::CallbackMap& map() const { return m_map; }
    void setSink(Sink sink) { m_sink = std::move(sink); }
    void setSenderOf(std::function<std::string()> senderOf) { m_senderOf = std::move(senderOf); }

private:
    const OperationInfo* m_operations;  // the receiving interface's operations
    vantrel::CallbackMap m_map;
    std::vector<std::unique_ptr<kelva::utils::callback::Base>> m_wrappers;
    Sink m_sink;
    std::function<std::string()> m_senderOf;
    std::string m_senderId;
};

void checkMethods(const OperationInfo* operations, std::size_t count, const std::vector<std::string>& methods);
[[noreturn]] void wrongOperation(const ModuleInfo& module, Role role, const OperationInfo& operation);

// Typed: the module's Client or Service `F`.
template <class F>
class FacadeOf final : public Facade {
public:
    using FillFn = void (*)(Receivers& receivers);

    FacadeOf(const ModuleInfo& module, Role role, const OperationInfo* sent, std::size_t sentCount,
             const OperationInfo* received, std::size_t receivedCount, FillFn fill, const FacadeRequest& r)
        : m_module(module), m_role(role), m_sent(sent), m_sentCount(sentCount), m_receivers(received) {
        if (r.creation == Creation::WriteOnly) {
            requireSession(r);
            m_facade = F::createWriteOnly(r.session, r.name);
            return;
        }
        checkMethods(received, receivedCount, r.methods);
        fill(m_receivers);
        m_receivers.setSink(r.sink);
        m_receivers.setSenderOf([this] { return m_facade.callbackInfo().senderId; });
        std::vector<std::string> methods = r.methods;
        if (methods.empty())
            for (std::size_t i = 0; i < receivedCount; ++i) methods.emplace_back(received[i].name);
        switch (r.creation) {
            case Creation::Custom:
                requireSession(r);
                m_facade = F::create(r.session, r.name, m_receivers.map(), methods);
                break;
            case Creation::ReadOnly:
                requireMonitor(r);
                m_facade = F::createReadOnly(r.monitor, r.name, m_receivers.map(), methods);
                break;
            default:
                requireMonitor(r);
                m_facade = F::createMonitor(r.monitor, m_receivers.map(), methods);
                break;
        }
    }

    ~FacadeOf() override { m_facade.invalidate(); }

    void send(const OperationInfo& operation, const void* message, bool dispose) override {
        const std::ptrdiff_t index = &operation - m_sent;
        if (index < 0 || static_cast<std::size_t>(index) >= m_sentCount) wrongOperation(m_module, m_role, operation);
        // The facade's operator-> throws as for a typed call on an invalidated facade.
        const auto sender = m_facade.operator->();
        auto* wire = dynamic_cast<frame::WireSender*>(sender.get());
        if (!wire) throw std::logic_error(std::string(m_module.name) + ": the sender has no wire-level entry");
        wire->sendWire(static_cast<std::size_t>(index), message, dispose);
    }
    bool isValid() const override { return m_facade.isValid(); }
    void invalidate() override { m_facade.invalidate(); }
    kelva::actors::ActorInfo actorInfo() const override { return m_facade.actorInfo(); }
    kelva::actors::CallbackInfo callbackInfo() const override { return m_facade.callbackInfo(); }
    void waitUntilConnected() override {
        if constexpr (HasWait<F>::value) m_facade.waitUntilConnected();
        else throw std::logic_error("waitUntilConnected: a Service does not wait for connection");
    }
    void setName(const std::string& name) override {
        if constexpr (HasWait<F>::value) m_facade.setName(name);
        else throw std::logic_error("setName: a Service has no client name");
    }
    Role role() const override { return m_role; }
    const ModuleInfo& module() const override { return m_module; }

private:
    template <class T, class = void>
    struct HasWait : std::false_type {};
    template <class T>
    struct HasWait<T, std::void_t<decltype(std::declval<T&>().waitUntilConnected())>> : std::true_type {};

    static void requireSession(const FacadeRequest& r) {
        if (!r.session) throw std::invalid_argument("this creation needs a session");
    }
    static void requireMonitor(const FacadeRequest& r) {
        if (!r.monitor) throw std::invalid_argument("this creation needs a monitor session");
    }

    const ModuleInfo& m_module;
    Role m_role;
    const OperationInfo* m_sent;
    std::size_t m_sentCount;
    Receivers m_receivers;  // declared before the facade: outlives it
    F m_facade;
};

}  // namespace vantrel::catalog::glue
