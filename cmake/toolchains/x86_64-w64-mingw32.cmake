# Cross-building for Windows x86-64 with Debian's MinGW-w64 compilers, posix threads variant (std::thread
# and std::mutex need it; the win32 variant of GCC 12 has neither).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(triple x86_64-w64-mingw32)

set(CMAKE_C_COMPILER ${triple}-gcc-posix)
set(CMAKE_CXX_COMPILER ${triple}-g++-posix)
set(CMAKE_RC_COMPILER ${triple}-windres)

# Target libraries and packages come only from the MinGW sysroot and the prefixes given in
# CMAKE_PREFIX_PATH / CMAKE_FIND_ROOT_PATH (the DDS layer built for Windows); programs from the host.
set(CMAKE_FIND_ROOT_PATH /usr/${triple} ${CMAKE_FIND_ROOT_PATH})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The GCC runtime (libstdc++, libgcc, winpthread) stays in its DLLs, one copy for all our DLLs and programs:
# exceptions, std::string and std::mutex cross DLL boundaries, which separate static copies would break.
# scripts/wine-run puts their folders on the DLL search path; an installation ships them beside the programs.
