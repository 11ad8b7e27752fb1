# What is installed beside the programs, and the Debian package made of it all (cpack -G DEB).
set(BUTNGAIN_CONTACT "butngain maintainers <maintainers@butngain.invalid>" CACHE STRING
  "Who answers for packages built here: name and address")
set(BUTNGAIN_PACKAGE_RELEASE 1)  # of the package, beside the version of the programs

# compressed(FILE NAME DESTINATION): installs a file as NAME.gz, without name and time of day inside,
# so that the same sources give the same package.
find_program(BUTNGAIN_GZIP gzip REQUIRED)
function(compressed file name destination)
  set(packed ${PROJECT_BINARY_DIR}/packed/${name}.gz)
  add_custom_command(OUTPUT ${packed}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/packed
    COMMAND sh -c "'${BUTNGAIN_GZIP}' -9 -n -c '${file}' > '${packed}'"
    DEPENDS ${file} VERBATIM)
  set_property(GLOBAL APPEND PROPERTY BUTNGAIN_PACKED ${packed})
  install(FILES ${packed} DESTINATION ${destination})
endfunction()

foreach(tool bpmsim kbpm_dump)
  if(TARGET ${tool})
    install(TARGETS ${tool} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endforeach()

file(GLOB pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/man/*.1)
foreach(page ${pages})
  get_filename_component(name ${page} NAME)
  compressed(${page} ${name} ${CMAKE_INSTALL_MANDIR}/man1)
endforeach()
configure_file(${PROJECT_SOURCE_DIR}/cmake/debian/changelog.in
  ${PROJECT_BINARY_DIR}/changelog.Debian @ONLY)
compressed(${PROJECT_BINARY_DIR}/changelog.Debian changelog.Debian ${CMAKE_INSTALL_DOCDIR})
compressed(${PROJECT_SOURCE_DIR}/CHANGELOG.md changelog ${CMAKE_INSTALL_DOCDIR})
get_property(packed GLOBAL PROPERTY BUTNGAIN_PACKED)
add_custom_target(packed_pages ALL DEPENDS ${packed})

install(FILES ${PROJECT_SOURCE_DIR}/completion/butngain
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/cmake/debian/copyright
  DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES ${PROJECT_SOURCE_DIR}/cmake/debian/lintian-overrides
  DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME butngain)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs DESTINATION ${CMAKE_INSTALL_DOCDIR})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME butngain)
set(CPACK_PACKAGE_CONTACT "${BUTNGAIN_CONTACT}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "button gains of beam position monitors from beam passages")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
  "Beam position monitors of a storage ring lie when the gains of their four
buttons differ. This program takes thousands of recorded beam passages, fits
the four relative gains of every monitor, and leaves data files, summary tables
and a plot from which the gains are corrected.
.
It comes with a simulator of beams, monitors and electronics, and with a viewer
of raw data files.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${BUTNGAIN_PACKAGE_RELEASE})
set(CPACK_DEBIAN_PACKAGE_SECTION science)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS fonts-dejavu-core)  # the plot's font
include(CPack)
