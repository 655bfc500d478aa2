#pragma once
// The operating-system seam: everything platform specific (dynamic libraries, process identity) lives in
// one source per platform (src/platform/posix.cpp, src/platform/windows.cpp); a port adds only such a file.
#include <string>

#include "kelva/Export.h"

namespace kelva::base::platform {

using LibraryHandle = void*;

// Opens a shared library; null on failure (see lastLoadError()).
KELVA_EXPORT LibraryHandle openLibrary(const std::string& path);
KELVA_EXPORT void closeLibrary(LibraryHandle handle);
// Looks a symbol up; null when absent (see lastLoadError()).
KELVA_EXPORT void* findSymbol(LibraryHandle handle, const std::string& name);
// The system's text for the last failed open or lookup of this thread.
KELVA_EXPORT std::string lastLoadError();

}  // namespace kelva::base::platform
