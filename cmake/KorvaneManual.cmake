# Builds and installs manual pages from scdoc sources.
find_program(SCDOC scdoc)
korvane_test_needs(SCDOC "scdoc is missing: the manual pages are not built")

function(korvane_add_manual page)
  if(NOT SCDOC)
    return()
  endif()
  set(source ${CMAKE_CURRENT_SOURCE_DIR}/${page}.scd)
  set(manual ${CMAKE_CURRENT_BINARY_DIR}/${page})
  add_custom_command(OUTPUT ${manual} DEPENDS ${source} VERBATIM
    COMMAND sh -c "exec \"$1\" <\"$2\" >\"$3\"" _ ${SCDOC} ${source} ${manual})
  add_custom_target(manual_${page} ALL DEPENDS ${manual})
  install(FILES ${manual} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endfunction()
