# What is installed where: `hwreg` for the machine under test, `hwreg-static` for those without a libc, `hwreg-sim` for
# the desk, `python3-hwreg` for scripts. Each is a component, and a package of the same name in debian/ and as rpm.
set(made ${CMAKE_BINARY_DIR}/packaging)

# compressed(SOURCE NAME FOLDER COMPONENT) installs SOURCE as FOLDER/NAME.gz, the same bytes each time. It is compressed
# when it is installed, whatever has been built before.
function(compressed source name folder component)
  set(file ${made}/${component}/${name}.gz)
  install(CODE "file(REMOVE \"${file}\")" COMPONENT ${component}) # another user's, who has installed before
  install(CODE "execute_process(COMMAND gzip -9 -n -c \"${source}\" OUTPUT_FILE \"${file}\" COMMAND_ERROR_IS_FATAL ANY)"
    COMPONENT ${component})
  install(FILES ${file} DESTINATION ${folder} COMPONENT ${component})
endfunction()

# manual(COMPONENT PAGE...) installs manual pages of docs/ in the section that their suffix names.
function(manual component)
  foreach(page ${ARGN})
    string(REGEX REPLACE ".*[.]" "" section ${page})
    compressed(${CMAKE_SOURCE_DIR}/docs/${page} ${page} share/man/man${section} ${component})
  endforeach()
endfunction()

set(components hwreg hwreg-sim python3-hwreg)
if(HWREG_STATIC)
  list(APPEND components hwreg-static)
endif()
foreach(component ${components})
  file(MAKE_DIRECTORY ${made}/${component})
  install(FILES debian/copyright DESTINATION share/doc/${component} COMPONENT ${component})
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
link(hwreg share/zsh/site-functions _hwreg _hwreg)
# The help screen sends its readers to ReadMe.doc.
install(FILES docs/commands.txt DESTINATION share/doc/hwreg RENAME ReadMe.doc COMPONENT hwreg)
install(FILES docs/installing.md docs/cookbook.md docs/foretold.md docs/power-cycling.md docs/fleets.md
  DESTINATION share/doc/hwreg COMPONENT hwreg)
install(PROGRAMS examples/cycle examples/registers DESTINATION share/doc/hwreg/examples COMPONENT hwreg)
install(FILES examples/cycle.service examples/registers.list DESTINATION share/doc/hwreg/examples COMPONENT hwreg)
manual(hwreg hwreg.8 hwreg-capture.8 hwreg-check.8)
if(HWREG_STATIC) # left out where nobody has built them yet
  install(TARGETS hwreg-static hwreg-capture-static hwreg-check-static RUNTIME DESTINATION sbin COMPONENT hwreg-static
    OPTIONAL)
  foreach(name hwreg hwreg-capture hwreg-check)
    compressed(${CMAKE_SOURCE_DIR}/docs/${name}.8 ${name}-static.8 share/man/man8 hwreg-static)
  endforeach()
endif()

# ---- the desk
# hwreg-sim finds the rest from where it lies itself.
install(PROGRAMS sim/hwreg-sim DESTINATION bin COMPONENT hwreg-sim)
install(TARGETS hwboard LIBRARY DESTINATION lib/hwreg COMPONENT hwreg-sim)
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
