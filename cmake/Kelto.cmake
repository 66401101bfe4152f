# Options and functions that every target of this project shares.

option(KELTO_PRECOMPILED_HEADERS "Compile the headers that most tests include once" OFF)
option(KELTO_JOINED_SOURCES "Compile several files of a library as one: a whole build takes a third of the time" OFF)
option(KELTO_JOINED_TESTS "Compile several test files as one; messages and debuggers still name the files" OFF)
set(KELTO_TEST_OPTIONS "" CACHE STRING "Compile options for the tests only, such as -O0")

# ccache copes with precompiled headers only after special settings, and saves more.
if(KELTO_PRECOMPILED_HEADERS AND CMAKE_CXX_COMPILER_LAUNCHER MATCHES "ccache")
  message(STATUS "ccache is in use: no precompiled headers")
  set(KELTO_PRECOMPILED_HEADERS OFF)
endif()

add_library(kelto_options INTERFACE)
target_include_directories(kelto_options INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(kelto_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wno-sign-conversion
                                               -Wnon-virtual-dtor -Woverloaded-virtual
                                               $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local>)
# g++ 12 warns of overlapping copies in its own std::string when it optimises.
target_compile_options(kelto_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)

set(kelto_cmake_folder ${CMAKE_CURRENT_LIST_DIR})

# kelto_joined(TARGET): the files of the target are compiled eight at a time, where the builder asks for it.
function(kelto_joined target)
  if(KELTO_JOINED_SOURCES)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 8)
    # It takes the joined files for headers.
    target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
  endif()
endfunction()

