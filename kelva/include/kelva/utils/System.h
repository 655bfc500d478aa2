#pragma once
#include <string>

#include "kelva/Export.h"

namespace kelva::utils::system {

// The last path component of a file path ('/' and '\\' both separate).
KELVA_EXPORT std::string filename(const std::string& path);

KELVA_EXPORT void msSleep(int milliseconds);

// Process id of this process.
KELVA_EXPORT long processId();

// Host name of this machine ("unknown" if it cannot be read).
KELVA_EXPORT std::string hostName();

// The path of this process's program ("" if it cannot be read).
KELVA_EXPORT std::string programName();

// Names the calling thread for debuggers, profilers and crash dumps (best effort, silent on failure).
KELVA_EXPORT void nameThisThread(const std::string& name);

// Calls `cleanup(object)` when the calling thread ends, the latest registration first. Per-thread objects
// with a destructor use this instead of a thread_local object: the MinGW-w64 runtime can free a thread's
// thread_local storage before it runs their destructors, which then free what is no longer theirs.
KELVA_EXPORT void atThreadExit(void (*cleanup)(void*), void* object);

}  // namespace kelva::utils::system

namespace kelva::utils::string {

// Removes `prefix` from the front of `text` in place if `text` starts with it.
KELVA_EXPORT void removePrefixIf(std::string& text, const std::string& prefix);

// Whether `text` matches the glob `pattern`: '*' any run of characters (also none), '?' one character, every
// other character itself. The one matcher of the configuration's rules and the tools' patterns (the
// Windows C runtime has no fnmatch(3), and one behaviour on every platform matters more).
KELVA_EXPORT bool globMatch(const std::string& pattern, const std::string& text);

}  // namespace kelva::utils::string

namespace kelva::utils::time {

// Seconds since the Unix epoch.
KELVA_EXPORT long long getCurrentUnixTimestamp();

}  // namespace kelva::utils::time
