#include "vantrel/frame/Sender.h"

namespace vantrel::frame {

WireSender::~WireSender() = default;

SenderCore::SenderCore(kelva::actors::SimpleActor& actor, kelva::access::TopicPoolWrite& pool,
                       kelva::base::PluginLoader& loader, const std::string& hookPrefix,
                       const std::vector<std::string>& operations)
    : m_actor(actor), m_pool(pool), m_firstCall(new std::atomic<bool>[operations.size()]) {
    for (std::size_t i = 0; i < operations.size(); ++i) m_firstCall[i].store(true);
    if (loader.empty()) return;
    m_hooks.resize(operations.size());
    for (const auto& plugin : loader.pluginNames()) {
        for (std::size_t i = 0; i < operations.size(); ++i)
            m_hooks[i].push_back(loader.loadFunc<AnyHook>(plugin, hookPrefix + operations[i] + "_ToPlugin"));
    }
}

}  // namespace vantrel::frame