# kelto_library(NAME SOURCES file... LINK target...): one static library.
function(kelto_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  kelto_joined(${name})
  target_link_libraries(${name} PUBLIC kelto_options ${ARG_LINK})
endfunction()

# The sources that kelto_join() makes.
add_custom_target(kelto_joined_tests)

# kelto_join(VARIABLE NAME file...): sets VARIABLE to files of the build folder that hold the given ones, a few in each. Every
# file keeps a namespace of its own, so that helpers of the same name do not meet.
function(kelto_join variable name)
  set(joined)
  list(LENGTH ARGN count)
  set(perFile 6)
  math(EXPR batches "(${count} + ${perFile} - 1) / ${perFile}")
  math(EXPR last "${batches} - 1")
  foreach(batch RANGE ${last})
    math(EXPR from "${batch} * ${count} / ${batches}")
    math(EXPR length "(${batch} + 1) * ${count} / ${batches} - ${from}")
    list(SUBLIST ARGN ${from} ${length} files)
    set(output ${CMAKE_CURRENT_BINARY_DIR}/joined/${name}_${batch}.cpp)
    add_custom_command(OUTPUT ${output} DEPENDS ${files} ${kelto_cmake_folder}/join_tests.py VERBATIM
                       COMMAND Python3::Interpreter ${kelto_cmake_folder}/join_tests.py ${output} ${files}
                       COMMENT "Joining ${length} files of ${name}")
    list(APPEND joined ${output})
  endforeach()
  add_custom_target(${name}_joined DEPENDS ${joined})
  add_dependencies(kelto_joined_tests ${name}_joined)
  set(${variable} ${joined} PARENT_SCOPE)
endfunction()

# Every program that has unit tests.
add_custom_target(kelto_unit_tests)

# The program whose only purpose is the precompiled header of all tests.
function(kelto_test_header)
  add_executable(kelto_test_header EXCLUDE_FROM_ALL ${kelto_cmake_folder}/test_header.cpp)
  target_compile_options(kelto_test_header PRIVATE -fPIC ${KELTO_TEST_OPTIONS})
  target_link_libraries(kelto_test_header PRIVATE kelto_options Threads::Threads GTest::gmock GTest::gtest)
  target_precompile_headers(kelto_test_header PRIVATE ${kelto_cmake_folder}/test_header.h)
endfunction()

# kelto_test_program(NAME SOURCES file... [ALONE file...]): a test program without its libraries, compiled the cheap way.
function(kelto_test_program name)
  cmake_parse_arguments(ARG "" "" "SOURCES;ALONE" ${ARGN})
  set(others ${ARG_SOURCES})
  list(REMOVE_ITEM others ${ARG_ALONE})
  list(LENGTH others count)
  if(KELTO_JOINED_TESTS AND count GREATER 1)
    kelto_join(joined ${name} ${others})
    list(REMOVE_ITEM ARG_SOURCES ${others})
    add_executable(${name} ${joined} ${ARG_SOURCES})
    # It takes the files behind #line for headers.
    target_compile_options(${name} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
  else()
    add_executable(${name} ${ARG_SOURCES})
  endif()
  # With Qt, position-independent code is a must, and one precompiled header has to fit all tests.
  target_compile_options(${name} PRIVATE -fPIC ${KELTO_TEST_OPTIONS})
  if(KELTO_PRECOMPILED_HEADERS)
    if(NOT TARGET kelto_test_header)
      kelto_test_header()
    endif()
    target_precompile_headers(${name} REUSE_FROM kelto_test_header)
  endif()
endfunction()

# kelto_watch(PROGRAM): ctest runs the program by way of tests/support/process_watch.cpp, which finds processes that it leaves.
# CMake calls a program that runs another an emulator.
function(kelto_watch program)
  if(NOT CMAKE_CROSSCOMPILING)
    set_target_properties(${program} PROPERTIES CROSSCOMPILING_EMULATOR ${CMAKE_BINARY_DIR}/bin/process_watch)
    add_dependencies(${program} process_watch)
  endif()
endfunction()

# kelto_tests(FOLDER LINK target... [RUNS target...] [MAIN file] [ALONE file...]): the tests of tests/FOLDER and of tests/FOLDER/themes, one
# program per label, built after the programs that it RUNS. The end of a file's name gives its label: x_test.cpp is "unit",
# x_gui_test.cpp, x_bus_test.cpp, x_system_test.cpp, x_slow_test.cpp and x_open_test.cpp are "gui", "bus",
# "system", "slow" and "open". MAIN, in the
# folder, is the main function in place of GoogleTest's. An ALONE file cannot be joined with others.
function(kelto_tests folder)
  cmake_parse_arguments(ARG "" "MAIN" "LINK;RUNS;ALONE" ${ARGN})
  if(ARG_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "kelto_tests(${folder}): unknown arguments: ${ARG_UNPARSED_ARGUMENTS}")
  endif()
  foreach(target IN LISTS ARG_LINK ARG_RUNS)
    if(NOT TARGET ${target})
      message(FATAL_ERROR "kelto_tests(${folder}): there is no target ${target}")
    endif()
  endforeach()
  file(GLOB all CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*_test.cpp
                                  ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/themes/*_test.cpp)
  if(NOT all)
    message(FATAL_ERROR "kelto_tests(${folder}): the folder holds no tests")
  endif()
  set_property(GLOBAL APPEND PROPERTY KELTO_TEST_FILES ${all})
  list(TRANSFORM ARG_ALONE PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/ OUTPUT_VARIABLE alone)
  set(labels bus system slow open unit)
  if(KELTO_WINDOWS)
    list(APPEND labels gui)
  endif()
  foreach(label IN LISTS labels)
    set(sources ${all})
    set(timeout 120)
    if(label STREQUAL "slow")
      set(timeout 3600)
    endif()
    if(label STREQUAL "unit")
      list(FILTER sources EXCLUDE REGEX "_(gui|bus|system|slow|open)_test\\.cpp$")
    else()
      list(FILTER sources INCLUDE REGEX "_${label}_test\\.cpp$")
    endif()
    if(sources)
      string(REPLACE "/" "_" flat ${folder})
      set(program test_${flat}_${label})
      kelto_test_program(${program} SOURCES ${sources} ALONE ${alone})
      if(ARG_MAIN)
        target_sources(${program} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/${ARG_MAIN})
      endif()
      target_link_libraries(${program} PRIVATE kelto_options ${ARG_LINK} GTest::gmock
                                               GTest::$<IF:$<BOOL:${ARG_MAIN}>,gtest,gtest_main>)
      if(ARG_RUNS)
        add_dependencies(${program} ${ARG_RUNS})
      endif()
      if(label STREQUAL "unit")
        add_dependencies(kelto_unit_tests ${program})
      endif()
      target_compile_definitions(${program} PRIVATE KELTO_BIN_DIR="${CMAKE_BINARY_DIR}/bin"
                                                    KELTO_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
      kelto_watch(${program})
      gtest_discover_tests(${program} TEST_PREFIX "${folder}/" DISCOVERY_TIMEOUT 60
                           PROPERTIES LABELS ${label} TIMEOUT ${timeout} ENVIRONMENT RC_PARAMS=max_success=500)
    endif()
  endforeach()
endfunction()

# A test file in a folder without kelto_tests() would never run.
function(kelto_check_that_all_tests_are_built)
  file(GLOB_RECURSE all CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*_test.cpp)
  get_property(built GLOBAL PROPERTY KELTO_TEST_FILES)
  list(REMOVE_ITEM all ${built})
  if(all)
    message(FATAL_ERROR "No kelto_tests() builds ${all}")
  endif()
endfunction()
