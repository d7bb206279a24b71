# Per-target settings shared by every target of this project: warnings (as errors when
# ORVIK_COMMON_WARNINGS_AS_ERRORS is on, as it is by default only at the top level), the
# sanitizer chosen with ORVIK_COMMON_SANITIZER, and source paths relative to the
# repository root in __FILE__ so that log lines read the same on every machine.

function(orvik_common_target_options target)
    target_compile_features(${target} PRIVATE cxx_std_17)
    set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF)
    if(MSVC)
        target_compile_options(${target} PRIVATE /W4 /permissive- /utf-8)
        if(ORVIK_COMMON_WARNINGS_AS_ERRORS)
            target_compile_options(${target} PRIVATE /WX)
        endif()
    else()
        target_compile_options(${target} PRIVATE
            -Wall -Wextra -Wpedantic
            "-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=")
        if(ORVIK_COMMON_WARNINGS_AS_ERRORS)
            target_compile_options(${target} PRIVATE -Werror)
        endif()
    endif()
    orvik_common_sanitize(${target})
endfunction()

function(orvik_common_sanitize target)
    if(ORVIK_COMMON_SANITIZER STREQUAL "address")
        set(flags -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    elseif(ORVIK_COMMON_SANITIZER STREQUAL "thread")
        set(flags -fsanitize=thread -fno-omit-frame-pointer)
    elseif(ORVIK_COMMON_SANITIZER STREQUAL "")
        return()
    else()
        message(FATAL_ERROR "ORVIK_COMMON_SANITIZER must be empty, 'address' or 'thread'")
    endif()
    target_compile_options(${target} PRIVATE ${flags})
    target_link_options(${target} PRIVATE ${flags})
endfunction()
