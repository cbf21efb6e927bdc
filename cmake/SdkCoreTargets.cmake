# What the targets of this project have in common.

function(sdk_core_warnings target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
    if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
        # GCC 12 sees an overlap in any "text" + std::string (its bug 105651).
        target_compile_options(${target} PRIVATE -Wno-restrict)
    endif()
endfunction()

# What is shipped is optimised as a whole, and calls its own functions directly: nobody puts others in their place.
# Those of other libraries are called without a detour through a table of jumps, which a busy processor has forgotten
# each time.
function(sdk_core_optimisation target)
    if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND UNIX)
        set_target_properties(${target} PROPERTIES INTERPROCEDURAL_OPTIMIZATION_RELEASE ON)
        target_compile_options(${target} PRIVATE -fno-semantic-interposition -fno-plt)
    endif()
endfunction()

# A shared library whose users need C++17, which exports its own namespace and nothing of what it was built with, and
# which is installed for find_package. Its users see it as TarnoMirelo::<name of the export>. `prefix` goes before the
# names of the components that it is installed with.
function(sdk_core_library target prefix)
    sdk_core_optimisation(${target})
    target_compile_features(${target} INTERFACE cxx_std_17)
    set_target_properties(${target} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
    if(MINGW)
        set_target_properties(${target} PROPERTIES PREFIX "" IMPORT_PREFIX "")  # as the field names DLLs
    endif()
    if(UNIX AND NOT APPLE)
        # Templates of the standard library are visible wherever they are instantiated, unless the linker is told.
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
