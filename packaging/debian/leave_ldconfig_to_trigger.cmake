# Runs when the packages are made. The packer gives each library scripts that call ldconfig; Debian's trigger, which is
# there too, does that once for all packages.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
    if(package MATCHES "/lib[^/]*[0-9]_[^/]*\\.deb$")
        set(unpacked ${package}.unpacked)
        execute_process(COMMAND dpkg-deb --raw-extract ${package} ${unpacked} COMMAND_ERROR_IS_FATAL ANY)
        file(REMOVE ${unpacked}/DEBIAN/postinst ${unpacked}/DEBIAN/postrm)
        execute_process(COMMAND dpkg-deb --root-owner-group --build ${unpacked} ${package}
            OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
        file(REMOVE_RECURSE ${unpacked})
    endif()
endforeach()
