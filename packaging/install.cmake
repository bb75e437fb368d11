# What is installed where, and the Debian packages (packaging/build makes them): `hwreg` for the machine under test,
# `hwreg-sim` for the desk, `python3-hwreg` for scripts. Each is a component of the same name, in the package's words.
set(made ${CMAKE_BINARY_DIR}/packaging)

# compressed(SOURCE NAME FOLDER COMPONENT) installs SOURCE as FOLDER/NAME.gz, the same bytes at every build.
function(compressed source name folder component)
  add_custom_command(OUTPUT ${made}/${component}/${name}.gz
    COMMAND gzip -9 -n <${source} >${made}/${component}/${name}.gz DEPENDS ${source})
  set_property(GLOBAL APPEND PROPERTY installed_files ${made}/${component}/${name}.gz)
  install(FILES ${made}/${component}/${name}.gz DESTINATION ${folder} COMPONENT ${component})
endfunction()

# manual(COMPONENT PAGE...) installs manual pages of docs/ in the section that their suffix names.
function(manual component)
  foreach(page ${ARGN})
    string(REGEX REPLACE ".*[.]" "" section ${page})
    compressed(${CMAKE_SOURCE_DIR}/docs/${page} ${page} share/man/man${section} ${component})
  endforeach()
endfunction()

foreach(component hwreg hwreg-sim python3-hwreg)
  file(MAKE_DIRECTORY ${made}/${component})
  install(FILES packaging/copyright DESTINATION share/doc/${component} COMPONENT ${component})
  if(EXISTS ${CMAKE_CURRENT_LIST_DIR}/${component}.lintian-overrides)
    install(FILES packaging/${component}.lintian-overrides DESTINATION share/lintian/overrides RENAME ${component}
      COMPONENT ${component})
  endif()
  compressed(${CMAKE_CURRENT_LIST_DIR}/changelog changelog share/doc/${component} ${component})
endforeach()

# link(COMPONENT FOLDER NAME FILE) installs FOLDER/NAME as a link to a file of share/hwreg/completion.
function(link component folder name file)
  file(CREATE_LINK ../../hwreg/completion/${file} ${made}/${component}/${file} SYMBOLIC)
  install(FILES ${made}/${component}/${file} DESTINATION ${folder} RENAME ${name} COMPONENT ${component})
endfunction()

# completion(COMPONENT COMMAND...): bash and fish look for a completion by the command's name; all are in hwreg's.
function(completion component)
  foreach(command ${ARGN})
    link(${component} share/bash-completion/completions ${command} hwreg)
    link(${component} share/fish/vendor_completions.d ${command}.fish hwreg.fish)
  endforeach()
endfunction()

# ---- the target
install(TARGETS hwreg hwreg-capture hwreg-check RUNTIME DESTINATION sbin COMPONENT hwreg)
# Each shell's file finds what it asks beside itself. zsh's names the commands.
install(DIRECTORY completion/ DESTINATION share/hwreg/completion COMPONENT hwreg)
completion(hwreg hwreg hwreg-check)
link(hwreg share/zsh/vendor-completions _hwreg _hwreg)
# The help screen sends its readers to ReadMe.doc.
install(FILES docs/commands.txt DESTINATION share/doc/hwreg RENAME ReadMe.doc COMPONENT hwreg)
install(FILES docs/cookbook.md docs/foretold.md docs/power-cycling.md docs/fleets.md DESTINATION share/doc/hwreg
  COMPONENT hwreg)
install(PROGRAMS examples/cycle examples/registers DESTINATION share/doc/hwreg/examples COMPONENT hwreg)
install(FILES examples/cycle.service examples/registers.list DESTINATION share/doc/hwreg/examples COMPONENT hwreg)
manual(hwreg hwreg.8 hwreg-capture.8 hwreg-check.8)

