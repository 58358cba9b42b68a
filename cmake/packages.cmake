# Debian packages: `cpack -G DEB` in a build folder puts them into its folder packages; ./dev package does all of it.
set(CPACK_PACKAGE_VENDOR koCUtil)
set(CPACK_PACKAGE_CONTACT "koCUtil maintainers <maintainers@kocutil.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_OUTPUT_FILE_PREFIX packages)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_SET_DESTDIR ON) # what is installed under the prefix's own name must see the prefix
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/packageFiles.cmake)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE kocutil)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_COMPONENTS_ALL library debug dev tools)
if(CMAKE_CROSSCOMPILING)
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
else()
    list(APPEND CPACK_COMPONENTS_ALL doc) # the same for every architecture
endif()

# describe(<component> <package> <section> <summary> <text>)
macro(describe component package section summary text)
    set(CPACK_DEBIAN_${component}_PACKAGE_NAME ${package})
    set(CPACK_DEBIAN_${component}_PACKAGE_SECTION ${section})
    set(CPACK_DEBIAN_${component}_DESCRIPTION "${summary}\n${text}\n")
endmacro()

set(whole "koCUtil gives C programs uniform error reports, allocators, bounded text,\nstrings, time, locks, \
threads, shared memory, containers, sockets, framed\nmessages, logs, child processes and command lines.\n\n")
describe(LIBRARY libkocutil${PROJECT_VERSION_MAJOR} libs "utility and operating-system abstraction library"
    "${whole}This package has the shared library, which needs the C library alone.")
describe(DEBUG libkocutil${PROJECT_VERSION_MAJOR}-dbgsym debug "debug information for libkocutil${PROJECT_VERSION_MAJOR}"
    "GDB shows by it the source lines and the objects of the koCUtil library.")
describe(DEV libkocutil-dev libdevel "utility and operating-system abstraction library, development files"
    "${whole}This package has the headers, the static library, and what pkg-config and\nCMake need to find both libraries.")
describe(TOOLS kocutil-tools utils "command-line tool of the koCUtil library"
    "The program cutil explains error codes, and shows and changes what programs\nof the koCUtil library leave and say: \
shared memory, rings, messages, logs.\n\nThe demonstration /usr/libexec/koCUtil/telemetry shows the library at work.")
describe(DOC libkocutil-doc doc "utility and operating-system abstraction library, documentation"
    "${whole}This package has the reference of all calls, and the documents on the\narchitecture, the binary interface, \
threads and compatibility.")
set(CPACK_DEBIAN_DOC_PACKAGE_ARCHITECTURE all)

# CPack would call ldconfig by a script of the package, where the trigger of the C library does: so these are written
# here, and the library's dependency is told, not found. scripts/check/packages.sh compares it with what it asks for.
set(control ${PROJECT_BINARY_DIR}/packageControl)
file(WRITE ${control}/triggers "activate-noawait ldconfig\n")
file(WRITE ${control}/shlibs
    "libkoCUtil ${PROJECT_VERSION_MAJOR} ${CPACK_DEBIAN_LIBRARY_PACKAGE_NAME} (>= ${PROJECT_VERSION})\n")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${control}/triggers ${control}/shlibs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS "libc6 (>= 2.36)")

set(library "${CPACK_DEBIAN_LIBRARY_PACKAGE_NAME} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEBUG_PACKAGE_DEPENDS ${library})
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${library}, libc6-dev")
set(CPACK_DEBIAN_DEV_PACKAGE_SUGGESTS "libkocutil-doc, pkg-config")
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS ${library})
if(CMAKE_CROSSCOMPILING) # dpkg-shlibdeps would name the packages of the cross compiler
    string(APPEND CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS ", libc6 (>= 2.34), libgcc-s1 (>= 3.5), libstdc++6 (>= 11)")
else()
    set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
endif()

include(CPack)
