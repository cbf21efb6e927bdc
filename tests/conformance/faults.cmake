# Each planted fault is caught by the test that it is for, which names the row:
# cmake -D PROGRAM=<program> -P faults.cmake
execute_process(COMMAND ${PROGRAM} --faults OUTPUT_VARIABLE list COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[A-Za-z]+ [A-Za-z]+\\.[A-Za-z]+" faults "${list}")
list(LENGTH faults count)
if(count LESS 25)
    message(FATAL_ERROR "There are ${count} faults, wanted are at least 25")
endif()
foreach(entry IN LISTS faults)
    string(REGEX MATCH "^([A-Za-z]+) ([A-Za-z]+)\\.([A-Za-z]+)$" matched "${entry}")
    set(test ${CMAKE_MATCH_2}.${CMAKE_MATCH_3})
    set(row ${CMAKE_MATCH_3})
    execute_process(COMMAND ${PROGRAM} --gtest_filter=${test} --fault=${CMAKE_MATCH_1}
        OUTPUT_VARIABLE output ERROR_VARIABLE output RESULT_VARIABLE result)
    if(result EQUAL 0 OR NOT output MATCHES "FAILED  \\] ${test}" OR NOT output MATCHES "Row ${row}: .*wanted is")
        message(SEND_ERROR "${entry}: not caught, wanted is a failure of the row that says what is wanted\n${output}")
    endif()
endforeach()
message(STATUS "${count} faults")
