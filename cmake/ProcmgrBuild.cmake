# Warnings, sanitizers and the helper functions that the folders share.

set(PROCMGR_SANITIZE "" CACHE STRING "Empty, address (with undefined behaviour) or thread")
option(PROCMGR_WERROR "A warning is an error" ${PROJECT_IS_TOP_LEVEL})
option(PROCMGR_USE_CCACHE "Compile through ccache when it is installed" ON)

if(PROCMGR_USE_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    find_program(PROCMGR_CCACHE ccache)
    if(PROCMGR_CCACHE)
        set(CMAKE_C_COMPILER_LAUNCHER ${PROCMGR_CCACHE})
        set(CMAKE_CXX_COMPILER_LAUNCHER ${PROCMGR_CCACHE})
    endif()
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wformat=2 -Wformat-nonliteral)
if(PROCMGR_WERROR)
    add_compile_options(-Werror)
endif()

# What is built says nothing of the folder in which it was built: neither its log lines nor its debug information.
add_compile_options(-fmacro-prefix-map=${PROJECT_SOURCE_DIR}=. -fdebug-prefix-map=${PROJECT_SOURCE_DIR}=.)
if(NOT PROJECT_BINARY_DIR MATCHES "^${PROJECT_SOURCE_DIR}/")
    add_compile_options(-fmacro-prefix-map=${PROJECT_BINARY_DIR}=build -fdebug-prefix-map=${PROJECT_BINARY_DIR}=build)
endif()

if(PROCMGR_SANITIZE STREQUAL "address")
    add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
elseif(PROCMGR_SANITIZE STREQUAL "thread")
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    add_link_options(-fsanitize=thread)
elseif(NOT PROCMGR_SANITIZE STREQUAL "")
    message(FATAL_ERROR "PROCMGR_SANITIZE is '${PROCMGR_SANITIZE}'; use address, thread or leave it empty")
endif()

# PROCMGR_FUZZ: what is fuzzed tells the fuzzer which way it went.
if(PROCMGR_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# PROCMGR_COVERAGE: the core counts which of its branches ran; what tests it does not. The counters are atomic, for the
# core runs on several threads.
if(PROCMGR_COVERAGE)
    set(coverage_options --coverage -fprofile-update=atomic)
    add_link_options(--coverage)
endif()

# procmgr_layer(NAME SOURCES ... USES ...): one folder of the core as a static library of hidden symbols.
function(procmgr_layer name)
    cmake_parse_arguments(ARG "" "" "SOURCES;USES" ${ARGN})
    add_library(procmgr_${name} STATIC ${ARG_SOURCES})
    target_include_directories(procmgr_${name} PUBLIC ${PROJECT_SOURCE_DIR})
    target_compile_options(procmgr_${name} PRIVATE ${coverage_options})
    target_link_libraries(procmgr_${name} PUBLIC procmgr_platform_headers Threads::Threads)
    foreach(layer IN LISTS ARG_USES)
        target_link_libraries(procmgr_${name} PUBLIC procmgr_${layer})
    endforeach()
endfunction()

# procmgr_test(NAME LABEL unit|contract|concurrent|integration SOURCES ... LIBRARIES ... [TIMEOUT seconds]):
# one test program; every test of it runs in a process of its own, so that singletons start fresh.
# Labels say where ./dev test runs it: unit and contract under ASan+UBSan, concurrent under ASan+UBSan and TSan,
# integration against the release build.
function(procmgr_test name)
    cmake_parse_arguments(ARG "" "LABEL;TIMEOUT" "SOURCES;LIBRARIES" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 120)
    endif()
    set(discovery_timeout 60)
    # Under an emulator everything takes longer; still, only a hang reaches these.
    if(CMAKE_CROSSCOMPILING)
        math(EXPR ARG_TIMEOUT "10 * ${ARG_TIMEOUT}")
        math(EXPR discovery_timeout "10 * ${discovery_timeout}")
    endif()
    add_executable(${name} ${ARG_SOURCES})
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
    target_link_libraries(${name} PRIVATE ${ARG_LIBRARIES} GTest::gmock GTest::gtest_main Threads::Threads)
    gtest_discover_tests(${name} PROPERTIES LABELS ${ARG_LABEL} TIMEOUT ${ARG_TIMEOUT}
        DISCOVERY_TIMEOUT ${discovery_timeout})
    if(NOT TARGET ${ARG_LABEL}_tests)
        add_custom_target(${ARG_LABEL}_tests)
    endif()
    add_dependencies(${ARG_LABEL}_tests ${name})
endfunction()
