# For applications that update themselves: libkelto-controller, its headers, a pkg-config file that finds them wherever
# they were moved, the module for Python (one file, which belongs where the user's Python looks) and the broker's interface.
set(sdk ${PROJECT_SOURCE_DIR}/sdk)
file(RELATIVE_PATH way_to_prefix /${pkg_config_folder} /)
string(REGEX REPLACE "/$" "" way_to_prefix ${way_to_prefix})
configure_file(${sdk}/kelto-controller.pc.in ${PROJECT_BINARY_DIR}/share/kelto-controller.pc @ONLY)

install(TARGETS kelto-controller DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${sdk}/include/kelto/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kelto)
install(FILES ${PROJECT_BINARY_DIR}/share/kelto-controller.pc DESTINATION ${pkg_config_folder})
install(FILES ${sdk}/python/kelto_controller.py DESTINATION ${KELTO_PYTHON_FOLDER})
install(FILES ${PROJECT_SOURCE_DIR}/protocol/com.kelto.Authorization1.xml DESTINATION ${CMAKE_INSTALL_DATADIR}/dbus-1/interfaces)
