# The parts that can be left out of a build, and what a build is made for.
include(CMakeDependentOption)

option(KELTO_TESTS "Build the tests" ON)
option(KELTO_WINDOWS "Build what shows windows, which needs Qt: the installer's program, the demo, the tests with a display" ON)
option(KELTO_BENCHMARKS "Build the programs of bench/" OFF)
option(KELTO_FUZZERS "Build the fuzz targets as searching programs (needs clang)" OFF)
# Tests and benchmarks run the demo and the examples.
if(KELTO_WINDOWS)
  cmake_dependent_option(KELTO_DEMO "Build the demo's controller and Library Server" ON "NOT KELTO_TESTS;NOT KELTO_BENCHMARKS" ON)
else()
  set(KELTO_DEMO OFF)
endif()
cmake_dependent_option(KELTO_EXAMPLES "Build the examples" ON "NOT KELTO_TESTS;NOT KELTO_BENCHMARKS" ON)
option(KELTO_HARDENING "Compile and link so that a fault in memory is harder to exploit" ON)
option(KELTO_MACHINE_FILES
       "Install the broker of the machine too, whose bus, policy and service files lie outside the prefix" ON)

# CHANGELOG.md begins with the version that is built, and its date.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS CHANGELOG.md)
file(STRINGS CHANGELOG.md newest REGEX "^## " LIMIT_COUNT 1)
if(NOT newest MATCHES "^## ([0-9.]+) - ([0-9-]+)$" OR NOT CMAKE_MATCH_1 VERSION_EQUAL PROJECT_VERSION)
  message(FATAL_ERROR "CHANGELOG.md does not begin with the version ${PROJECT_VERSION} and its date: ${newest}")
endif()
set(KELTO_RELEASE_DATE ${CMAKE_MATCH_2})
