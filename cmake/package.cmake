# What is installed beside the programs, and the Debian packages made of it all (cpack -G DEB): one
# for each component, program, library, development and python.
set(BUTNGAIN_CONTACT "butngain maintainers <maintainers@butngain.invalid>" CACHE STRING
  "Who answers for packages built here: name and address")
set(BUTNGAIN_PACKAGE_RELEASE 1)  # of the package, beside the version of the programs

# packed_file(FILE NAME): makes packed/NAME.gz of it, without name and time of day inside, so that the
# same sources give the same package. compressed(FILE NAME DESTINATION) installs that too.
find_program(BUTNGAIN_GZIP gzip REQUIRED)
function(packed_file file name)
  set(packed ${PROJECT_BINARY_DIR}/packed/${name}.gz)
  add_custom_command(OUTPUT ${packed}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/packed
    COMMAND sh -c "'${BUTNGAIN_GZIP}' -9 -n -c '${file}' > '${packed}'"
    DEPENDS ${file} VERBATIM)
  set_property(GLOBAL APPEND PROPERTY BUTNGAIN_PACKED ${packed})
endfunction()
function(compressed file name destination)
  packed_file(${file} ${name})
  install(FILES ${PROJECT_BINARY_DIR}/packed/${name}.gz DESTINATION ${destination})
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
packed_file(${PROJECT_BINARY_DIR}/changelog.Debian changelog.Debian)
packed_file(${PROJECT_SOURCE_DIR}/CHANGELOG.md changelog)
get_property(packed GLOBAL PROPERTY BUTNGAIN_PACKED)
add_custom_target(packed_pages ALL DEPENDS ${packed})

install(FILES ${PROJECT_SOURCE_DIR}/completion/butngain
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs DESTINATION ${CMAKE_INSTALL_DOCDIR})

# debian_package(COMPONENT NAME SECTION DESCRIPTION): what every package has.
set(CPACK_COMPONENTS_ALL "")
function(debian_package component name section description)
  set(doc ${CMAKE_INSTALL_DATADIR}/doc/${name})
  set(LINTIAN_PACKAGE ${name})
  configure_file(${PROJECT_SOURCE_DIR}/cmake/debian/lintian-overrides
    ${PROJECT_BINARY_DIR}/lintian/${name} @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/lintian/${name}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides COMPONENT ${component})
  install(FILES ${PROJECT_SOURCE_DIR}/cmake/debian/copyright DESTINATION ${doc}
    COMPONENT ${component})
  install(FILES ${PROJECT_BINARY_DIR}/packed/changelog.Debian.gz
    ${PROJECT_BINARY_DIR}/packed/changelog.gz DESTINATION ${doc} COMPONENT ${component})
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} PARENT_SCOPE)
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name} PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${description}" PARENT_SCOPE)
endfunction()
set(this_version "(= ${PROJECT_VERSION}-${BUTNGAIN_PACKAGE_RELEASE})")

debian_package(program butngain science
"button gains of beam position monitors from beam passages
Beam position monitors of a storage ring lie when the gains of their four
buttons differ. This program takes thousands of recorded beam passages, fits
the four relative gains of every monitor, and leaves data files, summary tables
and a plot from which the gains are corrected.
.
It comes with a simulator of beams, monitors and electronics, and with a viewer
of raw data files.")
set(CPACK_DEBIAN_PROGRAM_PACKAGE_RECOMMENDS fonts-dejavu-core)  # the plot's font
set(CPACK_DEBIAN_PROGRAM_PACKAGE_SUGGESTS "parallel, slurm-client")  # engines of many runs

debian_package(library libbutngain${BUTNGAIN_SOVERSION} libs
"button gains of beam position monitors (shared library)
Reads raw data files of beam position monitors, finds positions by lookup
tables of a vacuum chamber, fits and calibrates the gains of the four buttons,
and simulates their readings.")

debian_package(development libbutngain-dev libdevel
"button gains of beam position monitors (development files)
Headers, static library and examples of a library that reads raw data files of
beam position monitors, finds positions, fits and calibrates the gains of the
four buttons, and simulates their readings.")
# What the static library is linked with comes along.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "libbutngain${BUTNGAIN_SOVERSION} ${this_version}, libfmt-dev, liblapack-dev")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/library/
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libbutngain-dev/examples COMPONENT development)

if(TARGET butngain_python)
  debian_package(python python3-butngain python
"button gains of beam position monitors (Python module)
Raw data files of beam position monitors as numpy arrays; positions by lookup
tables of a vacuum chamber; fits and calibration of the gains of the four
buttons; and a simulator of their readings.")
  math(EXPR next_python "${Python_VERSION_MINOR} + 1")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
    "libbutngain${BUTNGAIN_SOVERSION} ${this_version}, python3-numpy, \
python3 (>= 3.${Python_VERSION_MINOR}), python3 (<< 3.${next_python})")
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME butngain)
set(CPACK_PACKAGE_CONTACT "${BUTNGAIN_CONTACT}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${BUTNGAIN_PACKAGE_RELEASE})
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src/library)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debian/ldconfig_trigger.cmake)
include(CPack)
