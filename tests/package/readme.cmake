# The code in the README is the code that is built: cmake -D ROOT=<root of the tree> -P readme.cmake
file(READ ${ROOT}/README.md readme)
foreach(source examples/quickstart/host.cpp examples/quickstart/doubler.h)
    file(READ ${ROOT}/${source} code)
    string(FIND "${readme}" "```cpp\n${code}```" position)
    if(position EQUAL -1)
        message(FATAL_ERROR "README.md does not show ${source} as it is")
    endif()
endforeach()
