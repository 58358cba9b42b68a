# Run by CPack when each component of a package lies in its folder: adds what Debian wants of every package.
execute_process(COMMAND date -R OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} name)
    set(package ${CPACK_DEBIAN_${name}_PACKAGE_NAME})
    set(root ${CPACK_TEMPORARY_DIRECTORY}/${component}/usr)
    configure_file(${CMAKE_CURRENT_LIST_DIR}/copyright.in ${root}/share/doc/${package}/copyright @ONLY)
    file(WRITE ${root}/share/doc/${package}/changelog
        "kocutil (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium\n\n  * Release ${CPACK_PACKAGE_VERSION}.\n\n"
        " -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")
    file(GLOB_RECURSE texts ${root}/share/man/* ${root}/share/doc/${package}/changelog)
    execute_process(COMMAND gzip -9n ${texts} COMMAND_ERROR_IS_FATAL ANY)
    # In its own folder the system finds the library without a path in the program.
    file(GLOB programs ${root}/bin/* ${root}/libexec/*/*)
    foreach(program IN LISTS programs)
        file(RPATH_REMOVE FILE ${program})
    endforeach()
    # Debug information has a tree of its own, where GDB finds it as well.
    file(GLOB folders RELATIVE ${root} ${root}/lib/*/.debug)
    foreach(folder IN LISTS folders)
        string(REPLACE /.debug "" place lib/debug/usr/${folder})
        get_filename_component(above ${root}/${place} DIRECTORY)
        file(MAKE_DIRECTORY ${above})
        file(RENAME ${root}/${folder} ${root}/${place})
    endforeach()
endforeach()
