# Installation for downstream applications: the two shared libraries, the public headers (toolkit, frame
# and one interface header per module), the IDL files, and a CMake package so that an application does
#   find_package(vantrel-cyclone REQUIRED)
#   target_link_libraries(app PRIVATE vantrel::vantrel-cyclone)
include(CMakePackageConfigHelpers)

# The shared libraries carry the major version in their SONAME (an incompatible release installs beside the
# old one) and find each other beside themselves.
if(NOT WIN32)
  set(shared_libraries kelva-cyclone vantrel-cyclone)
  if(TARGET vantrel-catalog)
    list(APPEND shared_libraries vantrel-catalog)
  endif()
  set_target_properties(${shared_libraries} PROPERTIES
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR} INSTALL_RPATH "$ORIGIN")
endif()

# Components, one Debian package each (cmake/VantrelPackaging.cmake): runtime (the shared libraries, the DDS
# profiles), development (headers, IDL, CMake and pkg-config packages), tool (vantrel), python.
install(TARGETS kelva-cyclone vantrel-cyclone
        EXPORT vantrel-cyclone-targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY "${PROJECT_SOURCE_DIR}/kelva/include/kelva" DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(DIRECTORY "${PROJECT_SOURCE_DIR}/frame/include/vantrel" DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(FILES ${VANTREL_GENERATED_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vantrel COMPONENT development)
install(FILES "${CMAKE_BINARY_DIR}/exports/kelva/Export.h" DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kelva COMPONENT development)
install(FILES "${CMAKE_BINARY_DIR}/exports/vantrel/Export.h" DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vantrel COMPONENT development)
install(FILES ${VANTREL_IDL_FILES} DESTINATION ${CMAKE_INSTALL_DATADIR}/vantrel-cyclone/idl COMPONENT development)

set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vantrel-cyclone)
install(EXPORT vantrel-cyclone-targets NAMESPACE vantrel:: DESTINATION ${config_dir} COMPONENT development)
configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/vantrel-cyclone-config.cmake.in"
                              "${CMAKE_CURRENT_BINARY_DIR}/vantrel-cyclone-config.cmake"
                              INSTALL_DESTINATION ${config_dir})
write_basic_package_version_file("${CMAKE_CURRENT_BINARY_DIR}/vantrel-cyclone-config-version.cmake"
                                 COMPATIBILITY SameMajorVersion)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/vantrel-cyclone-config.cmake"
              "${CMAKE_CURRENT_BINARY_DIR}/vantrel-cyclone-config-version.cmake"
        DESTINATION ${config_dir} COMPONENT development)

# pkg-config: relative to the .pc file's own place, so that an unpacked or relocated tree works as well.
file(RELATIVE_PATH pc_to_prefix "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
configure_file("${PROJECT_SOURCE_DIR}/cmake/vantrel-cyclone.pc.in" "${CMAKE_CURRENT_BINARY_DIR}/vantrel-cyclone.pc" @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/vantrel-cyclone.pc" DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT development)

# The DDS configuration profiles (loopback, vehicle LAN), for the toolkit's [network] dds_config.
file(GLOB dds_profiles CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/config/cyclonedds-*.xml")
install(FILES ${dds_profiles} DESTINATION "${CMAKE_INSTALL_DATADIR}/vantrel-cyclone/config" COMPONENT runtime)
