# Writes OUTPUT, the source of a function NAMESPACE::FUNCTION() that returns every text of the list as
# {name, content} of TYPE, as declared in HEADER.
function(qvvoice_embed_texts output header namespace type function)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${ARGN})
  set(entries "")
  foreach(text IN LISTS ARGN)
    get_filename_component(name ${text} NAME_WE)
    file(READ ${text} content)
    string(APPEND entries "    {\"${name}\", R\"toml(${content})toml\"},\n")
  endforeach()
  file(CONFIGURE OUTPUT ${output} @ONLY CONTENT [[
#include "@header@"

namespace @namespace@ {

std::span<const @type@> @function@() {
  static constexpr @type@ all[] = {
@entries@  };
  return all;
}

} // namespace @namespace@
]])
endfunction()
