# Run by CPack on the files that go into the packages: takes from the binaries what nobody needs to run them.
set(packages ${CPACK_TEMPORARY_DIRECTORY}/*${CPACK_PACKAGING_INSTALL_PREFIX})
file(GLOB files ${packages}/sbin/* ${packages}/lib/x86_64-linux-gnu/hwreg/*)
foreach(file ${files})
  execute_process(COMMAND strip --remove-section=.comment --remove-section=.note ${file} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
