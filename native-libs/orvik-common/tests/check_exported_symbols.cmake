# Checks the exported symbols of the shared library: every published name listed in EXPECTED
# is there, and nothing of the library's internals is.
#
# An ELF library's are its dynamic symbol table (NM, -DC demangles). A DLL's are the name table
# of its export directory, which OBJDUMP -p prints mangled, and CXXFILT demangles.
if(DEFINED OBJDUMP)
    execute_process(COMMAND ${OBJDUMP} -p ${LIBRARY} COMMAND ${CXXFILT}
        OUTPUT_VARIABLE dump RESULTS_VARIABLE results)
    set(heading "[Ordinal/Name Pointer] Table")
    string(FIND "${dump}" "${heading}" start)
    if(NOT results MATCHES "^0;0$" OR start EQUAL -1)
        message(FATAL_ERROR "no export table read from ${LIBRARY}")
    endif()
    string(SUBSTRING "${dump}" ${start} -1 symbols)
    string(FIND "${symbols}" "\n\n" end)
    string(SUBSTRING "${symbols}" 0 ${end} symbols)
    # 64-bit POSIX systems name std::size_t "unsigned long", 64-bit Windows "unsigned long
    # long"; the list is written for the former. Both sides are compared with the one spelling.
    set(canonicalLong ON)
    string(REPLACE "unsigned long long" "unsigned long" symbols "${symbols}")
else()
    execute_process(COMMAND ${NM} -DC --defined-only ${LIBRARY}
        OUTPUT_VARIABLE symbols RESULT_VARIABLE result)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "nm failed on ${LIBRARY}")
    endif()
endif()

file(STRINGS ${EXPECTED} expected REGEX "^[^#]")
if(canonicalLong)
    list(TRANSFORM expected REPLACE "unsigned long long" "unsigned long")
endif()
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

# The conditions that only tests arrange (platform/<system>/testing.cpp) are not in the library
# at all, not even hidden: its full symbol table names none of them.
if(DEFINED OBJDUMP)
    execute_process(COMMAND ${OBJDUMP} -t ${LIBRARY} COMMAND ${CXXFILT} OUTPUT_VARIABLE everything)
else()
    execute_process(COMMAND ${NM} -C --defined-only ${LIBRARY} OUTPUT_VARIABLE everything)
endif()
string(REGEX MATCHALL
    "[^\n]*(RefuseNewThreadsForTesting|LimitFileSizeForTesting|FifoForTesting|FifoReaderForTesting|__wrap_pthread_create)[^\n]*"
    shipped "${everything}")

if(missing OR leaked OR shipped)
    list(JOIN missing "\n  " missingText)
    list(JOIN leaked "\n  " leakedText)
    list(JOIN shipped "\n  " shippedText)
    message(FATAL_ERROR "Published symbols missing:\n  ${missingText}\nInternal symbols exported:\n  ${leakedText}\nTest-only code shipped:\n  ${shippedText}")
endif()
message(STATUS "exported symbols as expected")
