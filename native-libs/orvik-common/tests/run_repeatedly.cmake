# Runs PROGRAM (through EMULATOR, when given) RUNS times in a row, each run with a deadline of
# 60 s, and fails when any run fails, naming how many did.
#
#   cmake -DPROGRAM=<exe> [-DEMULATOR=<launcher>] -DRUNS=<n> -P run_repeatedly.cmake
set(failures 0)
foreach(run RANGE 1 ${RUNS})
    execute_process(COMMAND ${EMULATOR} ${PROGRAM}
        RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output TIMEOUT 60)
    if(NOT result EQUAL 0)
        math(EXPR failures "${failures} + 1")
        message("run ${run}: ${result}: ${output}")
    endif()
endforeach()
if(failures GREATER 0)
    message(FATAL_ERROR "${failures} of ${RUNS} runs failed")
endif()
message("${RUNS} runs passed")
