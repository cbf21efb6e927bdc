# What the targets of this project have in common.

function(sdk_core_warnings target)
    if(MSVC)
        # Members and bases of standard types in exported classes: host and library share one C++ runtime.
        target_compile_options(${target} PRIVATE /W4 /permissive- /wd4251 /wd4275)
        return()
    endif()
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
    if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
        # GCC 12 sees an overlap in any "text" + std::string (its bug 105651).
        target_compile_options(${target} PRIVATE -Wno-restrict)
    endif()
endfunction()

# What is shipped is optimised as a whole.
#   -fno-semantic-interposition: functions of the library are called directly; nobody replaces them.
#   -fno-plt: functions of other libraries are called through a pointer; PLT stubs miss the cache.
function(sdk_core_optimisation target)
    if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND UNIX)
        set_target_properties(${target} PROPERTIES INTERPROCEDURAL_OPTIMIZATION_RELEASE ON)
        target_compile_options(${target} PRIVATE -fno-semantic-interposition -fno-plt)
    endif()
endfunction()

# Makes a shared library that exports its own namespace alone and is installed for find_package; its users need C++17.
# `prefix` begins the names of the components that it is installed with.
function(sdk_core_library target prefix)
    sdk_core_optimisation(${target})
    target_compile_features(${target} INTERFACE cxx_std_17)
    set_target_properties(${target} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
    if(MINGW)
        set_target_properties(${target} PROPERTIES PREFIX "" IMPORT_PREFIX "")  # sdk-core.dll, not libsdk-core.dll
    endif()
    if(UNIX AND NOT APPLE)
        # Without it, instantiated templates of the standard library would be exported, too.
        set(map ${PROJECT_SOURCE_DIR}/cmake/exports.map)
        target_link_options(${target} PRIVATE LINKER:--version-script=${map} LINKER:-Bsymbolic-functions)
        set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${map})
    endif()
    install(TARGETS ${target} EXPORT ${target}-targets
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT ${prefix}runtime
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${prefix}runtime NAMELINK_COMPONENT ${prefix}development
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${prefix}development)
    install(EXPORT ${target}-targets NAMESPACE TarnoMirelo::
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/sdk-core COMPONENT ${prefix}development)
    install(DIRECTORY include/TarnoMirelo DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT ${prefix}development)
endfunction()
