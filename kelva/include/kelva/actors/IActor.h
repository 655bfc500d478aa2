#pragma once
#include <memory>

#include "kelva/Export.h"

namespace kelva::actors {

class SessionImpl;
class SimpleActor;

class KELVA_EXPORT IActor {
public:
    // Slot order matters to code built against this interface: destructor, shut-down, validity.
    virtual ~IActor() = default;
    // Stops the actor's readers and writers and lets its session release it; idempotent.
    virtual void shutdown() = 0;
    virtual bool isValid() const = 0;

    // The actor's session implementation (null once the session is gone).
    virtual std::shared_ptr<SessionImpl> sessionImpl() const = 0;
    // The simple actor that carries this actor's components (itself, or a multiplex actor's first one).
    virtual SimpleActor* simpleActor() = 0;
};

}  // namespace kelva::actors
