#include "parameters.h"

namespace qv::tool {
namespace {

const std::string names_of_option = "--para,--preset";
constexpr const char *forms = ": a preset (qvvoice presets lists them), or a parameter file, as text or packed";

} // namespace

CLI::Option *add_parameters(CLI::App &verb, std::optional<std::string> &name, const std::string &meaning,
                            const std::string &also) {
  return verb.add_option(names_of_option + (also.empty() ? "" : "," + also), name, meaning + forms)
      ->type_name(parameters_type);
}

CLI::Option *add_parameters(CLI::App &verb, std::vector<std::string> &names, const std::string &meaning) {
  return verb.add_option(names_of_option, names, meaning + forms)->type_name(parameters_type);
}

Setup setup_for(const std::vector<std::string> &para, int rate, int frame_ms) {
  for (const std::string &name : para)
    if (read_image(name)[config::rate_word] == rate)
      return make_setup(name, rate, frame_ms);
  return make_setup(para.empty() ? std::nullopt : std::optional(para[0]), rate, frame_ms);
}

} // namespace qv::tool
