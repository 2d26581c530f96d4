# qvvoice_embed_texts(OUTPUT HEADER NAMESPACE TYPE FUNCTION [WITH_EXTENSION] file...)
# Writes OUTPUT, the source of a function NAMESPACE::FUNCTION() that returns every text of the list as
# {name, content} of TYPE, as declared in HEADER.
function(qvvoice_embed_texts output header namespace type function)
  cmake_parse_arguments(PARSE_ARGV 5 arg "WITH_EXTENSION" "" "")
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${arg_UNPARSED_ARGUMENTS})
  set(entries "")
  foreach(text IN LISTS arg_UNPARSED_ARGUMENTS)
    if(arg_WITH_EXTENSION)
      get_filename_component(name ${text} NAME)
    else()
      get_filename_component(name ${text} NAME_WE)
    endif()
    file(READ ${text} content)
    string(REGEX REPLACE "/[/*]# sourceMappingURL=[^\n]*" "" content "${content}") # maps of scripts stay out
    string(APPEND entries "    {\"${name}\", R\"~text~(${content})~text~\"},\n")
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
  set_source_files_properties(${output} PROPERTIES COMPILE_OPTIONS -Wno-overlength-strings)
endfunction()
