# 64-bit RISC-V
set(PROCMGR_TARGET riscv64-linux-gnu)
set(CMAKE_SYSTEM_PROCESSOR riscv64)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
