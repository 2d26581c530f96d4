# Presets: their texts become part of the tool, their packed form is made by the tool, both are installed.
file(GLOB preset_texts CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/presets/*.toml)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${preset_texts})

# Writes OUTPUT, the source of para::presets().
function(qvvoice_embed_presets output)
  set(entries "")
  foreach(text IN LISTS preset_texts)
    get_filename_component(name ${text} NAME_WE)
    file(READ ${text} content)
    string(APPEND entries "    {\"${name}\", R\"toml(${content})toml\"},\n")
  endforeach()
  file(CONFIGURE OUTPUT ${output} @ONLY CONTENT [[
#include "para/presets.h"

namespace qv::tool::para {

std::span<const Preset> presets() {
  static constexpr Preset all[] = {
@entries@  };
  return all;
}

} // namespace qv::tool::para
]])
endfunction()

# Packs every preset with the tool that has just been built.
function(qvvoice_pack_presets tool)
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
