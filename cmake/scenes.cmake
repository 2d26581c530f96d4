# Writes OUTPUT, the source of scene::built_in(): every scenes/*.toml as it is.
function(qvvoice_embed_scenes output)
  file(GLOB texts CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/scenes/*.toml)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${texts})
  set(entries "")
  foreach(text IN LISTS texts)
    get_filename_component(name ${text} NAME_WE)
    file(READ ${text} content)
    string(APPEND entries "    {\"${name}\", R\"toml(${content})toml\"},\n")
  endforeach()
  file(CONFIGURE OUTPUT ${output} @ONLY CONTENT [[
#include "scene/scene.h"

namespace qv::tool::scene {

std::span<const BuiltIn> built_in() {
  static constexpr BuiltIn all[] = {
@entries@  };
  return all;
}

} // namespace qv::tool::scene
]])
endfunction()
