# A release is compiled with debug information, which a file beside the shared object keeps: debuggers and
# scripts/check/abi.sh find it there by its name. What is installed is as small as without;
# the file itself is installed by `cmake --install BUILD_DIR --component debug`.
if(CMAKE_BUILD_TYPE STREQUAL "Release")
    set(library $<TARGET_FILE:koCUtil>)
    add_custom_command(TARGET koCUtil POST_BUILD
        COMMAND ${CMAKE_OBJCOPY} --only-keep-debug --compress-debug-sections ${library} ${library}.debug
        COMMAND ${CMAKE_OBJCOPY} --strip-debug --add-gnu-debuglink=${library}.debug ${library})
    add_custom_command(TARGET koCUtilStatic POST_BUILD
        COMMAND ${CMAKE_OBJCOPY} --strip-debug $<TARGET_FILE:koCUtilStatic>)
    install(FILES ${library}.debug DESTINATION ${CMAKE_INSTALL_LIBDIR}/.debug COMPONENT debug EXCLUDE_FROM_ALL)
endif()
