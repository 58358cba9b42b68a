# Compiler flags, in two bundles: koCUtilFlags for everything that is written here, koCUtilLibraryFlags for the library.

set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE Release)
endif()
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
set(CMAKE_C_FLAGS_RELEASE "-O2 -DNDEBUG")

# The library is C++ inside but needs no C++ run-time library; programs get theirs from the driver that links them.
set(CMAKE_CXX_IMPLICIT_LINK_LIBRARIES "")

add_library(koCUtilFlags INTERFACE)
target_compile_features(koCUtilFlags INTERFACE cxx_std_20 c_std_11)
target_compile_options(koCUtilFlags INTERFACE
    -Wall -Wextra -Wpedantic -Werror
    -Wshadow -Wconversion -Wsign-conversion -Wformat=2 -Wundef -Wcast-align -Wnull-dereference
    $<$<CXX_COMPILER_ID:GNU>:-Wno-format-truncation> # texts are cut on purpose
    $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual -Wextra-semi>
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
# Regions and files of 2 GiB and above on 32-bit hosts; time_t keeps the width that old binaries expect.
target_compile_definitions(koCUtilFlags INTERFACE _FILE_OFFSET_BITS=64)

add_library(koCUtilLibraryFlags INTERFACE)
target_link_libraries(koCUtilLibraryFlags INTERFACE koCUtilFlags)
target_compile_options(koCUtilLibraryFlags INTERFACE
    -fno-exceptions -fno-rtti -fno-threadsafe-statics
    -fvisibility=hidden -fno-semantic-interposition
    -ffunction-sections -fdata-sections
    -fstack-protector-strong
    $<$<CONFIG:Release>:-g>) # see debugInformation.cmake
set(KOCUTIL_NO_UNDEFINED LINKER:--no-undefined)

# Counts how often every line of the library is run (scripts/coverage.sh).
option(KOCUTIL_COVERAGE "Count what is run of the library" OFF)
if(KOCUTIL_COVERAGE)
    target_compile_options(koCUtilLibraryFlags INTERFACE --coverage -fprofile-update=atomic)
endif()

# asan: AddressSanitizer, UndefinedBehaviorSanitizer and leak check; tsan: ThreadSanitizer; fuzz: asan, and Clang's
# fuzzer is told which branches an input takes.
set(KOCUTIL_SANITIZER "" CACHE STRING "asan, tsan, fuzz or nothing")
if(KOCUTIL_SANITIZER STREQUAL "asan")
    set(sanitizer -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
elseif(KOCUTIL_SANITIZER STREQUAL "tsan")
    set(sanitizer -fsanitize=thread)
elseif(KOCUTIL_SANITIZER STREQUAL "fuzz")
    set(sanitizer -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
elseif(NOT KOCUTIL_SANITIZER STREQUAL "")
    message(FATAL_ERROR "KOCUTIL_SANITIZER must be asan, tsan, fuzz or empty")
endif()
# The tests stand in front of the sanitizer's functions, which therefore must lie in a library behind them.
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND KOCUTIL_SANITIZER STREQUAL "asan")
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} --print-runtime-dir
        OUTPUT_VARIABLE runtime OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    list(APPEND sanitizer -shared-libsan)
    add_link_options(LINKER:-rpath,${runtime})
endif()
if(KOCUTIL_SANITIZER)
    add_compile_options(${sanitizer})
    add_link_options(${sanitizer})
    set(KOCUTIL_NO_UNDEFINED "")
else()
    target_compile_options(koCUtilLibraryFlags INTERFACE $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>)
endif()
