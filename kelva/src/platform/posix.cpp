#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>

#include <utility>
#include <vector>

#include "kelva/base/Platform.h"
#include "kelva/utils/System.h"

namespace kelva::base::platform {

LibraryHandle openLibrary(const std::string& path) { return ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL); }

void closeLibrary(LibraryHandle handle) {
    if (handle) ::dlclose(handle);
}

void* findSymbol(LibraryHandle handle, const std::string& name) {
    ::dlerror();  // clear a stale error so lastLoadError() speaks of this lookup
    return ::dlsym(handle, name.c_str());
}

std::string lastLoadError() {
    const char* text = ::dlerror();
    return text ? text : "unknown error";
}

}  // namespace kelva::base::platform

namespace kelva::utils::system {

long processId() { return static_cast<long>(::getpid()); }

std::string hostName() {
    char buffer[256] = {};
    if (::gethostname(buffer, sizeof(buffer) - 1) != 0) return "unknown";
    return buffer;
}

std::string programName() {
    char buffer[4096] = {};
    const ssize_t n = ::readlink("/proc/self/exe", buffer, sizeof(buffer) - 1);
    return n > 0 ? std::string(buffer, static_cast<std::size_t>(n)) : std::string();
}

void nameThisThread(const std::string& name) {
    // Linux keeps at most 15 characters of a thread's name.
    ::pthread_setname_np(::pthread_self(), name.substr(0, 15).c_str());
}

namespace {
struct ThreadExitList {
    std::vector<std::pair<void (*)(void*), void*>> entries;
    ~ThreadExitList() {
        for (auto it = entries.rbegin(); it != entries.rend(); ++it) it->first(it->second);
    }
};
}  // namespace

void atThreadExit(void (*cleanup)(void*), void* object) {
    thread_local ThreadExitList list;  // glibc runs thread_local destructors before it frees their storage
    list.entries.emplace_back(cleanup, object);
}

}  // namespace kelva::utils::system
