# Manual pages are made of a program's help when it is built: by help2man, on machines that have it and can run what they
# build.
find_program(HELP2MAN help2man)
if(NOT HELP2MAN)
    message(STATUS "No manual pages: help2man is missing")
endif()

# koc_add_man_pages(<program>): its page and those of its commands, installed. They are in the folder man1.
function(koc_add_man_pages program)
    # What runs under a sanitizer needs its surroundings, and is not installed.
    if(NOT HELP2MAN OR KOCUTIL_SANITIZER OR (CMAKE_CROSSCOMPILING AND NOT CMAKE_CROSSCOMPILING_EMULATOR))
        return()
    endif()
    set(folder ${CMAKE_CURRENT_BINARY_DIR}/man1)
    set(script ${PROJECT_SOURCE_DIR}/cmake/manPages.sh)
    add_custom_command(TARGET ${program} POST_BUILD VERBATIM
        COMMAND ${script} ${folder} ${PROJECT_VERSION} ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${program}>)
    set_target_properties(${program} PROPERTIES LINK_DEPENDS ${script} MANUAL_PAGES ${folder})
    install(DIRECTORY ${folder} DESTINATION ${CMAKE_INSTALL_MANDIR} COMPONENT tools)
endfunction()
