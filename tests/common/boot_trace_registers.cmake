# cmake -D OBJDUMP=... -D LIBRARY=... -P boot_trace_registers.cmake: the code that was built for a 64-bit Arm processor reads its
# counter and its frequency from the registers. (An emulator makes both from the clock of the machine, so that a running
# test alone can't tell them from a clock.)
execute_process(COMMAND ${OBJDUMP} -d ${LIBRARY} OUTPUT_VARIABLE code COMMAND_ERROR_IS_FATAL ANY)
foreach(instruction IN ITEMS "mrs[ \t]+x[0-9]+, cntvct_el0" "mrs[ \t]+x[0-9]+, cntfrq_el0")
    if(NOT code MATCHES "${instruction}")
        message(FATAL_ERROR "no instruction '${instruction}' in ${LIBRARY}")
    endif()
endforeach()
