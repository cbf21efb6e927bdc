# OpenCV's dnn module. Debian packages it without OpenCV's own CMake files, so headers and libraries are looked for
# one by one. Defines OpenCvDnn::OpenCvDnn.

include(FindPackageHandleStandardArgs)

find_path(OpenCvDnn_INCLUDE_DIR opencv2/dnn.hpp PATH_SUFFIXES opencv4)
find_library(OpenCvDnn_DNN_LIBRARY opencv_dnn)
find_library(OpenCvDnn_CORE_LIBRARY opencv_core)
mark_as_advanced(OpenCvDnn_INCLUDE_DIR OpenCvDnn_DNN_LIBRARY OpenCvDnn_CORE_LIBRARY)

find_package_handle_standard_args(OpenCvDnn
    REQUIRED_VARS OpenCvDnn_DNN_LIBRARY OpenCvDnn_CORE_LIBRARY OpenCvDnn_INCLUDE_DIR)

if(OpenCvDnn_FOUND AND NOT TARGET OpenCvDnn::OpenCvDnn)
    add_library(OpenCvDnn::OpenCvDnn INTERFACE IMPORTED)
    target_include_directories(OpenCvDnn::OpenCvDnn SYSTEM INTERFACE ${OpenCvDnn_INCLUDE_DIR})
    target_link_libraries(OpenCvDnn::OpenCvDnn INTERFACE ${OpenCvDnn_DNN_LIBRARY} ${OpenCvDnn_CORE_LIBRARY})
endif()
