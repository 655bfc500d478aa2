# Debian packages of an installed build (scripts/package): one per install component.
#   libvantrel-cyclone9      the shared libraries and the DDS configuration profiles
#   libvantrel-cyclone-dev   headers, IDL, the CMake package and vantrel-cyclone.pc
#   vantrel                  the command-line tool, its manual page and bash completion
#   python3-vantrel          the Python package for Debian's python3
# Dependencies on Debian's packages come from dpkg-shlibdeps; those between these packages from the
# component dependencies. Every package carries the licence as /usr/share/doc/<package>/copyright.
set(VANTREL_PACKAGE_CONTACT "vantrel-cyclone developers <vantrel-cyclone@lists.vantrel.org>"
    CACHE STRING "The Maintainer field of the Debian packages")

set(deb_runtime libvantrel-cyclone${PROJECT_VERSION_MAJOR})
set(deb_development libvantrel-cyclone-dev)
set(deb_tool vantrel)
set(deb_python python3-vantrel)

# Per package: the licence and a changelog, where Debian's policy puts them.
string(TIMESTAMP changelog_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
foreach(component runtime development tool python)
  set(package ${deb_${component}})
  set(doc_dir "${CMAKE_BINARY_DIR}/package-doc/${package}")
  configure_file("${PROJECT_SOURCE_DIR}/cmake/debian-copyright.in" "${doc_dir}/copyright" @ONLY)
  configure_file("${PROJECT_SOURCE_DIR}/cmake/debian-changelog.in" "${doc_dir}/changelog.Debian" @ONLY)
  execute_process(COMMAND gzip -9nf "${doc_dir}/changelog.Debian")
  install(FILES "${doc_dir}/copyright" "${doc_dir}/changelog.Debian.gz"
          DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${package}" COMPONENT ${component})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vantrel-cyclone)
set(CPACK_PACKAGE_VENDOR "vantrel-cyclone")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "${VANTREL_PACKAGE_CONTACT}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_RESOURCE_FILE_LICENSE "${PROJECT_SOURCE_DIR}/LICENSE")
set(CPACK_COMPONENTS_ALL runtime development tool python)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_COMPRESSION_TYPE gzip)  # quick to make and read on the vehicle's small CPU
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_STRIP_FILES ON)  # the symbol tables stay in the build tree
# Our own libraries, for dpkg-shlibdeps to find when it looks at the tool and the Python extension (the
# dependency on their package is the component dependency).
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
    "${CMAKE_BINARY_DIR}/kelva" "${CMAKE_BINARY_DIR}/library" "${CMAKE_BINARY_DIR}/catalog")
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${deb_runtime})
# A shlibs file for the libraries (packages built against them depend on this version or later), and the
# ldconfig trigger Debian's policy asks of a library package.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/cmake/debian/triggers")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "typed service-oriented vehicle bus API over DDS (libraries)
vantrel-cyclone gives the programs of a vehicle's onboard network a typed,
service-oriented API over DDS: each module is a contract between one service
and any number of clients. This package holds the shared libraries
(vantrel-cyclone, the kelva toolkit, the run-time catalogue) and the DDS
configuration profiles.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${deb_development})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "cyclonedds-dev")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "typed service-oriented vehicle bus API over DDS (development files)
Headers of every module and of the kelva toolkit, the IDL of the wire types,
the CMake package (find_package(vantrel-cyclone)) and the pkg-config file
vantrel-cyclone.pc.")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME ${deb_tool})
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION net)
set(CPACK_COMPONENT_TOOL_DEPENDS runtime)
set(CPACK_COMPONENT_TOOL_DESCRIPTION "command-line tool for the vantrel-cyclone vehicle bus
vantrel lists the contract, shows the live processes, echoes decoded traffic,
measures rates and bandwidth, sends operations, records to and replays from
MCAP files, and makes DDS security material.")

set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME ${deb_python})
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_COMPONENT_PYTHON_DEPENDS runtime)
if(VANTREL_PYTHON_VERSION)
  string(REGEX REPLACE "^([0-9]+)\\.([0-9]+)$" "\\1" python_major "${VANTREL_PYTHON_VERSION}")
  string(REGEX REPLACE "^([0-9]+)\\.([0-9]+)$" "\\2" python_minor "${VANTREL_PYTHON_VERSION}")
  math(EXPR python_next "${python_minor} + 1")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
      "python3 (>= ${VANTREL_PYTHON_VERSION}), python3 (<< ${python_major}.${python_next})")
endif()
set(CPACK_COMPONENT_PYTHON_DESCRIPTION "Python package for the vantrel-cyclone vehicle bus
The package vantrel: sessions, clients and services of every module from
Python, with the value types as Python classes.")

# Debian's python3 looks in /usr/lib/python3/dist-packages; the build tree may be configured for another
# prefix, where the package goes to lib/python3.X/dist-packages: moved before the package is made (the
# extension's RUNPATH, $ORIGIN/../../.., holds for both).
set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/VantrelPackagePython.cmake")

include(CPack)
