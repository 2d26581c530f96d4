# cmake -DOUTPUT=... -DFILES=... -P embed.cmake: writes OUTPUT, the source of qv::packed_presets().
set(entries "")
foreach(file IN LISTS FILES)
  get_filename_component(name ${file} NAME_WE)
  file(READ ${file} bytes HEX)
  string(REGEX REPLACE "(..)" "0x\\1," bytes "${bytes}")
  string(APPEND entries "    {\"${name}\", {${bytes}}},\n")
endforeach()
file(CONFIGURE OUTPUT ${OUTPUT} @ONLY CONTENT [[
#include "packed_presets.h"

namespace qv {

std::span<const PackedPreset> packed_presets() {
  static constexpr PackedPreset all[] = {
@entries@  };
  return all;
}

} // namespace qv
]])
