#pragma once
// An actor that carries simple actors made by a factory function (a monitor's view of a module).
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "kelva/Export.h"
#include "kelva/actors/IActor.h"

namespace kelva::actors {

class KELVA_EXPORT MultiplexActor : public IActor {
public:
    using Factory = std::function<std::shared_ptr<SimpleActor>(std::shared_ptr<SessionImpl>, const std::string&)>;

    MultiplexActor(const std::shared_ptr<SessionImpl>& session, std::string moduleName, Factory factory);
    ~MultiplexActor() override;

    void shutdown() override;
    bool isValid() const override;
    std::shared_ptr<SessionImpl> sessionImpl() const override { return m_session.lock(); }
    SimpleActor* simpleActor() override;

    // Makes one more carried actor named `name` with the factory.
    std::shared_ptr<SimpleActor> addActor(const std::string& name);
    const std::string& moduleName() const { return m_moduleName; }

private:
    std::weak_ptr<SessionImpl> m_session;
    std::string m_moduleName;
    Factory m_factory;
    mutable std::mutex m_mutex;
    std::vector<std::shared_ptr<SimpleActor>> m_actors;
    bool m_shutdown = false;
};

}  // namespace kelva::actors
