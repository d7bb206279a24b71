# Checks the dynamic symbol table of the shared library: every published name listed in
# EXPECTED is there, and nothing of the library's internals is.
execute_process(COMMAND ${NM} -DC --defined-only ${LIBRARY}
    OUTPUT_VARIABLE symbols RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "nm failed on ${LIBRARY}")
endif()

file(STRINGS ${EXPECTED} expected REGEX "^[^#]")
set(missing "")
foreach(name IN LISTS expected)
    string(FIND "${symbols}" "${name}" at)
    if(at EQUAL -1)
        list(APPEND missing "${name}")
    endif()
endforeach()

set(leaked "")
string(REPLACE "\n" ";" lines "${symbols}")
foreach(line IN LISTS lines)
    if(line MATCHES "orvik::(detail|platform)::|orvik::Worker::|for orvik::Worker$|orvik::\\(anonymous namespace\\)|orvik::LogTeardown")
        list(APPEND leaked "${line}")
    endif()
endforeach()

if(missing OR leaked)
    list(JOIN missing "\n  " missingText)
    list(JOIN leaked "\n  " leakedText)
    message(FATAL_ERROR "Published symbols missing:\n  ${missingText}\nInternal symbols exported:\n  ${leakedText}")
endif()
message(STATUS "exported symbols as expected")
