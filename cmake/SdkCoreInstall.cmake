# What find_package(sdk-core CONFIG) and pkg-config read, and the packages that cpack makes.

include(CMakePackageConfigHelpers)

set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/sdk-core)
configure_package_config_file(cmake/sdk-core-config.cmake.in sdk-core-config.cmake
    INSTALL_DESTINATION ${package_directory})
write_basic_package_version_file(sdk-core-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/sdk-core-config.cmake ${PROJECT_BINARY_DIR}/sdk-core-config-version.cmake
    DESTINATION ${package_directory} COMPONENT development)

# Relative to the file, so that an installed tree can be moved.
file(RELATIVE_PATH includedir_from_pc /${CMAKE_INSTALL_LIBDIR}/pkgconfig /${CMAKE_INSTALL_INCLUDEDIR})
configure_file(cmake/sdk-core.pc.in sdk-core.pc @ONLY)
# Static, so that its users link what it uses.
set(kit_requires "sdk-core, libcrypto")
set(kit_system_libraries "")
if(WIN32)
    set(kit_requires sdk-core)
    set(kit_system_libraries -lbcrypt)
endif()
configure_file(cmake/sdk-core-kit.pc.in sdk-core-kit.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/sdk-core.pc ${PROJECT_BINARY_DIR}/sdk-core-kit.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# What is shipped and written by others.
install(FILES THIRD-PARTY-NOTICES.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)
# For the kit's archive, in a Debian package of its own.
install(FILES THIRD-PARTY-NOTICES.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libsdk-core-dev COMPONENT development EXCLUDE_FROM_ALL)
if(TARGET TarnoMirelo::onnxruntime AND OnnxRuntime_BUNDLED)
    get_filename_component(engine_folder ${OnnxRuntime_LIBRARY} DIRECTORY)
    install(FILES ${engine_folder}/../LICENSE ${engine_folder}/../ThirdPartyNotices.txt
        DESTINATION ${CMAKE_INSTALL_DOCDIR}/onnxruntime COMPONENT onnxruntime-runtime)
endif()

# Packages are made where this project is built by itself, not as a part of another.
if(NOT PROJECT_IS_TOP_LEVEL)
    return()
endif()
set(CPACK_PACKAGE_VENDOR "the sdk-core developers")
set(CPACK_PACKAGE_CONTACT "the sdk-core developers <sdk-core@example.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
set(CPACK_VERBATIM_VARIABLES ON)
if(WIN32)
    set(CPACK_GENERATOR ZIP)
else()
    # The core, and the tool with the backends for itself alone.
    set(CPACK_GENERATOR DEB)
    set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
    set(CPACK_STRIP_FILES ON)
    set(CPACK_COMPONENTS_ALL runtime development)
    if(SDK_CORE_TOOLS)
        list(APPEND CPACK_COMPONENTS_ALL tools)
    endif()
    set(CPACK_COMPONENTS_GROUPING IGNORE)
    set(CPACK_DEB_COMPONENT_INSTALL ON)
    set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})  # the core's library is in another package
    set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libsdk-core${PROJECT_VERSION_MAJOR})
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
    set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libsdk-core-dev)
    set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
    set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libsdk-core${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION}), libssl-dev")  # the kit is linked with OpenSSL
    set(CPACK_COMPONENT_TOOLS_DESCRIPTION "mirelo, a tool for those who package models")
    set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME sdk-core-tools)
    set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
    set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libsdk-core${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
endif()
include(CPack)
