# Programs find DLLs where Windows looks first, beside themselves: those of this build, and the compiler's runtime.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)

if(MINGW)
    # One runtime for the library, its backends and the host. An exception in flight is known only to the copy of the
    # runtime that raised it, so with a copy in each DLL none could convert what another one caught.
    foreach(name libgcc_s_seh-1.dll libstdc++-6.dll libwinpthread-1.dll)
        execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${name}
            OUTPUT_VARIABLE file OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
        file(COPY ${file} DESTINATION ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
        install(FILES ${file} DESTINATION ${CMAKE_INSTALL_BINDIR})
    endforeach()
    # Their licences, where Debian's packages have them.
    set(notices ${CMAKE_INSTALL_DOCDIR}/mingw-w64)
    install(FILES /usr/share/common-licenses/GPL-3 DESTINATION ${notices} OPTIONAL)
    foreach(package gcc-mingw-w64-x86-64-posix-runtime mingw-w64-x86-64-dev)
        install(FILES /usr/share/doc/${package}/copyright DESTINATION ${notices} RENAME ${package}.txt OPTIONAL)
    endforeach()
endif()
