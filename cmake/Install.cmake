# `cmake --install`: the place of every file. All programs lie in one folder below the prefix. The bus, the policy service and the
# service manager read only folders of their own, whatever the prefix is. Files that name a folder of the installation are
# written while installing, so that a later --prefix holds for them too.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(program_folder lib/kelto)
set(bundle_folder ${program_folder}/KeltoInstaller.app/Contents)
pkg_get_variable(unit_folder systemd systemdsystemunitdir)
if(NOT unit_folder)
  set(unit_folder /usr/lib/systemd/system)
endif()
set(KELTO_UNIT_FOLDER ${unit_folder} CACHE PATH "Where the service manager reads units of packages")
set(KELTO_BUS_FOLDER /usr/share/dbus-1 CACHE PATH "Where the system bus reads its policies and services")
set(KELTO_ZSH_FOLDER ${CMAKE_INSTALL_DATADIR}/zsh/site-functions CACHE STRING "Where zsh looks for completions, below the prefix")
set(KELTO_POLICY_FOLDER /usr/share/polkit-1/actions CACHE PATH "Where the policy service reads actions")

set(KELTO_PYTHON_FOLDER ${CMAKE_INSTALL_DATADIR}/kelto/python CACHE STRING "Where the module for Python goes, below the prefix")
set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/Kelto)
set(pkg_config_folder ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

set(installed_folders ${program_folder} ${CMAKE_INSTALL_BINDIR} ${CMAKE_INSTALL_DATADIR}/applications
    ${CMAKE_INSTALL_DATADIR}/bash-completion ${CMAKE_INSTALL_DATADIR}/zsh ${CMAKE_INSTALL_DATADIR}/metainfo
    ${CMAKE_INSTALL_DATADIR}/icons/hicolor ${CMAKE_INSTALL_MANDIR} ${CMAKE_INSTALL_INCLUDEDIR}/kelto ${package_folder}
    ${pkg_config_folder} ${KELTO_PYTHON_FOLDER} ${CMAKE_INSTALL_DATADIR}/dbus-1/interfaces)
configure_file(cmake/BeforeInstall.cmake.in ${PROJECT_BINARY_DIR}/BeforeInstall.cmake @ONLY)
install(CODE "set(KELTO_OBJECTION_KIND FATAL_ERROR)")
install(SCRIPT ${PROJECT_BINARY_DIR}/BeforeInstall.cmake)
# The same look at the prefix that is known now.
block()
  set(KELTO_OBJECTION_KIND WARNING)
  set(KELTO_ONLY_LOOK ON)
  include(${PROJECT_BINARY_DIR}/BeforeInstall.cmake)
endblock()

include(cmake/Library.cmake)
include(cmake/ControllerLibrary.cmake)

# Programs.
install(TARGETS authorizationd assistantTool DESTINATION ${program_folder})
install(TARGETS kelto-manifest DESTINATION ${CMAKE_INSTALL_BINDIR})

# The installer's bundle. Its tool is a link: it lies beside the broker, in the folder that the policy names.
install(TARGETS kelto-cli DESTINATION ${bundle_folder}/Linux)
if(KELTO_WINDOWS)
  install(TARGETS KeltoInstaller DESTINATION ${bundle_folder}/Linux)
endif()
install(TARGETS defaults DESTINATION ${bundle_folder}/Resources)
install(FILES ${PROJECT_BINARY_DIR}/bin/KeltoInstaller.app/Contents/Info.plist DESTINATION ${bundle_folder})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/resources/ DESTINATION ${bundle_folder}/Resources PATTERN Info.plist* EXCLUDE)

function(kelto_install_link folder name target)
  file(CREATE_LINK ${target} ${PROJECT_BINARY_DIR}/links/${name} SYMBOLIC)
  install(FILES ${PROJECT_BINARY_DIR}/links/${name} DESTINATION ${folder})
endfunction()
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/links)
kelto_install_link(${bundle_folder}/Resources assistantTool ../../../assistantTool)
kelto_install_link(${bundle_folder}/Resources kelto-manifest ../../../../../${CMAKE_INSTALL_BINDIR}/kelto-manifest)
kelto_install_link(${CMAKE_INSTALL_BINDIR} kelto-installer ../${bundle_folder}/Linux/KeltoInstaller)
kelto_install_link(${CMAKE_INSTALL_BINDIR} kelto ../${bundle_folder}/Linux/kelto)
kelto_install_link(${CMAKE_INSTALL_BINDIR} kelto-defaults ../${bundle_folder}/Resources/defaults)

# For desktops.
set(desktop ${PROJECT_SOURCE_DIR}/packaging/desktop)
install(FILES ${desktop}/com.kelto.installer.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${PROJECT_BINARY_DIR}/share/metainfo/com.kelto.installer.metainfo.xml DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
configure_file(${desktop}/com.kelto.installer.metainfo.xml.in
               ${PROJECT_BINARY_DIR}/share/metainfo/com.kelto.installer.metainfo.xml @ONLY)
foreach(size IN ITEMS 16 32 48 64 128 256)
  install(FILES ${PROJECT_SOURCE_DIR}/resources/artwork/application-icon-${size}.png RENAME com.kelto.installer.png
          DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}x${size}/apps)
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/artwork/application-icon.svg RENAME com.kelto.installer.svg
        DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)

# For shells.
set(completion ${PROJECT_SOURCE_DIR}/packaging/completion)
install(FILES ${completion}/kelto.bash RENAME kelto DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES ${completion}/_kelto DESTINATION ${KELTO_ZSH_FOLDER})

# Manual pages carry the version.
file(GLOB pages CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}/docs/man ${PROJECT_SOURCE_DIR}/docs/man/*.in)
foreach(page IN LISTS pages)
  string(REGEX REPLACE "\\.in$" "" page ${page})
  string(REGEX REPLACE ".*\\." "" section ${page})
  configure_file(${PROJECT_SOURCE_DIR}/docs/man/${page}.in ${PROJECT_BINARY_DIR}/share/man/man${section}/${page} @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/share/man/man${section}/${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
endforeach()

# The files that name the prefix.
set(authorizationd_sources ${PROJECT_SOURCE_DIR}/platform/linux/authorizationd)
configure_file(cmake/InstallBroker.cmake.in ${PROJECT_BINARY_DIR}/InstallBroker.cmake @ONLY)
install(SCRIPT ${PROJECT_BINARY_DIR}/InstallBroker.cmake)

add_custom_target(uninstall COMMAND ${CMAKE_COMMAND} -D BUILD=${PROJECT_BINARY_DIR} -P ${PROJECT_SOURCE_DIR}/cmake/Uninstall.cmake)
