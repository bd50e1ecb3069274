# Cross-builds for macOS on another system, with the Zig tool chain that scripts/check.sh puts under
# build/zig. The wrappers exist because CMake wants one program per tool.
set(CMAKE_SYSTEM_NAME Darwin)
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES QORMON3_MACOS_ARCH)
set(CMAKE_SYSTEM_PROCESSOR ${QORMON3_MACOS_ARCH})

get_filename_component(qormon3_root ${CMAKE_CURRENT_LIST_DIR}/.. ABSOLUTE)
find_program(QORMON3_ZIG zig PATHS ${qormon3_root}/build/zig/node_modules/.bin
    NO_DEFAULT_PATH REQUIRED)

if(QORMON3_MACOS_ARCH STREQUAL "arm64")
    set(zig_target aarch64-macos)
else()
    set(zig_target x86_64-macos)
endif()

set(wrappers ${CMAKE_BINARY_DIR}/zig-tools)
foreach(tool cc c++ ar ranlib)
    set(wrapper ${wrappers}/${tool})
    if(NOT EXISTS ${wrapper})
        if(tool MATCHES "^c")
            set(arguments "${tool} -target ${zig_target}")
        else()
            set(arguments ${tool})
        endif()
        file(WRITE ${wrapper} "#!/bin/sh\nexec '${QORMON3_ZIG}' ${arguments} \"$@\"\n")
        file(CHMOD ${wrapper} PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
    endif()
endforeach()

set(CMAKE_C_COMPILER ${wrappers}/cc)
set(CMAKE_CXX_COMPILER ${wrappers}/c++)
set(CMAKE_USER_MAKE_RULES_OVERRIDE ${CMAKE_CURRENT_LIST_DIR}/zig-macos-rules.cmake)
set(CMAKE_AR ${wrappers}/ar CACHE FILEPATH "")
set(CMAKE_RANLIB ${wrappers}/ranlib CACHE FILEPATH "")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
