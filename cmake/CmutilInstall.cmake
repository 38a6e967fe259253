# Installs the library, its headers, a CMake package (cmutil::cmutil) and a pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS cmutil EXPORT cmutilTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/cmutil DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN "*.h")
install(EXPORT cmutilTargets NAMESPACE cmutil:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/cmutil)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/cmutilConfig.cmake.in
  ${PROJECT_BINARY_DIR}/cmutilConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/cmutil)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/cmutilConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/cmutilConfig.cmake ${PROJECT_BINARY_DIR}/cmutilConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/cmutil)

# The pkg-config file finds the prefix relative to its own folder.
file(RELATIVE_PATH CMUTIL_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" CMUTIL_PC_TO_PREFIX "${CMUTIL_PC_TO_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/cmutil.pc.in ${PROJECT_BINARY_DIR}/cmutil.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/cmutil.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
