# What every target of the project is compiled with. Use: glue_compile_settings(TARGET).

function(glue_compile_settings target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wconversion -Wshadow -Woverloaded-virtual)
    if(CMAKE_SIZEOF_VOID_P EQUAL 4)
        # Files of more than 2 GiB and times after January 2038, as with 64 bits.
        target_compile_definitions(${target} PRIVATE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
        target_compile_options(${target} PRIVATE -Wno-psabi) # notes on arguments that GCC 6 and older pass differently
    endif()
    if(GLUE_WARNINGS_AS_ERRORS)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
    if(GLUE_SANITIZE)
        # Part of the interface of the libraries too: a program that links one of them needs the same runtime.
        target_compile_options(${target} PRIVATE -fsanitize=${GLUE_SANITIZE} -fno-omit-frame-pointer
                                                 -fno-sanitize-recover=all -g)
        target_link_options(${target} PUBLIC -fsanitize=${GLUE_SANITIZE})
    endif()
    get_target_property(type ${target} TYPE)
    if(CMAKE_CROSSCOMPILING_EMULATOR AND type STREQUAL EXECUTABLE)
        glue_run_in_emulator(${target})
    endif()
    if(GLUE_FUZZ) # lets the fuzzer see which code an input reaches
        target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
    endif()
endfunction()

# glue_precompile(TARGET HEADERS...): compiles once what most sources of a target include, from the standard library and from
# the packages named. That is most of the work of compiling them. Each source still includes what it uses.
function(glue_precompile target)
    target_precompile_headers(${target} PRIVATE <algorithm> <atomic> <cstdint> <cstdio> <cstring> <functional> <memory>
                                                <mutex> <optional> <string> <string_view> <utility> <vector> ${ARGN})
endfunction()

# Reading options and calling the parts of a program takes no time; optimising CLI11 takes the compiler longer than all the rest.
function(glue_command_line_compile_settings target)
    glue_compile_settings(${target})
    if(CMAKE_BUILD_TYPE STREQUAL Release)
        target_compile_options(${target} PRIVATE -O1)
    endif()
endfunction()

# Tests are compiled once and run for seconds: little optimisation, so that building them does not take longer than that.
function(glue_test_compile_settings target)
    glue_compile_settings(${target})
    if(CMAKE_BUILD_TYPE MATCHES "^(Release|RelWithDebInfo)$")
        target_compile_options(${target} PRIVATE -O1)
    endif()
    if(GLUE_SANITIZE)
        # Lines are enough for a report; the location of each variable takes the compiler minutes.
        target_compile_options(${target} PRIVATE -g1)
    endif()
endfunction()

# A script with the program's name runs it in the emulator: people, shells, tests and the program itself start it like any other.
function(glue_run_in_emulator target)
    list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
    set(script ${CMAKE_BINARY_DIR}/emulated/${target})
    file(GENERATE OUTPUT ${script}
         CONTENT "#!/bin/sh\nexec ${emulator} -0 \"$0\" '$<TARGET_FILE:${target}>.elf' \"$@\"\n"
         FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    add_custom_command(TARGET ${target} POST_BUILD VERBATIM
                       COMMAND ${CMAKE_COMMAND} -E rename $<TARGET_FILE:${target}> $<TARGET_FILE:${target}>.elf
                       COMMAND ${CMAKE_COMMAND} -E copy ${script} $<TARGET_FILE:${target}>)
    set_target_properties(${target} PROPERTIES CROSSCOMPILING_EMULATOR "")
endfunction()
