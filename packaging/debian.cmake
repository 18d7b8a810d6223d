# The Debian packages: one for each shared library, the development files, the daemons, the tools.
set(PROCMGR_PACKAGER "Packagers of ${PROJECT_NAME} <packagers@procmgr.example>" CACHE STRING
    "Name and address of whoever builds the packages")

# One version, that of the newest entry of the changelog.
file(READ debian/changelog changelog LIMIT 200)
string(REGEX MATCH "^[^ ]+ \\(([^)-]+)-([^)]+)\\)" head "${changelog}")
if(NOT CMAKE_MATCH_1 STREQUAL PROJECT_VERSION)
    message(FATAL_ERROR "packaging/debian/changelog begins with the version '${CMAKE_MATCH_1}', the project has "
        "${PROJECT_VERSION}; write an entry for it")
endif()
set(revision ${CMAKE_MATCH_2})
set(full_version ${PROJECT_VERSION}-${revision})

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_DEBIAN_PACKAGE_SOURCE ${PROJECT_NAME})
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${PROCMGR_PACKAGER})
set(CPACK_DEBIAN_PACKAGE_RELEASE ${revision})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# Dependencies on libraries of others come from the programs; those on our own are written below, with versions.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
    ${PROJECT_BINARY_DIR}/grp_owner ${PROJECT_BINARY_DIR}/platform/posix
    ${PROJECT_BINARY_DIR}/platform/posix/app ${PROJECT_BINARY_DIR}/platform/posix/ss_client)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/debian/compress_pages.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/debian/leave_ldconfig_to_trigger.cmake)

find_program(GZIP gzip REQUIRED)
execute_process(COMMAND ${GZIP} -9nc ${CMAKE_CURRENT_SOURCE_DIR}/debian/changelog
    OUTPUT_FILE ${CMAKE_CURRENT_BINARY_DIR}/changelog.Debian.gz COMMAND_ERROR_IS_FATAL ANY)

# debian_package(COMPONENT NAME SECTION ... DESCRIPTION ... [DEPENDS|RECOMMENDS|SUGGESTS ...] [CONTROL files...])
function(debian_package component name section)
    cmake_parse_arguments(ARG "" "DESCRIPTION" "DEPENDS;RECOMMENDS;SUGGESTS;CONTROL" ${ARGN})
    list(APPEND CPACK_COMPONENTS_ALL ${component})
    set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} PARENT_SCOPE)
    string(TOUPPER ${component} upper)
    set(prefix CPACK_DEBIAN_${upper})
    set(${prefix}_PACKAGE_NAME ${name} PARENT_SCOPE)
    set(${prefix}_PACKAGE_SECTION ${section} PARENT_SCOPE)
    set(${prefix}_DESCRIPTION ${ARG_DESCRIPTION} PARENT_SCOPE)
    set(${prefix}_PACKAGE_CONTROL_EXTRA ${ARG_CONTROL} PARENT_SCOPE)
    foreach(relation DEPENDS RECOMMENDS SUGGESTS)
        list(JOIN ARG_${relation} ", " packages)
        string(REPLACE "(=)" "(= ${full_version})" packages "${packages}")
        string(REPLACE "(>=)" "(>= ${full_version})" packages "${packages}")
        set(${prefix}_PACKAGE_${relation} "${packages}" PARENT_SCOPE)
    endforeach()
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/changelog.Debian.gz debian/copyright
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name} COMPONENT ${component})
endfunction()

file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/conffiles "${conffiles}")
set(library_control ${CMAKE_CURRENT_SOURCE_DIR}/debian/library/triggers)
set(daemon_control ${CMAKE_CURRENT_BINARY_DIR}/conffiles)
foreach(script postinst prerm postrm)
    configure_file(debian/daemons.${script} ${CMAKE_CURRENT_BINARY_DIR}/${script} COPYONLY)
    list(APPEND daemon_control ${CMAKE_CURRENT_BINARY_DIR}/${script})
endforeach()

debian_package(lib libprocmgr-grp-owner${PROCMGR_ABI} libs
    CONTROL ${library_control}
    DESCRIPTION "owner of a group of applications, as a library
A process that loads it takes charge of a group of applications that YAML
manifests describe: a process manager starts, terminates and restarts them
at its request, in the order of their dependencies.

This package has the shared library. It needs a platform: that of
libprocmgr-platform${PROCMGR_ABI}, or one of your own."
    RECOMMENDS "libprocmgr-platform${PROCMGR_ABI} (>=)")

debian_package(platform libprocmgr-platform${PROCMGR_ABI} libs
    CONTROL ${library_control}
    DESCRIPTION "POSIX platform of group owners
The services that the group-owner library asks of its surroundings, over Unix
sockets: the pipe to the process manager, heartbeats, manifests, the bus to
the system-state manager, the log.")

debian_package(app libprocmgr-app${PROCMGR_ABI} libs
    CONTROL ${library_control}
    DESCRIPTION "what an application tells its process manager
A small C library with which an application says that it is ready, that it
stops and that its heart beats.")

debian_package(ss libprocmgr-ss${PROCMGR_ABI} libs
    CONTROL ${library_control}
    DESCRIPTION "client library of system-state managers
A small C library with which a system-state manager asks group owners to
start, stop and restart applications, and follows their events.")

debian_package(dev libprocmgr-grp-owner-dev libdevel
    DESCRIPTION "owner of a group of applications, development files
Headers, static libraries, CMake and pkg-config files for the group-owner
library, its POSIX platform and the libraries of applications and
system-state managers."
    DEPENDS "libprocmgr-grp-owner${PROCMGR_ABI} (=)" "libprocmgr-platform${PROCMGR_ABI} (=)"
        "libprocmgr-app${PROCMGR_ABI} (=)" "libprocmgr-ss${PROCMGR_ABI} (=)" libc6-dev
    SUGGESTS libyaml-cpp-dev libspdlog-dev)

debian_package(daemons procmgr-daemons admin
    DESCRIPTION "process manager and owner of application groups
procmgrd starts, restarts and ends the applications that group owners ask
for. grpownerd is a group owner that is ready to use: it brings up the group
that its manifests describe and follows it.

Both come with systemd units, with init scripts for machines without
systemd, and with a sample group."
    DEPENDS "libprocmgr-grp-owner${PROCMGR_ABI} (>=)" "libprocmgr-platform${PROCMGR_ABI} (>=)"
        adduser
    RECOMMENDS "procmgr-tools (>=)"
    SUGGESTS logrotate
    CONTROL ${daemon_control})

debian_package(tools procmgr-tools admin
    DESCRIPTION "drives application groups from the command line
ssctl plays the system-state manager: it lists, starts, stops and restarts the
applications of a group, follows its events, says what is wrong with
manifests, and draws their dependencies."
    DEPENDS "libprocmgr-platform${PROCMGR_ABI} (>=)" "libprocmgr-ss${PROCMGR_ABI} (>=)"
    SUGGESTS "procmgr-daemons (>=)" graphviz)

include(CPack)
