# What is installed of the library: headers, both libraries, and how cmake and pkg-config find them.
include(CMakePackageConfigHelpers)

install(TARGETS butngain_shared
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library
  NAMELINK_COMPONENT development)
install(FILES ${static_library} DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/butngain DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  COMPONENT development FILES_MATCHING PATTERN *.hpp)

set(config_folder ${CMAKE_INSTALL_LIBDIR}/cmake/butngain)
configure_package_config_file(butngain-config.cmake.in butngain-config.cmake
  INSTALL_DESTINATION ${config_folder}
  PATH_VARS CMAKE_INSTALL_LIBDIR CMAKE_INSTALL_INCLUDEDIR)
# Before 1.0 a minor version may change what the headers say.
write_basic_package_version_file(butngain-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/butngain-config.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/butngain-config-version.cmake
  DESTINATION ${config_folder} COMPONENT development)

# The prefix is counted from the file itself, so that the tree can be installed anywhere.
file(RELATIVE_PATH BUTNGAIN_PC_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(butngain.pc.in butngain.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/butngain.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
