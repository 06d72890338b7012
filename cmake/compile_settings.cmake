# What every target of the project is compiled with. Use: glue_compile_settings(TARGET).

function(glue_compile_settings target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wconversion -Wshadow -Woverloaded-virtual)
    if(GLUE_WARNINGS_AS_ERRORS)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
    if(GLUE_SANITIZE)
        # Part of the interface of the libraries too: whoever links one of them needs the same runtime.
        target_compile_options(${target} PRIVATE -fsanitize=${GLUE_SANITIZE} -fno-omit-frame-pointer
                                                 -fno-sanitize-recover=all -g)
        target_link_options(${target} PUBLIC -fsanitize=${GLUE_SANITIZE})
    endif()
    if(GLUE_FUZZ) # lets the fuzzer see which way an input takes
        target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
    endif()
endfunction()

# Tests are compiled once and run for seconds: little optimisation, so that building them does not take longer than that.
function(glue_test_compile_settings target)
    glue_compile_settings(${target})
    if(CMAKE_BUILD_TYPE MATCHES "^(Release|RelWithDebInfo)$")
        target_compile_options(${target} PRIVATE -O1)
    endif()
    if(GLUE_SANITIZE)
        # Lines are enough for a report; where each variable of a test lives takes the compiler minutes to find out.
        target_compile_options(${target} PRIVATE -g1)
    endif()
endfunction()
