# libkelto: logging and the kit with the platform below them, for other programs. This project's own programs link the same code
# statically. It is the ABI that a program is built with: SOVERSION changes with every release that changes a header.
set(library_parts kelto_foundation kelto_protocol kelto_platform kelto_platform_unicode kelto_platform_linux kelto_kit_bundle
    kelto_logging kelto_kit)
list(TRANSFORM library_parts REPLACE "(.+)" "$<TARGET_OBJECTS:\\1>" OUTPUT_VARIABLE objects)
add_library(kelto SHARED platform/linux/program/ProgramPlatform.cpp ${objects})
# The libraries are for what they link in turn; all of their objects are there already.
target_link_libraries(kelto PRIVATE ${library_parts})
set_target_properties(kelto PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION 1 EXPORT_NAME Kelto)
target_compile_features(kelto INTERFACE cxx_std_20)
target_include_directories(kelto INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
                                           $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/kelto>)

install(TARGETS kelto EXPORT Kelto DESTINATION ${CMAKE_INSTALL_LIBDIR})
set(header_folder ${CMAKE_INSTALL_INCLUDEDIR}/kelto)
foreach(room IN ITEMS foundation/dispatch foundation/graphics foundation/plist foundation/runtime foundation/text foundation/views
        kit logging platform platform/linux/program)
  file(GLOB headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${room}/*.h)
  install(FILES ${headers} DESTINATION ${header_folder}/${room})
endforeach()

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/Kelto)
install(EXPORT Kelto NAMESPACE Kelto:: FILE KeltoConfig.cmake DESTINATION ${package_folder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KeltoConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/KeltoConfigVersion.cmake DESTINATION ${package_folder})
