# Makes of each component that cmake has installed what Debian's policy asks of a package.
if(NOT CPACK_GENERATOR STREQUAL "DEB") # the source archive comes by here too
    return()
endif()
set(source ${CPACK_TP_SOURCE_FOLDER})

# changelog.Debian: an entry for each version of the changes' file.
function(write_debian_changelog file)
    file(STRINGS ${source}/CHANGELOG.md headings REGEX "^## ")
    set(text "")
    foreach(heading IN LISTS headings)
        if(heading MATCHES "^## ([0-9.]+) \\((.+)\\)$")
            set(version ${CMAKE_MATCH_1})
            set(time ${CMAKE_MATCH_2})
        else() # not released yet
            set(version ${CPACK_PACKAGE_VERSION})
            set(time "@$ENV{SOURCE_DATE_EPOCH}")
        endif()
        execute_process(COMMAND date -u -R -d ${time} OUTPUT_VARIABLE date COMMAND_ERROR_IS_FATAL ANY)
        string(APPEND text "tp-erase (${version}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=medium\n\n"
                           "  * Version ${version}: what changed is in changelog.gz.\n\n"
                           " -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")
    endforeach()
    file(WRITE ${file} "${text}")
endfunction()

function(compress)
    execute_process(COMMAND gzip -9nf ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

foreach(package IN LISTS CPACK_COMPONENTS_ALL)
    set(root ${CPACK_TEMPORARY_DIRECTORY}/${package}/usr)
    # In the system's folders libraries are found without being told where.
    file(GLOB_RECURSE binaries ${root}/bin/* ${root}/lib/*.so*)
    foreach(binary IN LISTS binaries)
        if(NOT IS_SYMLINK ${binary})
            file(RPATH_REMOVE FILE ${binary})
        endif()
    endforeach()

    set(documents ${root}/share/doc/${package})
    file(MAKE_DIRECTORY ${documents})
    file(COPY_FILE ${source}/CHANGELOG.md ${documents}/changelog)
    write_debian_changelog(${documents}/changelog.Debian)
    file(COPY ${source}/Packaging/copyright DESTINATION ${documents})
    file(GLOB manuals ${root}/share/man/*/*.[1-9])
    compress(${documents}/changelog ${documents}/changelog.Debian ${manuals})

    set(overrides ${source}/Packaging/${package}.lintian-overrides)
    if(EXISTS ${overrides})
        file(MAKE_DIRECTORY ${root}/share/lintian/overrides)
        file(COPY_FILE ${overrides} ${root}/share/lintian/overrides/${package})
    endif()
    execute_process(COMMAND chmod -R u=rwX,go=rX ${root} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
