# What is installed where, in the components lib, platform, app, ss, dev, daemons and tools, and the package through which other
# projects find it. docs/facade.md shows the use.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# Root of the installed headers: below it they lie as in this tree, so that the include lines are the same.
set(PROCMGR_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/procmgr)
set(PROCMGR_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/${PROJECT_NAME})
set(PROCMGR_PKGCONFIGDIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# procmgr_exports(TARGET MAP): gives a shared library its names, with the ABI number in them, and exports from it what
# the version script MAP.in names, and nothing else.
function(procmgr_exports target map)
    configure_file(${map}.in ${CMAKE_CURRENT_BINARY_DIR}/${map} @ONLY)
    target_link_options(${target} PRIVATE -Wl,--version-script=${CMAKE_CURRENT_BINARY_DIR}/${map})
    set_target_properties(${target} PROPERTIES
        VERSION ${PROCMGR_ABI}.${PROJECT_VERSION}
        SOVERSION ${PROCMGR_ABI}
        LINK_DEPENDS ${CMAKE_CURRENT_BINARY_DIR}/${map})
endfunction()

# procmgr_public_name(TARGET NAME): TARGET is procmgr::NAME, here and for those who find the installed package.
function(procmgr_public_name target name)
    add_library(procmgr::${name} ALIAS ${target})
    set_target_properties(${target} PROPERTIES EXPORT_NAME ${name})
endfunction()

# procmgr_install_library(EXPORT name TARGETS ... [COMPONENT of the shared library's run-time files]): libraries and the
# file procmgr-NAME-targets.cmake that describes them.
function(procmgr_install_library)
    cmake_parse_arguments(ARG "" "EXPORT;COMPONENT" "TARGETS" ${ARGN})
    if(NOT PROCMGR_INSTALL)
        return()
    endif()
    if(NOT ARG_COMPONENT)
        set(ARG_COMPONENT dev)
    endif()
    install(TARGETS ${ARG_TARGETS} EXPORT procmgr-${ARG_EXPORT}
        LIBRARY COMPONENT ${ARG_COMPONENT} NAMELINK_COMPONENT dev
        ARCHIVE COMPONENT dev)
    install(EXPORT procmgr-${ARG_EXPORT}
        FILE procmgr-${ARG_EXPORT}-targets.cmake
        NAMESPACE procmgr::
        DESTINATION ${PROCMGR_CMAKEDIR}
        COMPONENT dev)
endfunction()

# procmgr_install_headers(FOLDER FILES...): FOLDER is below the root of the installed headers.
function(procmgr_install_headers folder)
    if(PROCMGR_INSTALL)
        install(FILES ${ARGN} DESTINATION ${PROCMGR_INCLUDEDIR}/${folder} COMPONENT dev)
    endif()
endfunction()

# procmgr_install_pkgconfig(NAME): NAME.pc.in, with every path relative to the place of the file.
function(procmgr_install_pkgconfig name)
    if(PROCMGR_INSTALL)
        cmake_path(SET full NORMALIZE ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
        file(RELATIVE_PATH PROCMGR_PC_TO_LIB ${full} ${CMAKE_INSTALL_FULL_LIBDIR})
        file(RELATIVE_PATH PROCMGR_PC_TO_INCLUDE ${full} ${CMAKE_INSTALL_FULL_INCLUDEDIR}/procmgr)
        configure_file(${name}.pc.in ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc @ONLY)
        install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc DESTINATION ${PROCMGR_PKGCONFIGDIR} COMPONENT dev)
    endif()
endfunction()

# procmgr_install_program(TARGET COMPONENT): beside the other programs. The process manager finds its host process
# beside itself, so that no path has to be compiled in. Programs find the libraries wherever the prefix is moved to; a
# packager for a folder that the loader searches by itself sets CMAKE_SKIP_INSTALL_RPATH.
function(procmgr_install_program target component)
    if(PROCMGR_INSTALL)
        file(RELATIVE_PATH bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
        set_target_properties(${target} PROPERTIES INSTALL_RPATH $ORIGIN/${bin_to_lib})
        install(TARGETS ${target} RUNTIME COMPONENT ${component})
    endif()
endfunction()

# procmgr_install_file(FILE FOLDER COMPONENT [NAME]).
function(procmgr_install_file file folder component)
    if(PROCMGR_INSTALL)
        get_filename_component(name ${file} NAME)
        if(ARGC GREATER 3)
            set(name ${ARGV3})
        endif()
        install(FILES ${file} DESTINATION ${folder} COMPONENT ${component} RENAME ${name})
    endif()
endfunction()

# procmgr_install_man_pages(): each with the programs that it is about.
function(procmgr_install_man_pages)
    file(GLOB pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/man/*.[1-8])
    foreach(page IN LISTS pages)
        cmake_path(GET page EXTENSION LAST_ONLY section)
        string(SUBSTRING ${section} 1 1 section)
        set(component daemons)
        if(page MATCHES "/ssctl[^/]*$")
            set(component tools)
        endif()
        procmgr_install_file(${page} ${CMAKE_INSTALL_MANDIR}/man${section} ${component})
    endforeach()
endfunction()

# procmgr_install_package(): find_package(procmgr-grp-owner).
function(procmgr_install_package)
    if(NOT PROCMGR_INSTALL)
        return()
    endif()
    configure_package_config_file(cmake/procmgr-grp-owner-config.cmake.in procmgr-grp-owner-config.cmake
        INSTALL_DESTINATION ${PROCMGR_CMAKEDIR}
        PATH_VARS CMAKE_INSTALL_LIBDIR CMAKE_INSTALL_BINDIR
        NO_CHECK_REQUIRED_COMPONENTS_MACRO)
    write_basic_package_version_file(procmgr-grp-owner-config-version.cmake COMPATIBILITY SameMajorVersion)
    install(FILES
        ${PROJECT_BINARY_DIR}/procmgr-grp-owner-config.cmake
        ${PROJECT_BINARY_DIR}/procmgr-grp-owner-config-version.cmake
        DESTINATION ${PROCMGR_CMAKEDIR} COMPONENT dev)
endfunction()
