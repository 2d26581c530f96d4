# Presets: packed by the tool that has just been built, and installed in both forms.

function(qvvoice_pack_presets tool)
  set(preset_texts ${ARGN})
  set(packed_files "")
  foreach(text IN LISTS preset_texts)
    get_filename_component(name ${text} NAME_WE)
    set(packed ${PROJECT_BINARY_DIR}/presets/${name}.para)
    add_custom_command(OUTPUT ${packed}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/presets
      COMMAND ${tool} para pack ${text} --out ${packed}
      DEPENDS ${tool} ${text} VERBATIM)
    list(APPEND packed_files ${packed})
  endforeach()
  add_custom_target(qvvoice_presets ALL DEPENDS ${packed_files})
  install(FILES ${preset_texts} ${packed_files} DESTINATION ${CMAKE_INSTALL_DATADIR}/qvvoice/presets COMPONENT tools)
endfunction()
