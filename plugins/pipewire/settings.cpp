#include "settings.h"

#include <spa/utils/dict.h>

#include <stdexcept>
#include <string_view>

namespace qv::pipewire {

namespace {

/// One of two numbers.
int choice(std::string_view key, std::string_view found, int first, int second) {
  for (const int allowed : {first, second})
    if (found == std::to_string(allowed))
      return allowed;
  throw std::invalid_argument(std::string(key) + " = " + std::string(found) + ": it must be " + std::to_string(first) +
                              " or " + std::to_string(second));
}

} // namespace

Settings read_settings(const spa_dict *args) {
  Settings settings;
  for (uint32_t i = 0; args && i < args->n_items; ++i) {
    const std::string_view key = args->items[i].key;
    const std::string_view value = args->items[i].value ? args->items[i].value : "";
    if (key == "rate")
      settings.rate = choice(key, value, 8000, 16000);
    else if (key == "frame_ms")
      settings.frame_ms = choice(key, value, 16, 20);
    else if (key == "parameters")
      settings.parameters = value;
    else
      throw std::invalid_argument("aec.args has no \"" + std::string(key) + "\": there are rate, frame_ms, parameters");
  }
  return settings;
}

} // namespace qv::pipewire
