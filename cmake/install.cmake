# What `cmake --install` lays down: libraries, headers, the CMake package, the pkg-config file, and the documents with
# the reference if there is one. The components are those of the Debian packages.
include(CMakePackageConfigHelpers)
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME dev)

install(TARGETS koCUtil koCUtilStatic EXPORT koCUtil
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT dev
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/cUtil DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT koCUtil NAMESPACE koCUtil:: FILE koCUtilTargets.cmake DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/koCUtil)

configure_package_config_file(cmake/koCUtilConfig.cmake.in koCUtilConfig.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/koCUtil)
write_basic_package_version_file(koCUtilConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/koCUtilConfig.cmake ${PROJECT_BINARY_DIR}/koCUtilConfigVersion.cmake
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/koCUtil)

# Relative to the file, so that an installed tree can be moved.
file(RELATIVE_PATH prefix_from_pkgconfig /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/koCUtil.pc.in koCUtil.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/koCUtil.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# GDB takes it by itself where it looks for a library of this path; see docs/debugging.md. The prefix is that of the
# installation, which need not be the one that was configured.
install(FILES tools/gdb/koCUtil-gdb.py
    DESTINATION ${CMAKE_INSTALL_DATADIR}/gdb/auto-load\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}
    RENAME $<TARGET_FILE_NAME:koCUtil>-gdb.py)

install(FILES README.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT doc)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT doc PATTERN Doxyfile EXCLUDE)
install(DIRECTORY build/docs/html DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT doc OPTIONAL)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT doc)
