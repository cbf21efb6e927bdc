# The classes of ONNX's own file format, the schemas of its operators, and its inference of types. Debian packages it
# with CMake files that look for a protobuf of their own. Defines Onnx::Onnx.

include(FindPackageHandleStandardArgs)

find_path(Onnx_INCLUDE_DIR onnx/onnx_pb.h)
find_library(Onnx_LIBRARY onnx)
find_library(Onnx_PROTO_LIBRARY onnx_proto)
find_library(Onnx_PROTOBUF_LIBRARY protobuf)
mark_as_advanced(Onnx_INCLUDE_DIR Onnx_LIBRARY Onnx_PROTO_LIBRARY Onnx_PROTOBUF_LIBRARY)

find_package_handle_standard_args(Onnx
    REQUIRED_VARS Onnx_LIBRARY Onnx_PROTO_LIBRARY Onnx_PROTOBUF_LIBRARY Onnx_INCLUDE_DIR)

if(Onnx_FOUND AND NOT TARGET Onnx::Onnx)
    add_library(Onnx::Onnx INTERFACE IMPORTED)
    target_include_directories(Onnx::Onnx SYSTEM INTERFACE ${Onnx_INCLUDE_DIR})
    target_compile_definitions(Onnx::Onnx INTERFACE ONNX_ML=1 ONNX_NAMESPACE=onnx)
    target_link_libraries(Onnx::Onnx INTERFACE ${Onnx_LIBRARY} ${Onnx_PROTO_LIBRARY} ${Onnx_PROTOBUF_LIBRARY})
endif()
