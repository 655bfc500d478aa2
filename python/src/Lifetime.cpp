#include "Lifetime.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <vector>

#include "Gil.h"

namespace vantrel::python {
namespace {

std::atomic<bool> g_shuttingDown{false};

struct Tracked {
    std::mutex mutex;
    std::vector<std::weak_ptr<LiveFacade>> facades;
};

// Never destroyed: facades may still come and go while static objects are destroyed.
Tracked& tracked() {
    static Tracked* instance = new Tracked;
    return *instance;
}

}  // namespace

std::shared_ptr<LiveFacade> track(std::unique_ptr<catalog::Facade> facade) {
    auto live = std::make_shared<LiveFacade>();
    live->facade = std::move(facade);
    Tracked& t = tracked();
    std::lock_guard<std::mutex> lock(t.mutex);
    t.facades.erase(std::remove_if(t.facades.begin(), t.facades.end(), [](const auto& weak) { return weak.expired(); }),
                    t.facades.end());
    t.facades.push_back(live);
    return live;
}

bool shuttingDown() noexcept { return g_shuttingDown.load(); }

void shutdown() {
    g_shuttingDown.store(true);
    std::vector<std::shared_ptr<LiveFacade>> alive;
    {
        Tracked& t = tracked();
        std::lock_guard<std::mutex> lock(t.mutex);
        for (const auto& weak : t.facades)
            if (auto facade = weak.lock()) alive.push_back(std::move(facade));
    }
    // Callbacks still running need the GIL to finish; invalidation waits for them. The references are
    // dropped here too, as a facade whose Python object went meanwhile ends with the last of them.
    withoutGil([&] {
        for (const auto& live : alive) {
            try {
                live->facade->invalidate();
            } catch (...) {
                // An actor that fails to shut down must not keep the others alive.
            }
        }
        alive.clear();
    });
}

}  // namespace vantrel::python
