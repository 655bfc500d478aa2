#pragma once
// Plug-in libraries loaded by name (from the toolkit configuration) and the typed lookup of their
// functions. The frame asks every loaded plug-in for its per-operation hooks.
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "kelva/Export.h"
#include "kelva/base/Platform.h"
#include "kelva/utils/Log.h"

namespace kelva::base {

class KELVA_EXPORT PluginLoader {
public:
    struct Plugin {
        std::string name;
        std::string path;
        platform::LibraryHandle handle = nullptr;
    };

    PluginLoader() = default;
    PluginLoader(const PluginLoader&) = delete;
    PluginLoader& operator=(const PluginLoader&) = delete;
    ~PluginLoader();

    // Loads the library at `path` under `name`. Throws std::runtime_error naming the path and the system's
    // error when it cannot be opened, std::invalid_argument when the name is taken.
    void load(const std::string& name, const std::string& path);

    // Handle of a loaded plug-in, or null.
    platform::LibraryHandle getHandle(const std::string& name) const;

    // Names of the loaded plug-ins in load order.
    std::vector<std::string> pluginNames() const;
    bool empty() const { return m_plugins.empty(); }

    // The function `functionName` of plug-in `pluginName`, typed as F (a function pointer type).
    template <class F>
    F loadFunc(const std::string& pluginName, const std::string& functionName) const {
        KELVA_TRACE_ENTRY();
        utils::log::trace() << "load function: " << functionName << " from plugin: " << pluginName << " ...";
        platform::LibraryHandle handle = getHandle(pluginName);
        if (!handle) {
            utils::log::fatal() << "Failed to get handle";
            throw std::runtime_error("Failed to get handle");
        }
        void* symbol = platform::findSymbol(handle, functionName);
        if (!symbol) {
            throw std::runtime_error("Could not load build function \"" + functionName + platform::lastLoadError());
        }
        utils::log::trace() << "... DONE";
        return reinterpret_cast<F>(symbol);
    }

private:
    std::vector<Plugin> m_plugins;
};

}  // namespace kelva::base
