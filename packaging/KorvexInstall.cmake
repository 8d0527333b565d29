# Install helpers shared by every program of the package (Debian layout).
#   korvex_install_program(<target>)            the program in bin/, on PATH
#   korvex_add_man_page(<file>)                 NAME.N or NAME.N.in (@PROJECT_VERSION@
#                                               substituted), or a page generated in the
#                                               build tree; gzipped into share/man/manN/
#   korvex_add_bash_completion(<command> <file>) FILE (.in substituted the same way)
#                                               as the completion of COMMAND
include(GNUInstallDirs)

# The shell finds its plug-ins and korvex.ini beside itself, so the three live together.
set(KORVEX_APP_DIR lib/korvex-shell)
set(KORVEX_COMPLETION_DIR ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)

function(korvex_install_program target)
  install(TARGETS ${target} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endfunction()

# A source file as it goes into the package: .in files are configured into the build tree.
function(_korvex_configured file result)
  get_filename_component(path ${file} ABSOLUTE)
  get_filename_component(name ${path} NAME)
  if(name MATCHES "^(.*)\\.in$")
    set(name ${CMAKE_MATCH_1})
    configure_file(${path} ${CMAKE_CURRENT_BINARY_DIR}/${name} @ONLY)
    set(path ${CMAKE_CURRENT_BINARY_DIR}/${name})
  endif()
  set(${result} ${path} PARENT_SCOPE)
endfunction()

function(korvex_add_man_page file)
  _korvex_configured(${file} page)
  get_filename_component(name ${page} NAME)
  if(NOT name MATCHES "\\.([1-9])$")
    message(FATAL_ERROR "${file}: a manual page is named NAME.SECTION")
  endif()
  set(section ${CMAKE_MATCH_1})
  # gzip -n leaves name and time out, so the package is the same on every build.
  set(staged ${CMAKE_CURRENT_BINARY_DIR}/man/${name})
  add_custom_command(OUTPUT ${staged}.gz
    COMMAND ${CMAKE_COMMAND} -E copy ${page} ${staged}
    COMMAND gzip -9nf ${staged}
    DEPENDS ${page} VERBATIM)
  add_custom_target(man-${name} ALL DEPENDS ${staged}.gz)
  install(FILES ${staged}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
endfunction()

function(korvex_add_bash_completion command file)
  _korvex_configured(${file} script)
  install(FILES ${script} DESTINATION ${KORVEX_COMPLETION_DIR} RENAME ${command})
endfunction()
