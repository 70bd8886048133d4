# tarn_folder(NAME SOURCES... LINKS...)   one folder: an object library with exact links
# tarn_shared(NAME FOLDERS... LINKS...)   one shared library out of folders
# tarn_test(NAME SOURCES... LINKS... [PARTS N] [WAITS])
#                                         one test program out of <folder>/*_test.cpp, run in N parts;
#                                         WAITS for one that waits for other processes most of the time
# tarn_bench(NAME SOURCES... LINKS...)    one benchmark program
# tarn_fuzz(NAME SOURCES... LINKS...)     one libFuzzer target (preset fuzz); elsewhere the test NAME, which
#                                         feeds it what is kept in its corpus

# What most test sources read anyhow is precompiled once, where they are not optimised: behind a
# precompiled header gcc's optimiser warns of what it sees in the standard library's. Tests still include
# what they use; other builds go without. A header that was precompiled otherwise than its user is compiled
# is passed by, without a word.
function(tarn_takes_pch name)
    set_target_properties(${name} PROPERTIES PCH_WARN_INVALID OFF)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # For the compiler cache, which does not see through it else.
        target_compile_options(${name} PRIVATE -fpch-preprocess)
    endif()
endfunction()

if(TARN_PCH AND TARN_TESTS)
    find_package(GTest REQUIRED)
    file(CONFIGURE OUTPUT "${CMAKE_BINARY_DIR}/test_pch.cpp" CONTENT "")
    add_library(test_pch OBJECT EXCLUDE_FROM_ALL "${CMAKE_BINARY_DIR}/test_pch.cpp")
    # As programs are compiled, not as libraries.
    set_target_properties(test_pch PROPERTIES POSITION_INDEPENDENT_CODE OFF)
    target_compile_options(test_pch PRIVATE -fPIE ${TARN_TEST_FLAGS})
    target_link_libraries(test_pch PRIVATE GTest::gtest)
    target_precompile_headers(test_pch PRIVATE <algorithm> <atomic> <cmath> <cstdlib> <cstring> <filesystem>
                              <fstream> <functional> <gtest/gtest.h> <memory> <random> <string> <thread>
                              <utility> <vector>)
    tarn_takes_pch(test_pch)
endif()

function(tarn_folder name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LINKS")
    add_library(${name} OBJECT ${arg_SOURCES})
    target_include_directories(${name} PUBLIC "${PROJECT_SOURCE_DIR}/platform" "${PROJECT_SOURCE_DIR}")
    target_link_libraries(${name} PUBLIC ${arg_LINKS})
endfunction()

function(tarn_shared name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "FOLDERS;LINKS")
    add_library(${name} SHARED)
    set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION}
                                             SOVERSION ${PROJECT_VERSION_MAJOR}
                                             # An installed tree finds its own libraries wherever it is put.
                                             INSTALL_RPATH "$ORIGIN")
    target_link_libraries(${name} PRIVATE ${arg_FOLDERS} PUBLIC ${arg_LINKS})
    # The public headers need it, whatever a user's own sources do.
    target_compile_features(${name} INTERFACE cxx_std_20)
    # The raw -Wl keeps an unresolved symbol from surviving until load time.
    if(NOT TARN_SANITIZE)
        target_link_options(${name} PRIVATE "LINKER:--no-undefined")
    endif()
    target_include_directories(${name} INTERFACE "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/platform>"
                               "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>"
                               "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>")
endfunction()

