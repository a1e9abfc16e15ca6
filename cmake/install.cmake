# What `cmake --install` puts where, and how other projects find it: a CMake package, a pkg-config
# file. One component for each package that a distribution would make of it.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(VORN_DATA_DIR ${CMAKE_INSTALL_DATADIR}/vornycnr)
set(VORN_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/vornycnr)

install(TARGETS vornynr2cnr4 EXPORT vornycnr
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)

install(FILES include/vorn_ycnr.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
if(EXISTS ${PROJECT_SOURCE_DIR}/include/vorn_ycnr_ext.h)
  install(FILES include/vorn_ycnr_ext.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
endif()

install(EXPORT vornycnr NAMESPACE vornycnr:: FILE vornycnr-targets.cmake
  DESTINATION ${VORN_CMAKE_DIR} COMPONENT development)
configure_package_config_file(cmake/vornycnr-config.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/vornycnr-config.cmake INSTALL_DESTINATION ${VORN_CMAKE_DIR}
  PATH_VARS VORN_DATA_DIR)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/vornycnr-config-version.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vornycnr-config.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/vornycnr-config-version.cmake
  DESTINATION ${VORN_CMAKE_DIR} COMPONENT development)

# The .pc file names its directories relative to itself, so that an installed tree can be moved.
file(RELATIVE_PATH VORN_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(cmake/vornycnr.pc.in vornycnr.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vornycnr.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
