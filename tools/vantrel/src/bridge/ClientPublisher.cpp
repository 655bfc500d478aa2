#include "ClientPublisher.h"

#include <iostream>

#include "kelva/actors/Session.h"
#include "vantrel/tool/Errors.h"
#include "vantrel/tool/JsonForm.h"
#include "vantrel/tool/WireSample.h"

namespace vantrel::tool::bridge {

struct ClientPublisher::Pending {
    Pending(const catalog::OperationInfo& op, bool send) : message(op), send(send) {}
    WireSample message;
    bool send;
};

ClientPublisher::ClientPublisher(Bus& bus, std::string actorName)
    : m_bus(bus), m_name(std::move(actorName)), m_thread([this] { run(); }) {}

ClientPublisher::~ClientPublisher() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_done = true;
    }
    m_wake.notify_one();
    m_thread.join();
    for (auto& [_, facade] : m_facades) facade->invalidate();  // the writers linger until acknowledged
}

const catalog::OperationInfo& ClientPublisher::operationOf(const std::string& topic, const Bus& bus) {
    if (const auto* op = catalog::findOperation(topic)) return *op;
    for (const auto* module : catalog::modules())
        for (uint32_t i = 0; i < module->operationCount; ++i)
            if (bus.topicName(module->operations[i]) == topic) return module->operations[i];
    throw InputError("unknown topic " + topic + " (a DDS topic name or M_X.IService.Op of the catalogue)");
}

void ClientPublisher::prepare(const catalog::OperationInfo& op) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_queue.push_back(std::make_unique<Pending>(op, false));
    }
    m_wake.notify_one();
}

void ClientPublisher::publish(const catalog::OperationInfo& op, const std::string& arguments) {
    auto pending = std::make_unique<Pending>(op, true);
    messageFromArguments(op, arguments, pending->message.data());
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_queue.push_back(std::move(pending));
    }
    m_wake.notify_one();
}

uint64_t ClientPublisher::sent() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_sent;
}

catalog::Facade& ClientPublisher::facadeFor(const catalog::OperationInfo& op) {
    const auto* module = catalog::findModule(op.module);
    auto& slot = m_facades[{module, op.sender()}];
    if (!slot) {
        catalog::FacadeRequest request;
        request.role = op.sender();
        request.creation = catalog::Creation::WriteOnly;
        request.session = m_bus.session();  // only this thread asks: made with the first facade
        request.name = m_name;
        slot = catalog::createFacade(*module, request);
    }
    return *slot;
}

void ClientPublisher::run() {
    std::vector<std::unique_ptr<Pending>> batch;
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_wake.wait(lock, [this] { return m_done || !m_queue.empty(); });
            if (m_done) return;  // what is still queued is not sent: the bridge is stopping
            batch.swap(m_queue);
        }
        for (auto& p : batch) {
            const auto& op = p->message.operation();
            try {
                auto& facade = facadeFor(op);
                if (!p->send) continue;
                facade.send(op, p->message.data(), false);
                std::lock_guard<std::mutex> lock(m_mutex);
                ++m_sent;
            } catch (const std::exception& e) {
                std::cerr << "vantrel bridge: " << op.qualifiedName() << " not sent: " << e.what() << std::endl;
            }
        }
        batch.clear();
    }
}

}  // namespace vantrel::tool::bridge
