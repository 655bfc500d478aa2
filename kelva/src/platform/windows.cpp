// The operating-system seam on Windows: DLLs through LoadLibrary/GetProcAddress, the process's identity
// through the Win32 API.
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <winsock2.h>
#include <windows.h>

#include <stdexcept>
#include <string>

#include "kelva/base/Platform.h"
#include "kelva/utils/System.h"

namespace kelva::base::platform {
namespace {

// The message of a Win32 error code, as the system words it, without the trailing line break.
std::string errorText(DWORD code) {
    char* text = nullptr;
    const DWORD n = ::FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM |
                                         FORMAT_MESSAGE_IGNORE_INSERTS,
                                     nullptr, code, 0, reinterpret_cast<LPSTR>(&text), 0, nullptr);
    std::string message = n && text ? std::string(text, n) : "error " + std::to_string(code);
    if (text) ::LocalFree(text);
    while (!message.empty() && (message.back() == '\n' || message.back() == '\r' || message.back() == ' '))
        message.pop_back();
    return message;
}

// GetLastError() is per thread, like dlerror(); it is captured at the failure so that later calls (the
// logger's own) cannot overwrite it before lastLoadError() reads it.
thread_local DWORD lastError = 0;

}  // namespace

LibraryHandle openLibrary(const std::string& path) {
    // No error dialog box for a DLL that is missing one of its own dependencies: the caller reports it.
    const UINT previous = ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);
    HMODULE module = ::LoadLibraryA(path.c_str());
    lastError = module ? 0 : ::GetLastError();
    ::SetErrorMode(previous);
    return reinterpret_cast<LibraryHandle>(module);
}

void closeLibrary(LibraryHandle handle) {
    if (handle) ::FreeLibrary(reinterpret_cast<HMODULE>(handle));
}

void* findSymbol(LibraryHandle handle, const std::string& name) {
    FARPROC symbol = ::GetProcAddress(reinterpret_cast<HMODULE>(handle), name.c_str());
    lastError = symbol ? 0 : ::GetLastError();
    return reinterpret_cast<void*>(symbol);
}

std::string lastLoadError() { return lastError ? errorText(lastError) : "unknown error"; }

}  // namespace kelva::base::platform

namespace kelva::utils::system {

long processId() { return static_cast<long>(::GetCurrentProcessId()); }

std::string hostName() {
    char buffer[MAX_COMPUTERNAME_LENGTH + 1] = {};
    DWORD size = sizeof(buffer);
    if (!::GetComputerNameA(buffer, &size)) return "unknown";
    return std::string(buffer, size);
}

std::string programName() {
    char buffer[MAX_PATH * 4] = {};
    const DWORD n = ::GetModuleFileNameA(nullptr, buffer, sizeof(buffer));
    return n > 0 && n < sizeof(buffer) ? std::string(buffer, n) : std::string();
}

void nameThisThread(const std::string& name) {
    // SetThreadDescription exists from Windows 10 1607 on: looked up, so that older systems still run.
    using SetDescription = HRESULT(WINAPI*)(HANDLE, PCWSTR);
    static const auto setDescription = reinterpret_cast<SetDescription>(
        reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleA("kernel32.dll"), "SetThreadDescription")));
    if (!setDescription) return;
    const std::wstring wide(name.begin(), name.end());  // thread names are ASCII
    setDescription(::GetCurrentThread(), wide.c_str());
}

namespace {
// A thread's cleanups, a list in one fiber-local slot whose callback the system runs when the thread ends.
struct ThreadExitEntry {
    void (*cleanup)(void*);
    void* object;
    ThreadExitEntry* next;
};

void WINAPI runThreadExit(void* data) {
    for (auto* entry = static_cast<ThreadExitEntry*>(data); entry;) {
        ThreadExitEntry* next = entry->next;
        entry->cleanup(entry->object);
        delete entry;
        entry = next;
    }
}
}  // namespace

void atThreadExit(void (*cleanup)(void*), void* object) {
    static const DWORD slot = ::FlsAlloc(runThreadExit);
    if (slot == FLS_OUT_OF_INDEXES) throw std::runtime_error("FlsAlloc: no fiber-local slot left");
    auto* head = static_cast<ThreadExitEntry*>(::FlsGetValue(slot));
    ::FlsSetValue(slot, new ThreadExitEntry{cleanup, object, head});
}

}  // namespace kelva::utils::system
