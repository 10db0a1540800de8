# Installs the library, its public headers and a CMake package:
#   find_package(varn_wifihal CONFIG REQUIRED)
#   target_link_libraries(app PRIVATE varn_wifihal::varn_wifihal)
#
# Two export sets: varn_wifihal_targets holds the library alone, as a device
# image would; varn_wifihal_host_targets holds the host stand-ins of the
# platform (headers, libvarn_client.so, libloc_utils.so) that it links.
include(CMakePackageConfigHelpers)

set(VARN_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/varn_wifihal)

install(TARGETS varn_wifihal EXPORT varn_wifihal_targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

install(TARGETS varn_platform_headers varn_client_sim varn_loc_utils_sim
  EXPORT varn_wifihal_host_targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY platform/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

install(EXPORT varn_wifihal_host_targets
  FILE varn_wifihal_hostTargets.cmake
  NAMESPACE varn_wifihal::
  DESTINATION ${VARN_CMAKE_DIR})
install(EXPORT varn_wifihal_targets
  FILE varn_wifihalTargets.cmake
  NAMESPACE varn_wifihal::
  DESTINATION ${VARN_CMAKE_DIR})
configure_package_config_file(cmake/varn_wifihalConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/varn_wifihalConfig.cmake
  INSTALL_DESTINATION ${VARN_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/varn_wifihalConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/varn_wifihalConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/varn_wifihalConfigVersion.cmake
  cmake/AndroidLog.cmake
  DESTINATION ${VARN_CMAKE_DIR})
