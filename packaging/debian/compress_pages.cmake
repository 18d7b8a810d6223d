# Runs between staging and packing: Debian's manual pages are compressed.
file(GLOB_RECURSE pages ${CPACK_TEMPORARY_DIRECTORY}/*.[1-8])
list(FILTER pages INCLUDE REGEX "/man/man[1-8]/[^/]+$")
foreach(page IN LISTS pages)
    execute_process(COMMAND gzip -9n ${page} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
