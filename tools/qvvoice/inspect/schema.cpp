#include <fmt/format.h>

#include "inspect/reference.h"
#include "para/keys.h"
#include "para/presets.h"
#include "para/words.h"

namespace qv::tool::inspect {

using namespace para;

namespace {

using Json = nlohmann::ordered_json;

Json value_schema(const Field &field) {
  if (field.is_switch())
    return {{"type", "boolean"}};
  const Json number = {{"type", field.encoding == config::Encoding::integer || field.encoding == config::Encoding::int16
                                    ? "integer"
                                    : "number"},
                       {"minimum", field.least},
                       {"maximum", field.greatest}};
  if (field.unit != "samples")
    return number;
  return {{"anyOf", {number, {{"type", "string"}, {"pattern", "^ *[0-9.]+ *ms *$"}}}}};
}

Json field_schema(const Field &field) {
  Json schema = field.extent == config::Extent::scalar
                    ? value_schema(field)
                    : Json{{"type", "array"}, {"items", value_schema(field)}, {"maxItems", field.count(16000)}};
  if (field.extent == config::Extent::groups)
    schema["minItems"] = field.count(8000);
  schema["description"] = fmt::format("{}{}", field.unit.empty() ? "" : fmt::format("{}: ", field.unit), field.meaning);
  return schema;
}

Json key_schema(const TextKey &key) {
  Json schema = {{"type", key.type}, {"description", key.meaning}};
  if (key.key == "rate")
    schema["enum"] = {8000, 16000};
  else if (key.key == "frame_ms")
    schema["enum"] = {16, 20};
  else if (key.key == "base")
    schema["enum"] = preset_names();
  return schema;
}

Json closed_object(const std::string &title) {
  return {{"type", "object"}, {"description", title}, {"properties", Json::object()}, {"additionalProperties", false}};
}

Json section_schema(const config::Section &section) {
  Json schema = closed_object(std::string(section.title));
  for (const Field &field : config::fields)
    if (field.section == section.name)
      schema["properties"][std::string(field.key)] = field_schema(field);
  for (const TextKey &key : text_keys)
    if (!key.section.empty() && section.name.ends_with(fmt::format(".{}", key.section)))
      schema["properties"][std::string(key.key)] = key_schema(key);
  return schema;
}

} // namespace

Json text_schema() {
  Json root = {{"$schema", "http://json-schema.org/draft-07/schema#"}, {"title", "QV Voice parameters"}};
  root.update(closed_object("Parameters of the speech-processing library"));
  Json &properties = root["properties"];
  for (const TextKey &key : text_keys)
    if (key.section.empty())
      properties[std::string(key.key)] = key_schema(key);
  for (const config::Section &section : config::sections) {
    const size_t dot = section.name.find('.');
    const std::string outer(section.name.substr(0, dot));
    if (dot == section.name.npos)
      properties[outer] = section_schema(section);
    else {
      if (!properties.contains(outer))
        properties[outer] = closed_object(outer == "tx" ? "Transmit path" : "Receive path");
      properties[outer]["properties"][std::string(section.name.substr(dot + 1))] = section_schema(section);
    }
  }
  properties[std::string(raw_section)] = {
      {"type", "object"},
      {"description", "words that no field reads, by their number"},
      {"additionalProperties", {{"type", "integer"}, {"minimum", INT16_MIN}, {"maximum", INT16_MAX}}}};
  return root;
}

} // namespace qv::tool::inspect
