# 32-bit Arm with hardware floating point
set(PROCMGR_TARGET arm-linux-gnueabihf)
set(CMAKE_SYSTEM_PROCESSOR arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
