# Installation for downstream applications: the two shared libraries, the public headers (toolkit, frame
# and one interface header per module), the IDL files, and a CMake package so that an application does
#   find_package(vantrel-cyclone REQUIRED)
#   target_link_libraries(app PRIVATE vantrel::vantrel-cyclone)
include(CMakePackageConfigHelpers)

install(TARGETS kelva-cyclone vantrel-cyclone
        EXPORT vantrel-cyclone-targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY "${PROJECT_SOURCE_DIR}/kelva/include/kelva" DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY "${PROJECT_SOURCE_DIR}/frame/include/vantrel" DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${VANTREL_GENERATED_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vantrel)
install(FILES "${CMAKE_BINARY_DIR}/exports/kelva/Export.h" DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kelva)
install(FILES "${CMAKE_BINARY_DIR}/exports/vantrel/Export.h" DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vantrel)
install(FILES ${VANTREL_IDL_FILES} DESTINATION ${CMAKE_INSTALL_DATADIR}/vantrel-cyclone/idl)

set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vantrel-cyclone)
install(EXPORT vantrel-cyclone-targets NAMESPACE vantrel:: DESTINATION ${config_dir})
configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/vantrel-cyclone-config.cmake.in"
                              "${CMAKE_CURRENT_BINARY_DIR}/vantrel-cyclone-config.cmake"
                              INSTALL_DESTINATION ${config_dir})
write_basic_package_version_file("${CMAKE_CURRENT_BINARY_DIR}/vantrel-cyclone-config-version.cmake"
                                 COMPATIBILITY SameMajorVersion)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/vantrel-cyclone-config.cmake"
              "${CMAKE_CURRENT_BINARY_DIR}/vantrel-cyclone-config-version.cmake"
        DESTINATION ${config_dir})

# The DDS configuration profiles (loopback, vehicle LAN), for the toolkit's [network] dds_config.
file(GLOB dds_profiles CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/config/cyclonedds-*.xml")
install(FILES ${dds_profiles} DESTINATION "${CMAKE_INSTALL_DATADIR}/vantrel-cyclone/config")
