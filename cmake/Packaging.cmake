# Debian packages from the install rules of cmake/Install.cmake, one per
# component, for the architecture being built (amd64 here, armhf from
# scripts/armhf.sh). Configure with -DCMAKE_INSTALL_PREFIX=/usr, then
#   cpack -G DEB --config build-DIR/CPackConfig.cmake
# Dependencies on system libraries come from dpkg-shlibdeps; a cross build
# points it at the target's package database (scripts/armhf.sh does).
set(LOGO_PACKAGE_MAINTAINER "logo-modbus-tcp developers <logo-modbus-tcp@example.org>"
    CACHE STRING "Maintainer field of the Debian packages")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME logo-modbus-tcp)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "logo-modbus-tcp developers")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${LOGO_PACKAGE_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
# A package's modes are Debian's whatever the tree's: a source tarball
# unpacked with umask 002 has packaging/triggers at 0664, and a build run
# with it creates the staging folders at 0775. CPack sets control files
# to 0644 (0755 for maintainer scripts) and folders to 0755 itself.
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION TRUE)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
# In a cross build the packages are for the target's architecture, and
# dpkg-shlibdeps reads the target's libraries and asks the target's package
# database (LOGO_DEB_TARGET_ADMINDIR, which scripts/armhf.sh makes in its
# sysroot) which package provides each.
set(LOGO_DEB_TARGET_ADMINDIR "" CACHE PATH "dpkg database of the target's packages, for dpkg-shlibdeps in a cross build")
if(CMAKE_CROSSCOMPILING)
  execute_process(COMMAND dpkg-architecture -qDEB_HOST_ARCH -t ${CMAKE_LIBRARY_ARCHITECTURE}
                  OUTPUT_VARIABLE CPACK_DEBIAN_PACKAGE_ARCHITECTURE OUTPUT_STRIP_TRAILING_WHITESPACE
                  ERROR_QUIET)
  foreach(root ${CMAKE_SYSROOT} ${CMAKE_FIND_ROOT_PATH})
    foreach(dir lib/${CMAKE_LIBRARY_ARCHITECTURE} usr/lib/${CMAKE_LIBRARY_ARCHITECTURE} lib usr/lib)
      list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${root}/${dir})
    endforeach()
  endforeach()
  set(cross_settings "set(ENV{DEB_HOST_ARCH} ${CPACK_DEBIAN_PACKAGE_ARCHITECTURE})\n")
  if(LOGO_DEB_TARGET_ADMINDIR)
    string(APPEND cross_settings "set(ENV{DPKG_ADMINDIR} ${LOGO_DEB_TARGET_ADMINDIR})\n")
  endif()
  file(WRITE ${PROJECT_BINARY_DIR}/CPackCrossSettings.cmake "${cross_settings}")
  set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_BINARY_DIR}/CPackCrossSettings.cmake)
endif()

set(CPACK_COMPONENTS_ALL driver dev)
if(TARGET logohost)
  list(APPEND CPACK_COMPONENTS_ALL tools)
endif()

set(CPACK_DEBIAN_DRIVER_PACKAGE_NAME liblogo-modbus-tcp)
set(CPACK_DEBIAN_DRIVER_PACKAGE_SECTION libs)
# ldconfig runs once per dpkg run through its trigger.
set(CPACK_DEBIAN_DRIVER_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/triggers)
set(CPACK_COMPONENT_DRIVER_DESCRIPTION "Siemens LOGO! Modbus TCP driver for operator-panel runtimes
liblogo_modbus_tcp.so is the communication driver an operator-panel runtime
loads by file name to exchange data with a Siemens LOGO! controller over
Modbus TCP. The host hands it the variables of a screen and does the TCP
input and output; the driver builds the requests, checks the replies and
keeps an image of the controller's memory.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME liblogo-modbus-tcp-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEV_DEPENDS driver)
if(LOGO_QT_MAJOR STREQUAL "4")
  set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libqt4-dev")
else()
  set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "qtbase5-dev")
endif()
set(CPACK_COMPONENT_DEV_DESCRIPTION "Siemens LOGO! Modbus TCP driver - development files
The header logo_modbus_tcp.h with the records and prototypes a host needs
to load liblogo_modbus_tcp.so, the CMake package LogoModbusTcp (targets
LogoModbusTcp::headers and LogoModbusTcp::driver), the pkg-config file
logo-modbus-tcp.pc and the documentation.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME logohost)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_TOOLS_DEPENDS driver)
if(LOGO_BUILD_PANEL)
  # The service's system user, made by postinst; its settings a conffile.
  set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "adduser")
  set(CPACK_DEBIAN_TOOLS_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/postinst
      ${PROJECT_BINARY_DIR}/install-files/conffiles)
endif()
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "Siemens LOGO! Modbus TCP reference host and simulator
logohost loads the LOGO! Modbus TCP driver as an operator-panel runtime
does, and reads, writes or watches a controller's variables from the
command line. logohost panel serves an operator panel for one or several
controllers to browsers, with alarms, a journal and a history kept across
restarts; it comes with a systemd unit, logohost-panel.service, not
enabled. logohost sim runs a simulated LOGO! controller as a Modbus TCP
server, with faults on demand, for testing hosts without hardware.")

# Each package's own doc folder holds its copyright and Debian changelog.
string(TIMESTAMP LOGO_PACKAGE_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
foreach(component ${CPACK_COMPONENTS_ALL})
  string(TOUPPER ${component} upper)
  set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  set(changelog ${PROJECT_BINARY_DIR}/install-files/${package}/changelog.Debian)
  file(WRITE ${changelog}
"${package} (${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=medium

  * Built with CPack from the project's own install rules.

 -- ${LOGO_PACKAGE_MAINTAINER}  ${LOGO_PACKAGE_DATE}
")
  execute_process(COMMAND gzip -9nf ${changelog} RESULT_VARIABLE failed)
  if(failed)
    message(FATAL_ERROR "gzip could not compress ${changelog}")
  endif()
  # Only in a component's own installation (as CPack makes them), not in
  # a plain `cmake --install`.
  install(FILES packaging/copyright ${changelog}.gz DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package}
          COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()

include(CPack)
