# The code in a page is the code that is built: cmake -D ROOT=<root of the tree> -P readme.cmake
function(check page)
    file(READ ${ROOT}/${page} text)
    foreach(source ${ARGN})
        file(READ ${ROOT}/${source} code)
        string(FIND "${text}" "```cpp\n${code}```" position)
        if(position EQUAL -1)
            message(FATAL_ERROR "${page} does not show ${source} as it is")
        endif()
    endforeach()
endfunction()

check(README.md examples/quickstart/host.cpp examples/quickstart/scaler.h)
check(docs/kit.md examples/kit/host.cpp)