# ---- the desk
# hwreg-sim finds the rest from where it lies itself.
install(PROGRAMS sim/hwreg-sim DESTINATION bin COMPONENT hwreg-sim)
install(TARGETS hwboard LIBRARY DESTINATION lib/x86_64-linux-gnu/hwreg COMPONENT hwreg-sim)
install(DIRECTORY sim/boards/ DESTINATION share/hwreg/boards COMPONENT hwreg-sim)
# So does hwreg-board with its modules.
install(PROGRAMS tools/hwreg-board DESTINATION bin COMPONENT hwreg-sim)
install(DIRECTORY tools/hwregboard DESTINATION share/hwreg COMPONENT hwreg-sim FILES_MATCHING PATTERN "*.py"
  PATTERN __pycache__ EXCLUDE)
completion(hwreg-sim hwreg-sim hwreg-board)
install(FILES docs/boards.md docs/machine-on-the-desk.md DESTINATION share/doc/hwreg-sim COMPONENT hwreg-sim)
manual(hwreg-sim hwreg-sim.1 hwreg-board.1 hwreg-board.5)

# ---- scripts
set(packages lib/python3/dist-packages)
install(DIRECTORY python/hwreg DESTINATION ${packages} COMPONENT python3-hwreg FILES_MATCHING PATTERN "*.py"
  PATTERN py.typed PATTERN __pycache__ EXCLUDE)
configure_file(python/dist-info/METADATA.in ${made}/python3-hwreg/METADATA @ONLY)
install(FILES ${made}/python3-hwreg/METADATA python/dist-info/entry_points.txt
  DESTINATION ${packages}/hwreg-${PROJECT_VERSION}.dist-info COMPONENT python3-hwreg)
install(FILES docs/python.md docs/labs.md DESTINATION share/doc/python3-hwreg COMPONENT python3-hwreg)

get_property(installed_files GLOBAL PROPERTY installed_files)
add_custom_target(hwreg_documents ALL DEPENDS ${installed_files})

# ---- the Debian packages
set(CPACK_GENERATOR DEB)
set(CPACK_SOURCE_GENERATOR "")
set(CPACK_PACKAGE_NAME hwreg)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/strip.cmake)
set(CPACK_COMPONENTS_ALL hwreg hwreg-sim python3-hwreg)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "hwreg maintainers <maintainers@hwreg.example>")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON) # libc is found from the binaries

# package(COMPONENT SECTION SUMMARY) names a package; its description is packaging/COMPONENT.description.
macro(package component section summary)
  string(TOUPPER ${component} upper)
  file(READ packaging/${component}.description description)
  string(STRIP "${description}" description)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${component})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${summary}\n${description}")
endmacro()

package(hwreg admin "register-level access to the hardware of a PC")
# kmod: modprobe msr; ncurses-bin: clear; the rest: shutdown.
set(CPACK_DEBIAN_HWREG_PACKAGE_DEPENDS
  "kmod, ncurses-bin (>= 6.2), systemd-sysv | sysvinit-core | runit-init")
set(CPACK_DEBIAN_HWREG_PACKAGE_SUGGESTS "bash-completion, clustershell, hwreg-sim")

package(hwreg-sim devel "machines of text files to run hwreg on")
set(CPACK_DEBIAN_HWREG-SIM_PACKAGE_DEPENDS "hwreg (= ${PROJECT_VERSION}), python3 (>= 3.11)")
set(CPACK_DEBIAN_HWREG-SIM_PACKAGE_SUGGESTS "acpica-tools, bash-completion, dmidecode, pciutils")

package(python3-hwreg python "registers of a PC for Python scripts and pytest")
set(CPACK_DEBIAN_PYTHON3-HWREG_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON3-HWREG_PACKAGE_DEPENDS "python3 (>= 3.11)")
set(CPACK_DEBIAN_PYTHON3-HWREG_PACKAGE_RECOMMENDS hwreg)
set(CPACK_DEBIAN_PYTHON3-HWREG_PACKAGE_SUGGESTS "hwreg-sim, openssh-client, python3-labgrid, python3-pytest")
set(CPACK_DEBIAN_PYTHON3-HWREG_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_LIST_DIR}/python3-hwreg/postinst ${CMAKE_CURRENT_LIST_DIR}/python3-hwreg/prerm)
include(CPack)
