#pragma once
// Creates the client or the service (or both) of every module on one session. Each facade reads every
// operation of its side (a plain interface instance), so that every writer of the other side has a reader.
#include <memory>
#include <vector>

#include "kelva/actors/Session.h"

namespace vantrel::bench {

struct Held {
    virtual ~Held() = default;
};

std::vector<std::unique_ptr<Held>> createAllModules(const std::shared_ptr<kelva::actors::Session>& session,
                                                    bool clients, bool services);
int moduleCount();

}  // namespace vantrel::bench
