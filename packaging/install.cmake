# What is installed where, and the Debian package (packaging/build makes it).
set(documents share/doc/hwreg)
set(made ${CMAKE_BINARY_DIR}/packaging)

# compressed(SOURCE NAME FOLDER) installs SOURCE as FOLDER/NAME.gz, the same bytes at every build.
function(compressed source name folder)
  add_custom_command(OUTPUT ${made}/${name}.gz
    COMMAND gzip -9 -n <${source} >${made}/${name}.gz DEPENDS ${source})
  set_property(GLOBAL APPEND PROPERTY installed_files ${made}/${name}.gz)
  install(FILES ${made}/${name}.gz DESTINATION ${folder})
endfunction()

file(MAKE_DIRECTORY ${made})
install(TARGETS hwreg RUNTIME DESTINATION sbin)
# bash looks for a completion by the command's name.
file(CREATE_LINK hwreg ${made}/hwreg-sim SYMBOLIC)
install(FILES completion/hwreg ${made}/hwreg-sim DESTINATION share/bash-completion/completions)
compressed(${CMAKE_SOURCE_DIR}/docs/hwreg.8 hwreg.8 share/man/man8)

# hwreg-sim finds the rest from where it lies itself.
install(PROGRAMS sim/hwreg-sim DESTINATION bin)
install(TARGETS hwboard LIBRARY DESTINATION lib/x86_64-linux-gnu/hwreg)
install(DIRECTORY sim/boards/ DESTINATION share/hwreg/boards)
compressed(${CMAKE_SOURCE_DIR}/docs/hwreg-sim.1 hwreg-sim.1 share/man/man1)
compressed(${CMAKE_SOURCE_DIR}/docs/hwreg-board.5 hwreg-board.5 share/man/man5)

# The help screen sends its readers to ReadMe.doc.
install(FILES docs/commands.txt DESTINATION ${documents} RENAME ReadMe.doc)
install(DIRECTORY docs/ DESTINATION ${documents} FILES_MATCHING PATTERN "*.md")

install(FILES packaging/copyright DESTINATION ${documents})
install(FILES packaging/lintian-overrides DESTINATION share/lintian/overrides RENAME hwreg)
compressed(${CMAKE_CURRENT_LIST_DIR}/changelog changelog ${documents})

get_property(installed_files GLOBAL PROPERTY installed_files)
add_custom_target(hwreg_documents ALL DEPENDS ${installed_files})

# ---- the Debian package
file(READ packaging/description description)
string(STRIP "${description}" description)

set(CPACK_GENERATOR DEB)
set(CPACK_SOURCE_GENERATOR "")
set(CPACK_PACKAGE_NAME hwreg)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/strip.cmake)
set(CPACK_HWREG_LIBRARY lib/x86_64-linux-gnu/hwreg/libhwboard.so)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "hwreg maintainers <maintainers@hwreg.example>")
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "register-level access to the hardware of a PC")
set(CPACK_PACKAGE_DESCRIPTION "${description}")
# libc is found from the binaries. kmod: modprobe msr; ncurses-bin: clear; the rest: shutdown.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "kmod, ncurses-bin (>= 6.2), systemd-sysv | sysvinit-core | runit-init")
# The processor that hwreg-sim lends to /SMN and /SMU.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS qemu-user)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "bash-completion, clustershell")
include(CPack)
