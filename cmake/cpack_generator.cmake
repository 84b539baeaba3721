# cpack reads this file before it runs each generator.
if(CPACK_GENERATOR STREQUAL "TGZ")
  set(CPACK_COMPONENTS_ALL runtime busybox)
  set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
  set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
  set(CPACK_SET_DESTDIR ON)  # the init script is outside /usr
  set(CPACK_INSTALL_PREFIX /usr)
  set(CPACK_PACKAGING_INSTALL_PREFIX "")
  set(CPACK_COMPONENT_INCLUDE_TOPLEVEL_DIRECTORY OFF)
endif()
# dpkg-shlibdeps searches for libraries of this architecture.
set(ENV{DEB_HOST_ARCH} ${CPACK_RS232_ARCHITECTURE})
