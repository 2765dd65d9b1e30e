# Warnings, sanitizers, linker and compiler cache for every target, and the
# functions that declare a module, its tests and an executable.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)

# The sloppiness lets ccache keep objects that were built with a precompiled header; ccache still hashes the header.
# Paths below the source folder are hashed as relative ones, so that a second clone, or a second preset, finds the
# objects of the first.
find_program(VIMBLE_CCACHE ccache)
if(VIMBLE_CCACHE)
    set(CMAKE_CXX_COMPILER_LAUNCHER
        ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros
        CCACHE_BASEDIR=${CMAKE_SOURCE_DIR} CCACHE_NOHASHDIR=true ${VIMBLE_CCACHE})
    add_compile_options(-fpch-preprocess)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # clang has no -fpch-preprocess. Leave out the time stamp, so that a precompiled header is the same every time that
    # it is made, and ccache finds the objects that were compiled with it.
    get_directory_property(options COMPILE_OPTIONS)
    list(REMOVE_ITEM options -fpch-preprocess)
    set_directory_properties(PROPERTIES COMPILE_OPTIONS "${options}")
    add_compile_options("SHELL:-Xclang -fno-pch-timestamp")
endif()
find_program(VIMBLE_MOLD mold)
if(VIMBLE_MOLD AND NOT VIMBLE_COVERAGE)
    add_link_options(-fuse-ld=mold)
endif()

if(VIMBLE_TESTS)
    # Qt wants its users compiled with -fPIC. All targets are, since a precompiled header can only be shared by sources
    # that are compiled with the same options.
    add_compile_options(-fPIC)
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Wnon-virtual-dtor -Woverloaded-virtual -Werror)
# When it optimises, g++ 12 warns of overlapping copies in `"text" + string` and of uninitialised values in
# `std::optional`. There are none: the sanitizers would find them.
add_compile_options("$<$<CXX_COMPILER_ID:GNU>:-Wno-restrict;-Wno-maybe-uninitialized>")
# An argument or a local may have the name of a field, but not that of another local. clang can't tell these apart.
add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wshadow=local>)
if(VIMBLE_SANITIZE)
    add_compile_options(-fsanitize=${VIMBLE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${VIMBLE_SANITIZE})
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        add_compile_options(-fsanitize-ignorelist=${CMAKE_SOURCE_DIR}/cmake/sanitizer-ignore.txt)
    endif()
endif()
if(VIMBLE_COVERAGE)
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# A module: the sources of FOLDER/NAME, included by others as "NAME/File.h".
# Modules may share a FOLDER, so each has an include folder of its own, which holds a link to its sources. Only
# targets that link the module get that include folder, so that an include against the arrows does not find its file.
# BUSY: tests run this module's code so much that they win more time than a little optimising takes.
function(vimble_module name)
    cmake_parse_arguments(MODULE "BUSY" "" "PUBLIC;PRIVATE" ${ARGN})
    file(GLOB_RECURSE sources CONFIGURE_DEPENDS
        ${CMAKE_CURRENT_SOURCE_DIR}/${name}/*.cpp ${CMAKE_CURRENT_SOURCE_DIR}/${name}/*.h)
    set(includes ${CMAKE_BINARY_DIR}/include/${name})
    file(MAKE_DIRECTORY ${includes})
    file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR}/${name} ${includes}/${name} SYMBOLIC)
    set(code ${sources})
    list(FILTER code INCLUDE REGEX "\\.cpp$")
    if(code)
        add_library(${name} STATIC ${sources})
        target_include_directories(${name} PUBLIC ${includes})
        target_link_libraries(${name} PUBLIC ${MODULE_PUBLIC} PRIVATE ${MODULE_PRIVATE})
        if(MODULE_BUSY AND VIMBLE_TESTS)
            target_compile_options(${name} PRIVATE -O1)
        endif()
    else()
        add_library(${name} INTERFACE)
        target_include_directories(${name} INTERFACE ${includes})
        target_link_libraries(${name} INTERFACE ${MODULE_PUBLIC})
    endif()
endfunction()

# Precompiles headers that many of a module's or a program's own sources include.
# Only when tests are built: release builds go without, so that they find a file that lacks an include.
function(vimble_precompile name)
    if(VIMBLE_TESTS)
        target_precompile_headers(${name} PRIVATE ${ARGN})
    endif()
endfunction()

# The tests of a module: every file of its FOLDERS ("Tests"), each test one line of ctest.
#   LINKS        what the tests use
#   MAIN         the library with their `main` (GTest::gtest_main)
#   DEFINITIONS  for their sources
#   PRECOMPILE   headers to precompile besides those that all tests share
#   PROGRAMS     targets that the tests start, and so must be built before
#   EXCEPT       a filter for tests that need a script around them, which the module adds to ctest itself
#   ENVIRONMENT, TIMEOUT  of each test
set(vimble_test_headers <gmock/gmock.h> <gtest/gtest.h> <algorithm> <chrono> <filesystem> <fstream> <functional> <map>
    <memory> <optional> <string> <variant> <vector>)
function(vimble_tests name)
    if(NOT VIMBLE_TESTS)
        return()
    endif()
    cmake_parse_arguments(TESTS "" "TIMEOUT;MAIN;EXCEPT;ENVIRONMENT" "FOLDERS;LINKS;DEFINITIONS;PRECOMPILE;PROGRAMS" ${ARGN})
    foreach(default "FOLDERS=Tests" "TIMEOUT=120" "MAIN=GTest::gtest_main")
        string(REGEX MATCH "^([A-Z]+)=(.*)$" ignored ${default})
        if(NOT TESTS_${CMAKE_MATCH_1})
            set(TESTS_${CMAKE_MATCH_1} ${CMAKE_MATCH_2})
        endif()
    endforeach()
    set(sources)
    foreach(folder ${TESTS_FOLDERS})
        file(GLOB found CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*.cpp)
        list(APPEND sources ${found})
    endforeach()
    if(NOT sources)
        return()
    endif()
    include(GoogleTest)
    add_executable(${name} ${sources})
    target_link_libraries(${name} PRIVATE ${TESTS_LINKS} GTest::gmock ${TESTS_MAIN})
    target_compile_definitions(${name} PRIVATE ${TESTS_DEFINITIONS})
    if(TESTS_PRECOMPILE)
        target_precompile_headers(${name} PRIVATE ${vimble_test_headers} ${TESTS_PRECOMPILE})
    else()
        target_precompile_headers(${name} REUSE_FROM TestHeaders)
    endif()
    if(TESTS_PROGRAMS)
        add_dependencies(${name} ${TESTS_PROGRAMS})
    endif()
    set(filter)
    if(TESTS_EXCEPT)
        set(filter TEST_FILTER "-${TESTS_EXCEPT}")
    endif()
    set(environment)
    if(TESTS_ENVIRONMENT)
        set(environment ENVIRONMENT "${TESTS_ENVIRONMENT}")
    endif()
    gtest_discover_tests(${name} ${filter} PROPERTIES TIMEOUT ${TESTS_TIMEOUT} ${environment} DISCOVERY_TIMEOUT 60)
endfunction()
