# Run by cpack when its packages are made: that of the shared library has scripts that call ldconfig,
# which Debian has a trigger for since long.
foreach(package ${CPACK_PACKAGE_FILES})
  get_filename_component(name ${package} NAME)
  if(name MATCHES "^libbutngain[0-9]+_")
    set(tree ${CPACK_TEMPORARY_DIRECTORY}-ldconfig)
    file(REMOVE_RECURSE ${tree})
    execute_process(COMMAND dpkg-deb -R ${package} ${tree} COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE ${tree}/DEBIAN/postinst ${tree}/DEBIAN/postrm)
    file(WRITE ${tree}/DEBIAN/triggers "activate-noawait ldconfig\n")
    execute_process(COMMAND dpkg-deb --root-owner-group -b ${tree} ${package}
      OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE_RECURSE ${tree})
  endif()
endforeach()
