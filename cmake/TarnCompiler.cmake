# One place for the language level, the warnings and the sanitizers.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")

# The sanitizer presets: fast enough to run real encoders, with line numbers in reports.
set(CMAKE_CXX_FLAGS_SANITIZE "-O1 -g1 -fno-omit-frame-pointer")

add_compile_options(-Wall -Wextra -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wpointer-arith
                    -Wimplicit-fallthrough -Wvla -Werror
                    -Wno-multichar) # four-character codes are this code base's vocabulary
# Pixels, sound and records' blocks are bytes that are read in place as numbers of several sizes.
add_compile_options(-fno-strict-aliasing)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    add_compile_options(-Wno-four-char-constants)
endif()
if(TARN_THREAD_SAFETY)
    add_compile_options(-Wthread-safety -Wthread-safety-beta)
endif()
if(TARN_SANITIZE)
    add_compile_options(-fsanitize=${TARN_SANITIZE})
    add_link_options(-fsanitize=${TARN_SANITIZE})
    if(TARN_SANITIZE MATCHES "undefined")
        add_compile_options(-fno-sanitize-recover=undefined)
    endif()
endif()
# Test sources are most of what there is to compile, and take half the time so; what they test is
# optimised all the same. The checks left out double that time again under the undefined-behaviour
# sanitizer, at each access to memory; the code that is tested has them.
set(TARN_TEST_FLAGS -O0)
if(TARN_SANITIZE MATCHES "undefined")
    list(APPEND TARN_TEST_FLAGS -fno-sanitize=null,alignment,vptr)
endif()
# Fuzzing without coverage of what is fuzzed finds nothing.
if(TARN_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()
# Absolute paths stay out of binaries, so that the compiler cache serves every checkout.
add_compile_options("-ffile-prefix-map=${CMAKE_SOURCE_DIR}/=")

find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(fmt REQUIRED)
