# One folder is one target with a named list of what it uses. `scripts/check-includes.py` reads the same
# lists and fails on an include that they do not allow.

option(VELTO_TESTS "Build the tests" ON)
option(VELTO_BENCH "Build the benchmarks" OFF)
option(VELTO_FUZZ "Build the fuzzers (needs clang)" OFF)
set(VELTO_SANITIZE "" CACHE STRING "Sanitizers to build everything with, as for -fsanitize=")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(THREADS_PREFER_PTHREAD_FLAG ON)

add_library(velto_flags INTERFACE)
target_compile_options(velto_flags INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
target_include_directories(velto_flags INTERFACE "${CMAKE_SOURCE_DIR}/src")
if(VELTO_SANITIZE)
  target_compile_options(velto_flags INTERFACE -fsanitize=${VELTO_SANITIZE} -fno-omit-frame-pointer)
  target_link_options(velto_flags INTERFACE -fsanitize=${VELTO_SANITIZE})
  if(NOT VELTO_SANITIZE MATCHES "thread")
    target_compile_options(velto_flags INTERFACE -fno-sanitize-recover=all)
  endif()
  # GCC 12 reports false positives of these under a sanitizer's instrumentation.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(velto_flags INTERFACE -Wno-maybe-uninitialized -Wno-stringop-overflow
                                                 -Wno-stringop-overread -Wno-array-bounds -Wno-tsan)
  endif()
endif()

# velto_library(NAME SOURCES ... USES ... [PRIVATE_USES ...])
# USES are targets that the folder's headers and sources may include from.
function(velto_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;USES;PRIVATE_USES" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_link_libraries(${name} PUBLIC velto_flags ${ARG_USES} PRIVATE ${ARG_PRIVATE_USES})
endfunction()

function(velto_program name)
  cmake_parse_arguments(ARG "" "" "SOURCES;USES" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE velto_flags ${ARG_USES})
endfunction()

# velto_test(NAME SOURCES ... USES ...): one GoogleTest program and one ctest entry a folder.
function(velto_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;USES;DEPENDS;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE velto_flags test_support ${ARG_USES} GTest::gtest GTest::gmock
                                        GTest::gtest_main)
  target_include_directories(${name} PRIVATE "${CMAKE_SOURCE_DIR}/tests")
  if(ARG_DEPENDS)
    add_dependencies(${name} ${ARG_DEPENDS})
  endif()
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES TIMEOUT 600 LABELS "${ARG_LABELS}")
endfunction()
