# Every program is position-independent, with its relocations resolved and read-only before it runs. A build that is not for
# debugging has the compiled checks as well; the two programs that run as root have them in every build.
add_library(kelto_root_program INTERFACE)

# kelto_runs_as_root(target...): these are all that the programs which run as root are made of.
function(kelto_runs_as_root)
  foreach(target IN LISTS ARGN)
    target_link_libraries(${target} PRIVATE kelto_root_program)
  endforeach()
endfunction()

if(KELTO_HARDENING)
  include(CheckPIESupported)
  check_pie_supported(LANGUAGES CXX)
  # With -fPIE, which CMake gives here, code that is compiled while linking has copies of the toolkit's variables, and the
  # toolkit never sees those.
  set(CMAKE_CXX_LINK_OPTIONS_PIE -fPIC -pie)
  set(compiled_checks -fstack-protector-strong -fstack-clash-protection -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  target_link_options(kelto_options INTERFACE LINKER:-z,relro,-z,now)
  target_compile_options(kelto_options INTERFACE "$<$<NOT:$<CONFIG:Debug>>:${compiled_checks}>")
  target_compile_options(kelto_root_program INTERFACE ${compiled_checks} -D_GLIBCXX_ASSERTIONS)
endif()
