# Two libraries for other programs, which link one of them: libkelto-logging, the logger alone, and libkelto, the logger and the
# kit. This project's own programs link the same code statically. Each is the ABI that a program is built with: SOVERSION changes
# with every release that changes a header.
include(CMakePackageConfigHelpers)

# kelto_install_headers(NAME [COMPONENT name] HEADERS pattern...)
function(kelto_install_headers name)
  cmake_parse_arguments(ARG "" "COMPONENT" "HEADERS" ${ARGN})
  list(TRANSFORM ARG_HEADERS PREPEND ${PROJECT_SOURCE_DIR}/)
  file(GLOB headers CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR} ${ARG_HEADERS})
  list(JOIN headers "\n    " headers)
  configure_file(cmake/InstallHeaders.cmake.in ${PROJECT_BINARY_DIR}/InstallHeadersOf${name}.cmake @ONLY)
  if(ARG_COMPONENT)
    set(component COMPONENT ${ARG_COMPONENT})
  endif()
  install(SCRIPT ${PROJECT_BINARY_DIR}/InstallHeadersOf${name}.cmake ${component})
endfunction()

function(kelto_library_for_others target)
  target_compile_features(${target} INTERFACE cxx_std_20)
  target_include_directories(${target} INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
                                                 $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  set_property(TARGET ${target} PROPERTY INTERFACE_KELTO_LIBRARY ${ARGV1})
  set_property(TARGET ${target} APPEND PROPERTY COMPATIBLE_INTERFACE_STRING KELTO_LIBRARY)
endfunction()

# The logger alone: the standard library and the C library.
file(GLOB sources CONFIGURE_DEPENDS foundation/dispatch/*.cpp foundation/plist/*.cpp foundation/runtime/*.cpp foundation/text/*.cpp
                                    logging/*.cpp posix/*.cpp)
list(APPEND sources kit/NSBundle+Kelto.cpp kit/NSUserDefaults+Debug.cpp platform/Bundle.cpp platform/LoggingPlatform.cpp platform/UserDefaults.cpp
                    platform/linux/program/LoggingProgram.cpp)
foreach(unit IN ITEMS Accounts Bundle CrashSignals DefaultsFile FileManager FolderNames LoggingHost LogStorage LogTable OwnThreads PostgreSQL
        PreferredLanguages PrivateTemporaryFolder ReadDocument StandardFolders SurvivingMemories SystemJournal SystemLog UserDefaults Volume)
  list(APPEND sources platform/linux/${unit}.cpp)
endforeach()
add_library(kelto-logging-objects OBJECT ${sources})
kelto_joined(kelto-logging-objects)
target_link_libraries(kelto-logging-objects PRIVATE kelto_options)
target_include_directories(kelto-logging-objects SYSTEM PRIVATE ${LIBPQ_INCLUDE_DIRS})
set_target_properties(kelto-logging-objects PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)

add_library(kelto-logging SHARED $<TARGET_OBJECTS:kelto-logging-objects>)
target_link_libraries(kelto-logging PRIVATE Threads::Threads)
target_link_options(kelto-logging PRIVATE LINKER:--no-undefined,--as-needed $<TARGET_PROPERTY:kelto_options,INTERFACE_LINK_OPTIONS>)
set_target_properties(kelto-logging PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION 1 EXPORT_NAME Logging)
kelto_library_for_others(kelto-logging logging)

add_library(kelto-logging-static STATIC $<TARGET_OBJECTS:kelto-logging-objects>)
target_link_libraries(kelto-logging-static PRIVATE Threads::Threads)
set_target_properties(kelto-logging-static PROPERTIES OUTPUT_NAME kelto-logging EXPORT_NAME LoggingStatic)
kelto_library_for_others(kelto-logging-static logging)

install(TARGETS kelto-logging kelto-logging-static EXPORT Logging DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT logging)
install(EXPORT Logging NAMESPACE Kelto:: FILE LoggingTargets.cmake DESTINATION ${package_folder} COMPONENT logging)
kelto_install_headers(Logging COMPONENT logging HEADERS
  foundation/Api.h foundation/dispatch/*.h foundation/plist/*.h foundation/runtime/*.h foundation/text/*.h logging/*.h
  platform/Bundle.h platform/Error.h platform/FileManager.h platform/LogTable.h platform/Logging*.h platform/SystemLog.h platform/UserDefaults.h
  platform/linux/program/LoggingProgram.h)
configure_file(cmake/logging.h.in ${PROJECT_BINARY_DIR}/include/kelto/logging.h COPYONLY)
install(FILES ${PROJECT_BINARY_DIR}/include/kelto/logging.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kelto COMPONENT logging)
configure_file(cmake/braces.h.in ${PROJECT_BINARY_DIR}/include/kelto/logging/braces.h COPYONLY)
install(FILES ${PROJECT_BINARY_DIR}/include/kelto/logging/braces.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kelto/logging
        COMPONENT logging)
file(RELATIVE_PATH prefix_from_pkgconfig /${pkg_config_folder} /)
configure_file(cmake/kelto-logging.pc.in ${PROJECT_BINARY_DIR}/kelto-logging.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kelto-logging.pc DESTINATION ${pkg_config_folder} COMPONENT logging)

# The logger and the kit.
set(library_parts kelto_foundation kelto_protocol kelto_platform kelto_platform_unicode kelto_platform_linux kelto_kit_bundle
    kelto_logging kelto_kit)
list(TRANSFORM library_parts REPLACE "(.+)" "$<TARGET_OBJECTS:\\1>" OUTPUT_VARIABLE objects)
add_library(kelto SHARED platform/linux/program/ProgramPlatform.cpp ${objects})
# The libraries are for what they link in turn; all of their objects are there already.
target_link_libraries(kelto PRIVATE ${library_parts})
set_target_properties(kelto PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION 1 EXPORT_NAME Kelto)
kelto_library_for_others(kelto kit)

install(TARGETS kelto EXPORT Kelto DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(EXPORT Kelto NAMESPACE Kelto:: FILE KeltoTargets.cmake DESTINATION ${package_folder})
kelto_install_headers(Kit HEADERS foundation/graphics/*.h foundation/views/*.h kit/*.h platform/*.h platform/linux/program/*.h)

install(FILES cmake/KeltoConfig.cmake DESTINATION ${package_folder} COMPONENT logging)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KeltoConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/KeltoConfigVersion.cmake DESTINATION ${package_folder} COMPONENT logging)
