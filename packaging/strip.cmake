# Run by CPack on the files that go into the package: takes from the binaries what nobody needs to run them.
foreach(name sbin/hwreg ${CPACK_HWREG_LIBRARY})
  execute_process(COMMAND strip --remove-section=.comment --remove-section=.note
    "${CPACK_TEMPORARY_DIRECTORY}${CPACK_PACKAGING_INSTALL_PREFIX}/${name}" COMMAND_ERROR_IS_FATAL ANY)
endforeach()
