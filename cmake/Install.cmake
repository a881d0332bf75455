# What `cmake --install` puts where, and what the Debian packages are made
# of (cmake/Packaging.cmake), in three components:
#   driver  the library a host loads
#   dev     the public header, the CMake package LogoModbusTcp, the
#           pkg-config file logo-modbus-tcp.pc and the documentation
#   tools   logohost (with its simulator, `logohost sim`) and its man page
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(LOGO_CMAKE_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/LogoModbusTcp)
set(LOGO_INSTALL_HELPERS ${PROJECT_SOURCE_DIR}/cmake/install)
set(LOGO_INSTALL_STAGING ${PROJECT_BINARY_DIR}/install-files)

# The driver carries no version in its name: hosts load it by this very
# file name. Its SONAME is the same name (CMake's default for a library
# without VERSION), so a program that links it instead records a file that
# exists, and ldconfig and dpkg-shlibdeps know it.
set_target_properties(logo_modbus_tcp PROPERTIES EXPORT_NAME driver)
install(TARGETS logo_modbus_tcp EXPORT LogoModbusTcpTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT driver)

# LogoModbusTcp::headers: the header and QtCore, for a host that loads the
# driver with dlopen and only needs the records and prototypes.
add_library(logo_headers INTERFACE)
set_target_properties(logo_headers PROPERTIES EXPORT_NAME headers)
target_include_directories(logo_headers INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_link_libraries(logo_headers INTERFACE ${LOGO_QT_CORE})
target_link_libraries(logo_modbus_tcp INTERFACE logo_headers)
install(TARGETS logo_headers EXPORT LogoModbusTcpTargets)
install(FILES include/logo_modbus_tcp.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)

# The consumer finds the same Qt major version the driver was built with.
if(LOGO_QT_MAJOR STREQUAL "4")
  set(LOGO_QT_DEPENDENCY "find_dependency(Qt4 4.8 COMPONENTS QtCore)")
  set(LOGO_QT_PKGCONFIG QtCore)
else()
  set(LOGO_QT_DEPENDENCY "find_dependency(Qt5 COMPONENTS Core)")
  set(LOGO_QT_PKGCONFIG Qt5Core)
endif()
install(EXPORT LogoModbusTcpTargets NAMESPACE LogoModbusTcp:: DESTINATION ${LOGO_CMAKE_PACKAGE_DIR} COMPONENT dev)
configure_package_config_file(${LOGO_INSTALL_HELPERS}/LogoModbusTcpConfig.cmake.in
  ${LOGO_INSTALL_STAGING}/LogoModbusTcpConfig.cmake
  INSTALL_DESTINATION ${LOGO_CMAKE_PACKAGE_DIR})
write_basic_package_version_file(${LOGO_INSTALL_STAGING}/LogoModbusTcpConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${LOGO_INSTALL_STAGING}/LogoModbusTcpConfig.cmake ${LOGO_INSTALL_STAGING}/LogoModbusTcpConfigVersion.cmake
        DESTINATION ${LOGO_CMAKE_PACKAGE_DIR} COMPONENT dev)

# The .pc file finds its prefix from its own place, so it stays right
# wherever the tree is installed (cmake --install --prefix).
file(RELATIVE_PATH LOGO_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" LOGO_PC_TO_PREFIX "${LOGO_PC_TO_PREFIX}")
configure_file(${LOGO_INSTALL_HELPERS}/logo-modbus-tcp.pc.in ${LOGO_INSTALL_STAGING}/logo-modbus-tcp.pc @ONLY)
install(FILES ${LOGO_INSTALL_STAGING}/logo-modbus-tcp.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

install(FILES README.md LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT dev)
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs COMPONENT dev FILES_MATCHING PATTERN "*.md")

if(TARGET logohost)
  # logohost loads the driver from beside its own executable, so it lives
  # in a folder of its own with a link to the installed driver, and the
  # command in the bin folder is a link to it (the host follows links to
  # find its folder).
  set(tools_dir ${CMAKE_INSTALL_LIBEXECDIR}/logo-modbus-tcp)
  install(TARGETS logohost RUNTIME DESTINATION ${tools_dir} COMPONENT tools)
  file(RELATIVE_PATH driver_from_tools ${CMAKE_INSTALL_FULL_LIBEXECDIR}/logo-modbus-tcp
       ${CMAKE_INSTALL_FULL_LIBDIR}/liblogo_modbus_tcp.so)
  file(RELATIVE_PATH logohost_from_bin ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBEXECDIR}/logo-modbus-tcp/logohost)
  file(MAKE_DIRECTORY ${LOGO_INSTALL_STAGING}/tools ${LOGO_INSTALL_STAGING}/bin)
  file(CREATE_LINK ${driver_from_tools} ${LOGO_INSTALL_STAGING}/tools/liblogo_modbus_tcp.so SYMBOLIC)
  file(CREATE_LINK ${logohost_from_bin} ${LOGO_INSTALL_STAGING}/bin/logohost SYMBOLIC)
  install(FILES ${LOGO_INSTALL_STAGING}/tools/liblogo_modbus_tcp.so DESTINATION ${tools_dir} COMPONENT tools)
  install(FILES ${LOGO_INSTALL_STAGING}/bin/logohost DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)

  # Man pages are read compressed, and Debian wants them so.
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/man/logohost.1)
  execute_process(COMMAND gzip -9nc ${PROJECT_SOURCE_DIR}/man/logohost.1
                  OUTPUT_FILE ${LOGO_INSTALL_STAGING}/logohost.1.gz RESULT_VARIABLE failed)
  if(failed)
    message(FATAL_ERROR "gzip could not compress man/logohost.1")
  endif()
  install(FILES ${LOGO_INSTALL_STAGING}/logohost.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)

  # The panel as a service: a systemd unit (not enabled) and the settings
  # file it reads, which a package keeps as the administrator left it.
  if(LOGO_BUILD_PANEL)
    set(LOGO_CONFIG_FILE ${CMAKE_INSTALL_FULL_SYSCONFDIR}/logohost/panel.conf)
    configure_file(${PROJECT_SOURCE_DIR}/packaging/logohost-panel.service.in
                   ${LOGO_INSTALL_STAGING}/logohost-panel.service @ONLY)
    install(FILES ${LOGO_INSTALL_STAGING}/logohost-panel.service
            DESTINATION ${CMAKE_INSTALL_PREFIX}/lib/systemd/system COMPONENT tools)
    install(FILES packaging/panel.conf DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/logohost COMPONENT tools)
    file(WRITE ${LOGO_INSTALL_STAGING}/conffiles "${LOGO_CONFIG_FILE}\n")
  endif()
endif()
