# ONNX Runtime: its C interface and its shared library. Looked for in the folder that the variable or the environment's
# ONNXRUNTIME_ROOT names (include/ and lib/, as in the vendor's releases), under build/engines/onnxruntime of the
# checkout, and with pkg-config. Defines OnnxRuntime::OnnxRuntime, and
#   OnnxRuntime_LIBRARY   the shared library, or the DLL
#   OnnxRuntime_DIRECTORY the folder that it lies in
#   OnnxRuntime_SONAME    the name that programs look for at run time
#   OnnxRuntime_BUNDLED   whether it lies in a folder of its own, where no program looks

include(FindPackageHandleStandardArgs)

set(roots ${ONNXRUNTIME_ROOT} $ENV{ONNXRUNTIME_ROOT} ${PROJECT_SOURCE_DIR}/build/engines/onnxruntime)
# No other folder: what the system has may be for another target, or have no headers.
set(only_there HINTS ${roots} NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
set(OnnxRuntime_BUNDLED TRUE)
# What was found before may have been removed since.
if(NOT EXISTS "${OnnxRuntime_INCLUDE_DIR}/onnxruntime_c_api.h" OR NOT EXISTS "${OnnxRuntime_LIBRARY}")
    unset(OnnxRuntime_INCLUDE_DIR CACHE)
    unset(OnnxRuntime_LIBRARY CACHE)
endif()
find_path(OnnxRuntime_INCLUDE_DIR onnxruntime_c_api.h ${only_there} PATH_SUFFIXES include include/onnxruntime)
if(WIN32)
    find_file(OnnxRuntime_LIBRARY onnxruntime.dll ${only_there} PATH_SUFFIXES lib bin)
else()
    find_library(OnnxRuntime_LIBRARY onnxruntime ${only_there} PATH_SUFFIXES lib)
endif()
if(NOT OnnxRuntime_LIBRARY AND NOT CMAKE_CROSSCOMPILING)
    find_package(PkgConfig QUIET)
    if(PkgConfig_FOUND)
        pkg_check_modules(OnnxRuntime_PC QUIET libonnxruntime)
        find_path(OnnxRuntime_INCLUDE_DIR onnxruntime_c_api.h HINTS ${OnnxRuntime_PC_INCLUDE_DIRS} PATH_SUFFIXES onnxruntime)
        find_library(OnnxRuntime_LIBRARY onnxruntime HINTS ${OnnxRuntime_PC_LIBRARY_DIRS})
        set(OnnxRuntime_BUNDLED FALSE)
    endif()
endif()
mark_as_advanced(OnnxRuntime_INCLUDE_DIR OnnxRuntime_LIBRARY)

if(OnnxRuntime_INCLUDE_DIR)
    file(STRINGS ${OnnxRuntime_INCLUDE_DIR}/onnxruntime_c_api.h interface REGEX "^#define ORT_API_VERSION [0-9]+$")
    string(REGEX REPLACE ".* " "1." OnnxRuntime_VERSION "${interface}")
endif()
if(OnnxRuntime_LIBRARY AND UNIX AND NOT APPLE)
    execute_process(COMMAND ${CMAKE_READELF} -d ${OnnxRuntime_LIBRARY} OUTPUT_VARIABLE dynamic)
    string(REGEX MATCH "soname: \\[([^]]*)\\]" dynamic "${dynamic}")
    set(OnnxRuntime_SONAME "${CMAKE_MATCH_1}")
elseif(OnnxRuntime_LIBRARY)
    get_filename_component(OnnxRuntime_SONAME ${OnnxRuntime_LIBRARY} NAME)
endif()

find_package_handle_standard_args(OnnxRuntime
    REQUIRED_VARS OnnxRuntime_LIBRARY OnnxRuntime_INCLUDE_DIR OnnxRuntime_SONAME
    VERSION_VAR OnnxRuntime_VERSION)

get_filename_component(OnnxRuntime_DIRECTORY "${OnnxRuntime_LIBRARY}" DIRECTORY)
if(OnnxRuntime_FOUND AND NOT TARGET OnnxRuntime::OnnxRuntime)
    if(UNIX AND NOT APPLE)
        # The engine gives its one symbol the version of its release. A program that is linked with it starts with that
        # release alone; so programs are linked with a library of the same name without versions.
        set(stub ${PROJECT_BINARY_DIR}/onnxruntime-stub)
        file(CONFIGURE OUTPUT ${stub}/stub.cpp CONTENT "extern \"C\" void OrtGetApiBase();\nvoid OrtGetApiBase() {}\n")
        add_library(onnxruntime-stub SHARED ${stub}/stub.cpp)
        set_target_properties(onnxruntime-stub PROPERTIES
            LIBRARY_OUTPUT_DIRECTORY ${stub} CXX_VISIBILITY_PRESET default NO_SONAME ON CXX_CLANG_TIDY "")
        target_link_options(onnxruntime-stub PRIVATE LINKER:-soname,${OnnxRuntime_SONAME})
        add_library(OnnxRuntime::OnnxRuntime INTERFACE IMPORTED)
        # By its name alone: no program is to find it at run time.
        target_link_directories(OnnxRuntime::OnnxRuntime INTERFACE ${stub})
        target_link_libraries(OnnxRuntime::OnnxRuntime INTERFACE -lonnxruntime-stub)
        set_target_properties(OnnxRuntime::OnnxRuntime PROPERTIES INTERFACE_LINK_DEPENDS $<TARGET_FILE:onnxruntime-stub>)
        add_dependencies(OnnxRuntime::OnnxRuntime onnxruntime-stub)
    else()
        add_library(OnnxRuntime::OnnxRuntime SHARED IMPORTED)
        set_target_properties(OnnxRuntime::OnnxRuntime PROPERTIES
            IMPORTED_LOCATION ${OnnxRuntime_LIBRARY} IMPORTED_IMPLIB ${OnnxRuntime_LIBRARY})
    endif()
    target_include_directories(OnnxRuntime::OnnxRuntime SYSTEM INTERFACE ${OnnxRuntime_INCLUDE_DIR})
endif()
