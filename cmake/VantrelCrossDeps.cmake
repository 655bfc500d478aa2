# Dependencies of a cross build for Windows on Debian, where no package of them exists for the target:
# - spdlog (with fmt) and toml11 are used header-only from the host's Debian packages. A staging folder
#   holds links to just their headers, so that the host's C library headers never enter the target's
#   include path.
# - GoogleTest is built for the target from Debian's source package (/usr/src/googletest).
# A native Windows build (MSVC with vcpkg or Conan, say) finds the usual packages instead.
set(staging "${CMAKE_BINARY_DIR}/cross-headers")
file(MAKE_DIRECTORY "${staging}")
foreach(entry spdlog fmt toml toml.hpp)
  if(NOT EXISTS "/usr/include/${entry}")
    message(FATAL_ERROR "/usr/include/${entry} is missing: run scripts/setup")
  endif()
  file(CREATE_LINK "/usr/include/${entry}" "${staging}/${entry}" SYMBOLIC)
endforeach()

add_library(spdlog::spdlog INTERFACE IMPORTED)
set_target_properties(spdlog::spdlog PROPERTIES
  INTERFACE_INCLUDE_DIRECTORIES "${staging}"
  INTERFACE_COMPILE_DEFINITIONS "SPDLOG_HEADER_ONLY;SPDLOG_FMT_EXTERNAL;FMT_HEADER_ONLY")
add_library(toml11::toml11 INTERFACE IMPORTED)
set_target_properties(toml11::toml11 PROPERTIES INTERFACE_INCLUDE_DIRECTORIES "${staging}")

if(VANTREL_BUILD_TESTS)
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
  set(gtest_disable_pthreads ON CACHE BOOL "" FORCE)  # std::thread only: the Win32 variant of GoogleTest's locks
  add_subdirectory(/usr/src/googletest "${CMAKE_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL SYSTEM)
  set(GTest_FOUND TRUE)  # its targets GTest::gtest, GTest::gtest_main and GTest::gmock
endif()

# The DDS layer's Windows headers include <Windows.h> and the like in mixed case; its cross build installs
# lower-case aliases beside its headers (scripts/windows/build-dds), which its users need as well.
get_target_property(dds_includes CycloneDDS::ddsc INTERFACE_INCLUDE_DIRECTORIES)
foreach(dir IN LISTS dds_includes)
  if(EXISTS "${dir}/case-aliases")
    set_property(TARGET CycloneDDS::ddsc APPEND PROPERTY INTERFACE_INCLUDE_DIRECTORIES "${dir}/case-aliases")
  endif()
endforeach()
