# How other projects find what is installed: pkg-config files and a CMake package. Neither holds an absolute path, so the
# tree may be moved.
include(CMakePackageConfigHelpers)

foreach(folder LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${folder}}")
    message(FATAL_ERROR "CMAKE_INSTALL_${folder} must be relative to the prefix")
  endif()
endforeach()

set(pkgconfig_folder ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH HX_PREFIX_FROM_PKGCONFIG
  ${CMAKE_INSTALL_PREFIX}/${pkgconfig_folder} ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" HX_PREFIX_FROM_PKGCONFIG ${HX_PREFIX_FROM_PKGCONFIG})
foreach(name libhx_camera libhx_container)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/${name}.pc.in ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc
    DESTINATION ${pkgconfig_folder} COMPONENT development)
endforeach()

set(cmake_folder ${CMAKE_INSTALL_LIBDIR}/cmake/hx_camera)
install(EXPORT hx_cameraTargets NAMESPACE hx_camera:: FILE hx_cameraConfig.cmake
  DESTINATION ${cmake_folder} COMPONENT development)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/hx_cameraConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/hx_cameraConfigVersion.cmake
  DESTINATION ${cmake_folder} COMPONENT development)
