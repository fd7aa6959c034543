# What is installed, and the two Debian packages made of it by cpack: the updater for the panel, and the tools for the
# desk. Files of the panel have absolute paths: stage them with DESTDIR, or with cpack, which does.
include(GNUInstallDirs)

install(TARGETS K+Updater DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT updater)
install(FILES ${PROJECT_SOURCE_DIR}/config/vx3.cfg ${PROJECT_SOURCE_DIR}/config/style.css
        DESTINATION /keldra/config COMPONENT updater)
install(TARGETS keldra-start DESTINATION sbin COMPONENT updater)
set(starter ${CMAKE_CURRENT_LIST_DIR}/start)
install(FILES ${starter}/keldra-start.service DESTINATION /lib/systemd/system COMPONENT updater)
install(PROGRAMS ${starter}/keldra-start.init DESTINATION /etc/init.d RENAME keldra-start COMPONENT updater)
# Its page, without the links into this tree.
file(READ ${PROJECT_SOURCE_DIR}/docs/starter.md page)
string(REGEX REPLACE "\\[([^]\n]+)\\]\\([^)\n]+\\)" "\\1" page "${page}")
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/packaging/starter.md "${page}")
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/packaging/starter.md
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/keldra-updater COMPONENT updater)
install(DIRECTORY DESTINATION /keldra/start COMPONENT updater)
install(DIRECTORY DESTINATION /keldra/logs COMPONENT updater)
install(DIRECTORY DESTINATION /keldra/tmp COMPONENT updater)
install(TARGETS bus-trace bus-sim DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT package-tool)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/bus-trace.1 ${CMAKE_CURRENT_LIST_DIR}/bus-sim.1
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT package-tool)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/K+Updater.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT updater)
install(FILES ${PROJECT_SOURCE_DIR}/sim/README.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/keldra-package-tools
        RENAME bus-sim.md COMPONENT package-tool)
install(FILES ${PROJECT_SOURCE_DIR}/tools/trace/wireshark.lua
        DESTINATION ${CMAKE_INSTALL_DATADIR}/keldra-package-tools COMPONENT package-tool)

set(staged ${CMAKE_CURRENT_BINARY_DIR}/packaging)
string(TIMESTAMP packaging_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
foreach(component updater package-tool)
  set(package_name keldra-${component})
  if(component STREQUAL package-tool)
    set(package_name keldra-package-tools)
  endif()
  set(folder ${staged}/${package_name})
  configure_file(${CMAKE_CURRENT_LIST_DIR}/changelog.in ${folder}/changelog)
  execute_process(COMMAND gzip -9nf ${folder}/changelog COMMAND_ERROR_IS_FATAL ANY)
  install(FILES ${folder}/changelog.gz ${CMAKE_CURRENT_LIST_DIR}/copyright
          DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package_name} COMPONENT ${component})
  string(TOUPPER ${component} key)
  set(CPACK_DEBIAN_${key}_PACKAGE_NAME ${package_name})
  set(CPACK_DEBIAN_${key}_FILE_NAME DEB-DEFAULT)
endforeach()

install(FILES ${CMAKE_CURRENT_LIST_DIR}/lintian-overrides DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
        RENAME keldra-updater COMPONENT updater)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}) # wherever cpack is started
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL updater package-tool)
set(CPACK_PACKAGE_CONTACT "Keldra+ Development <updater@keldra.org>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/compress-manuals.cmake)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own

set(CPACK_COMPONENT_UPDATER_DESCRIPTION "${PROJECT_DESCRIPTION}
It checks the update package on a USB stick, compares each item with what is
installed, and brings kernel, programs, drivers and the firmware of the
modules on the bus up to date.")
set(CPACK_DEBIAN_UPDATER_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_UPDATER_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/conffiles
    ${starter}/postinst ${starter}/prerm ${starter}/postrm)
set(CPACK_DEBIAN_UPDATER_PACKAGE_DEPENDS fonts-dejavu-core) # and the libraries, see below

set(CPACK_COMPONENT_PACKAGE-TOOL_DESCRIPTION "Tools for update packages of the Keldra+ control panel
keldra-package makes, checks and explains update packages; bus-trace shows
what was recorded on the bus of a panel; bus-sim stands in for that bus.")
set(CPACK_DEBIAN_PACKAGE-TOOL_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_PACKAGE-TOOL_PACKAGE_RECOMMENDS minisign) # which signs

if(CMAKE_CROSSCOMPILING)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
  set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_LIST_DIR}/cross-dependencies.cmake)
  set(CPACK_KELDRA_PROGRAMS ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
else()
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()
include(CPack)
