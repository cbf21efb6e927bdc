# What find_package(sdk-core CONFIG) and pkg-config read.

include(CMakePackageConfigHelpers)

set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/sdk-core)
configure_package_config_file(cmake/sdk-core-config.cmake.in sdk-core-config.cmake
    INSTALL_DESTINATION ${package_directory})
write_basic_package_version_file(sdk-core-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/sdk-core-config.cmake ${PROJECT_BINARY_DIR}/sdk-core-config-version.cmake
    DESTINATION ${package_directory})

# From where the file lies, so that an installed tree can be moved.
file(RELATIVE_PATH includedir_from_pc /${CMAKE_INSTALL_LIBDIR}/pkgconfig /${CMAKE_INSTALL_INCLUDEDIR})
configure_file(cmake/sdk-core.pc.in sdk-core.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/sdk-core.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
