# Installed files, and the packages that `cpack` makes of them:
#   rs232d_VERSION_ARCH.deb      daemon, rs232ctl, systemd unit, manual pages, completion
#   rs232d-sim_VERSION_ARCH.deb  vdev
#   rs232d-VERSION-ARCH.tar.gz   daemon, rs232ctl and init script, for a board without dpkg
if(NOT RS232_DEBIAN_ARCHITECTURE)
  execute_process(COMMAND dpkg --print-architecture OUTPUT_VARIABLE RS232_DEBIAN_ARCHITECTURE
                  OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()

# Builds everything that `install` needs, without the tests.
add_custom_target(installables)
add_dependencies(installables rs232d)

# Compresses `source` to `name`.gz and installs it; -n omits the timestamp, for reproducible
# results.
function(rs232_install_compressed source name destination component)
  get_filename_component(source ${source} ABSOLUTE)
  set(result ${CMAKE_BINARY_DIR}/compressed/${component}/${name}.gz)
  add_custom_command(OUTPUT ${result} DEPENDS ${source} VERBATIM
    COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/compressed/${component}
    COMMAND sh -c "gzip -9nc \"$1\" > \"$2\"" sh ${source} ${result})
  add_custom_target(${component}-${name} ALL DEPENDS ${result})
  add_dependencies(installables ${component}-${name})
  install(FILES ${result} DESTINATION ${destination} COMPONENT ${component})
endfunction()

function(rs232_install_legal package component)
  set(directory ${CMAKE_INSTALL_DATADIR}/doc/${package})
  install(FILES packaging/deb/copyright DESTINATION ${directory} COMPONENT ${component})
  rs232_install_compressed(packaging/deb/changelog changelog ${directory} ${component})
endfunction()

install(TARGETS rs232d RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT runtime)
install(FILES packaging/rs232d.service DESTINATION lib/systemd/system COMPONENT support)
install(FILES packaging/rs232d.tmpfiles DESTINATION lib/tmpfiles.d RENAME rs232d.conf
        COMPONENT support)
rs232_install_compressed(src/daemon/man/rs232d.8 rs232d.8 ${CMAKE_INSTALL_MANDIR}/man8 support)
install(PROGRAMS packaging/S60rs232d
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/rs232d/examples COMPONENT support)
rs232_install_legal(rs232d support)
# Only in the archive, not in a plain install.
install(PROGRAMS packaging/S60rs232d DESTINATION /etc/init.d COMPONENT busybox EXCLUDE_FROM_ALL)

if(RS232_TOOLS)
  add_dependencies(installables rs232ctl)
  install(TARGETS rs232ctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
  rs232_install_compressed(tools/man/rs232ctl.1 rs232ctl.1 ${CMAKE_INSTALL_MANDIR}/man1 support)
  install(FILES tools/completion/rs232ctl
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT support)
endif()

set(RS232_DEB_COMPONENTS runtime support)
if(RS232_BENCH_WORLD AND RS232_VDEV)
  list(APPEND RS232_DEB_COMPONENTS sim)
  add_dependencies(installables vdev)
  install(TARGETS vdev RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT sim)
  rs232_install_compressed(sim/man/vdev.1 vdev.1 ${CMAKE_INSTALL_MANDIR}/man1 sim)
  install(FILES tools/completion/vdev
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT sim)
  rs232_install_legal(rs232d-sim sim)
endif()

set(CPACK_GENERATOR DEB TGZ)
set(CPACK_PACKAGE_CONTACT "rs232d maintainers <maintainers@example.invalid>")
set(CPACK_PACKAGE_FILE_NAME rs232d-${PROJECT_VERSION}-${RS232_DEBIAN_ARCHITECTURE})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL ${RS232_DEB_COMPONENTS})
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
# Selects the components of each generator: those of the archive differ from those of the packages.
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_SOURCE_DIR}/cmake/cpack_generator.cmake)
set(CPACK_RS232_ARCHITECTURE ${RS232_DEBIAN_ARCHITECTURE})

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${RS232_DEBIAN_ARCHITECTURE})
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

set(CPACK_DEBIAN_DAEMON_PACKAGE_NAME rs232d)
set(CPACK_DEBIAN_DAEMON_DESCRIPTION
"Owns the second serial port of a network camera or video encoder: relays it
to PTZ clients and local processes, and drives camera modules and motorized
lenses. Comes with rs232ctl, which talks to the daemon.")
# Draws the pictures of `rs232ctl lens`, which a board does not need.
set(CPACK_DEBIAN_DAEMON_PACKAGE_SUGGESTS gnuplot-nox)
set(CPACK_DEBIAN_DAEMON_PACKAGE_CONTROL_EXTRA
    ${CMAKE_SOURCE_DIR}/packaging/deb/postinst ${CMAKE_SOURCE_DIR}/packaging/deb/prerm
    ${CMAKE_SOURCE_DIR}/packaging/deb/postrm)
set(CPACK_DEBIAN_SIM_PACKAGE_NAME rs232d-sim)
set(CPACK_DEBIAN_SIM_DESCRIPTION
"vdev runs the real daemon on a virtual camera in a private world of
namespaces, with a simulated head, camera module or lens on its line.")
set(CPACK_DEBIAN_SIM_PACKAGE_DEPENDS "rs232d (= ${PROJECT_VERSION})")

include(CPack)
cpack_add_component_group(daemon)
cpack_add_component_group(sim)
cpack_add_component(runtime GROUP daemon)
cpack_add_component(support GROUP daemon)
cpack_add_component(sim GROUP sim)
