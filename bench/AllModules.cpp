#include "AllModules.h"

#include <string>

#include "AllModules.inc"

namespace vantrel::bench {
namespace {

// The facade goes before the implementation it calls (members are destroyed in reverse order).
template <class Facade, class Interface>
struct HeldFacade final : Held {
    Interface impl;
    std::unique_ptr<Facade> facade;
    HeldFacade(const std::shared_ptr<kelva::actors::Session>& session, const std::string& name)
        : facade(Facade::_internalSwigCreate(session, name, impl)) {}
};

}  // namespace

std::vector<std::unique_ptr<Held>> createAllModules(const std::shared_ptr<kelva::actors::Session>& session,
                                                    bool clients, bool services) {
    std::vector<std::unique_ptr<Held>> held;
#define VANTREL_BENCH_CLIENT(M) held.push_back(std::make_unique<HeldFacade<M::Client, M::IClient>>(session, "bench-client"));
#define VANTREL_BENCH_SERVICE(M) held.push_back(std::make_unique<HeldFacade<M::Service, M::IService>>(session, "bench-service"));
    if (clients) { VANTREL_BENCH_MODULES(VANTREL_BENCH_CLIENT) }
    if (services) { VANTREL_BENCH_MODULES(VANTREL_BENCH_SERVICE) }
    return held;
}

int moduleCount() {
#define VANTREL_BENCH_COUNT(M) +1
    return 0 VANTREL_BENCH_MODULES(VANTREL_BENCH_COUNT);
}

}  // namespace vantrel::bench
