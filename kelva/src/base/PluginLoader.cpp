#include "kelva/base/PluginLoader.h"

namespace kelva::base {

PluginLoader::~PluginLoader() {
    for (auto it = m_plugins.rbegin(); it != m_plugins.rend(); ++it) platform::closeLibrary(it->handle);
}

void PluginLoader::load(const std::string& name, const std::string& path) {
    if (getHandle(name)) throw std::invalid_argument("plug-in name '" + name + "' is loaded already");
    platform::LibraryHandle handle = platform::openLibrary(path);
    if (!handle) {
        throw std::runtime_error("cannot load plug-in '" + name + "' from " + path + ": " +
                                 platform::lastLoadError());
    }
    utils::log::info() << "loaded plug-in " << name << " from " << path;
    m_plugins.push_back(Plugin{name, path, handle});
}

platform::LibraryHandle PluginLoader::getHandle(const std::string& name) const {
    for (const auto& plugin : m_plugins)
        if (plugin.name == name) return plugin.handle;
    return nullptr;
}

std::vector<std::string> PluginLoader::pluginNames() const {
    std::vector<std::string> names;
    names.reserve(m_plugins.size());
    for (const auto& plugin : m_plugins) names.push_back(plugin.name);
    return names;
}

}  // namespace kelva::base
