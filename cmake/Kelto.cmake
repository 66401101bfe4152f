# What every target of this project shares.

add_library(kelto_options INTERFACE)
target_include_directories(kelto_options INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(kelto_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wno-sign-conversion
                                               -Wnon-virtual-dtor -Woverloaded-virtual -Werror
                                               $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local>)
# g++ 12 warns of overlapping copies in its own std::string when it optimises.
target_compile_options(kelto_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)

# kelto_library(NAME SOURCES file... LINK target...): one static library.
function(kelto_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_link_libraries(${name} PUBLIC kelto_options ${ARG_LINK})
endfunction()

# kelto_tests(FOLDER LINK target... [RUNS target...] [MAIN file]): the tests of tests/FOLDER, one program per label, built after
# the programs that it RUNS. The end of a file's name gives its
# label: x_test.cpp is "unit", x_gui_test.cpp, x_bus_test.cpp, x_system_test.cpp and x_slow_test.cpp are "gui", "bus",
# "system" and "slow". MAIN, in the folder, is the main function in place of GoogleTest's.
function(kelto_tests folder)
  cmake_parse_arguments(ARG "" "MAIN" "LINK;RUNS" ${ARGN})
  foreach(target IN LISTS ARG_LINK)
    if(NOT TARGET ${target})
      return()
    endif()
  endforeach()
  file(GLOB all CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*_test.cpp)
  foreach(label IN ITEMS gui bus system slow unit)
    set(sources ${all})
    set(timeout 120)
    if(label STREQUAL "slow")
      set(timeout 3600)
    endif()
    if(label STREQUAL "unit")
      list(FILTER sources EXCLUDE REGEX "_(gui|bus|system|slow)_test\\.cpp$")
    else()
      list(FILTER sources INCLUDE REGEX "_${label}_test\\.cpp$")
    endif()
    if(sources)
      string(REPLACE "/" "_" flat ${folder})
      set(program test_${flat}_${label})
      if(ARG_MAIN)
        add_executable(${program} ${sources} ${folder}/${ARG_MAIN})
      else()
        add_executable(${program} ${sources})
      endif()
      target_link_libraries(${program} PRIVATE kelto_options ${ARG_LINK} GTest::gmock
                                               GTest::$<IF:$<BOOL:${ARG_MAIN}>,gtest,gtest_main>)
      if(ARG_RUNS)
        add_dependencies(${program} ${ARG_RUNS})
      endif()
      target_compile_definitions(${program} PRIVATE KELTO_BIN_DIR="${CMAKE_BINARY_DIR}/bin"
                                                    KELTO_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
      gtest_discover_tests(${program} TEST_PREFIX "${folder}/" DISCOVERY_TIMEOUT 60
                           PROPERTIES LABELS ${label} TIMEOUT ${timeout} ENVIRONMENT RC_PARAMS=max_success=500)
    endif()
  endforeach()
endfunction()