function(tarn_test name)
    if(NOT TARN_TESTS)
        return()
    endif()
    cmake_parse_arguments(PARSE_ARGV 1 arg "WAITS" "PARTS" "SOURCES;LINKS")
    find_package(GTest REQUIRED)
    # Places of ctest -j: half a core each, as script/test runs it.
    set(places 2)
    if(arg_WAITS)
        set(places 1)
    endif()
    add_executable(${name} ${arg_SOURCES})
    target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}/platform" "${PROJECT_SOURCE_DIR}")
    target_link_libraries(${name} PRIVATE ${arg_LINKS} test_support GTest::gmock GTest::gtest
                                          GTest::gtest_main)
    target_compile_options(${name} PRIVATE ${TARN_TEST_FLAGS})
    if(TARN_PCH)
        target_precompile_headers(${name} REUSE_FROM test_pch)
        tarn_takes_pch(${name})
    endif()
    if(NOT arg_PARTS)
        add_test(NAME ${name} COMMAND ${name})
        set_tests_properties(${name} PROPERTIES TIMEOUT 1200 PROCESSORS ${places})
        return()
    endif()
    # One after the other they would be what everybody waits for: the parts run beside each other, and
    # first; those that wait before all, as the others fill what they leave of the cores. Each writes
    # its results under a name of its own.
    math(EXPR cost "300 - 100 * ${places}")
    math(EXPR last "${arg_PARTS} - 1")
    foreach(part RANGE ${last})
        add_test(NAME ${name}.${part}
                 COMMAND sh -c "GTEST_OUTPUT=\"\${GTEST_OUTPUT:+\${GTEST_OUTPUT}${name}.${part}.xml}\" exec $<TARGET_FILE:${name}>")
        set_tests_properties(${name}.${part} PROPERTIES
            TIMEOUT 1200 PROCESSORS ${places} COST ${cost}
            ENVIRONMENT "GTEST_TOTAL_SHARDS=${arg_PARTS};GTEST_SHARD_INDEX=${part}")
    endforeach()
endfunction()

function(tarn_bench name)
    if(NOT TARN_BENCH)
        return()
    endif()
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LINKS")
    find_package(benchmark REQUIRED)
    add_executable(${name} ${arg_SOURCES})
    target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}/platform" "${PROJECT_SOURCE_DIR}")
    target_link_libraries(${name} PRIVATE ${arg_LINKS} benchmark::benchmark benchmark::benchmark_main)
endfunction()

function(tarn_fuzz name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LINKS")
    add_executable(${name} ${arg_SOURCES})
    target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}/platform" "${PROJECT_SOURCE_DIR}")
    target_link_libraries(${name} PRIVATE ${arg_LINKS})
    if(TARN_FUZZ)
        target_link_options(${name} PRIVATE -fsanitize=fuzzer)
        return()
    endif()
    target_sources(${name} PRIVATE run_corpus.cpp)
    string(REGEX REPLACE "^fuzz_" "" corpus ${name})
    add_test(NAME ${name} COMMAND ${name} "${CMAKE_CURRENT_SOURCE_DIR}/corpus/${corpus}")
    set_tests_properties(${name} PROPERTIES TIMEOUT 300)
endfunction()

# tarn_room(TARGET DIR LINKS...)  the object library of a folder's sources, all but tests and benches
function(tarn_room target dir)
    cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "LINKS")
    file(GLOB sources CONFIGURE_DEPENDS "${dir}/*.cpp")
    list(FILTER sources EXCLUDE REGEX "_(test|bench|fuzz)\\.cpp$")
    tarn_folder(${target} SOURCES ${sources} LINKS ${arg_LINKS})
endfunction()

# tarn_room_checks(TARGET DIR LINKS...)  TARGET_test and TARGET_bench out of a folder's
# *_test.cpp and *_bench.cpp. They link the folders' objects, not the shared library, and so reach what it hides.
function(tarn_room_checks target dir)
    cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "LINKS")
    file(GLOB tests CONFIGURE_DEPENDS "${dir}/*_test.cpp")
    file(GLOB benches CONFIGURE_DEPENDS "${dir}/*_bench.cpp")
    tarn_test(${target}_test SOURCES ${tests} LINKS ${arg_LINKS})
    if(benches)
        tarn_bench(${target}_bench SOURCES ${benches} LINKS ${arg_LINKS})
    endif()
endfunction()
