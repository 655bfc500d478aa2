#pragma once
// The operating-system seam: everything platform specific (dynamic libraries, process identity) lives in
// one source per platform (src/platform/posix.cpp here); a port replaces only that file.
#include <string>

namespace kelva::base::platform {

using LibraryHandle = void*;

// Opens a shared library; null on failure (see lastLoadError()).
LibraryHandle openLibrary(const std::string& path);
void closeLibrary(LibraryHandle handle);
// Looks a symbol up; null when absent (see lastLoadError()).
void* findSymbol(LibraryHandle handle, const std::string& name);
// The system's text for the last failed open or lookup of this thread.
std::string lastLoadError();

}  // namespace kelva::base::platform
