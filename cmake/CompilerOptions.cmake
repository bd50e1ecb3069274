# Warnings apply to what is written here, never to third-party sources that tests compile along.
add_library(qormon3_warnings INTERFACE)
target_compile_options(qormon3_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wcast-align -Wcast-qual
    -Wformat=2 -Wundef -Wdouble-promotion -Wimplicit-fallthrough -Wwrite-strings
    $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual>
    $<$<COMPILE_LANGUAGE:C>:-Wstrict-prototypes>
    $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond -Wlogical-op>)
if(QORMON3_WARNINGS_AS_ERRORS)
    target_compile_options(qormon3_warnings INTERFACE -Werror)
endif()

if(QORMON3_SANITIZE)
    add_compile_options(-fsanitize=${QORMON3_SANITIZE} -fno-sanitize-recover=all
        -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${QORMON3_SANITIZE})
endif()
