# Runs PROGRAM (through EMULATOR, when given) up to RUNS times in a row, each run with a deadline
# of 60 s, and fails at the first run that fails or hangs, naming it: one hang is enough to
# know, and waiting out the others would only hold the suite up.
#
#   cmake -DPROGRAM=<exe> [-DEMULATOR=<launcher>] -DRUNS=<n> -P run_repeatedly.cmake
foreach(run RANGE 1 ${RUNS})
    execute_process(COMMAND ${EMULATOR} ${PROGRAM}
        RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output TIMEOUT 60)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "run ${run} of ${RUNS} failed: ${result}: ${output}")
    endif()
endforeach()
message("${RUNS} runs passed")
