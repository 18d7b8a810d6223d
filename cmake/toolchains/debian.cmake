# Debian's cross compiler for PROCMGR_TARGET (a triplet) and CMAKE_SYSTEM_PROCESSOR, both set by the file that includes this
# one. With CMAKE_SYSROOT, headers and libraries come from that folder only; without, from the cross compiler itself,
# which is all that the core library needs.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${PROCMGR_TARGET}-gcc)
set(CMAKE_CXX_COMPILER ${PROCMGR_TARGET}-g++)

set(CMAKE_FIND_ROOT_PATH /usr/${PROCMGR_TARGET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Test programs are started under this, when they are listed and when they run.
find_program(PROCMGR_EMULATOR NAMES qemu-${CMAKE_SYSTEM_PROCESSOR} qemu-${CMAKE_SYSTEM_PROCESSOR}-static)
if(PROCMGR_EMULATOR)
    if(CMAKE_SYSROOT)
        set(CMAKE_CROSSCOMPILING_EMULATOR ${PROCMGR_EMULATOR} -L ${CMAKE_SYSROOT})
    else()
        set(CMAKE_CROSSCOMPILING_EMULATOR ${PROCMGR_EMULATOR} -L /usr/${PROCMGR_TARGET})
    endif()
endif()
