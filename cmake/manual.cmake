# Manual pages and shell completion, written by the tool that has just been built.

function(qvvoice_install_manual tool)
  set(folder ${PROJECT_BINARY_DIR}/manual)
  add_custom_command(OUTPUT ${folder}/qvvoice.1.gz
    COMMAND ${CMAKE_COMMAND} -E rm -rf ${folder}
    COMMAND ${tool} manual --out ${folder}
    COMMAND sh -c "gzip -9nf ${folder}/*.1"
    DEPENDS ${tool} VERBATIM)
  add_custom_target(qvvoice_manual ALL DEPENDS ${folder}/qvvoice.1.gz)
  install(DIRECTORY ${folder}/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools FILES_MATCHING PATTERN "*.1.gz")
  install(FILES ${folder}/qvvoice.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME qvvoice
    COMPONENT tools)
endfunction()
