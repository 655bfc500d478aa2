#pragma once
// The end of facades at the interpreter's exit. Every facade the binding made is listed here; the exit hook
// (atexit, before finalization) invalidates those still alive with the GIL released, so that callbacks
// running then can finish. From then on a received operation is dropped instead of waiting for the GIL:
// a thread that takes it during finalization is ended on the spot, in the middle of a dispatch.
#include <memory>

#include "vantrel/catalog/Facade.h"

namespace vantrel::python {

// A facade's C++ side: shared with the exit hook, which may hold it while the Python object goes away.
struct LiveFacade {
    std::unique_ptr<catalog::Facade> facade;
};

std::shared_ptr<LiveFacade> track(std::unique_ptr<catalog::Facade> facade);

bool shuttingDown() noexcept;

// The exit hook; the caller holds the GIL. Idempotent.
void shutdown();

}  // namespace vantrel::python
