#include "parameters.h"

#include "para/para_file.h"
#include "para/presets.h"
#include "para/text_reader.h"
#include "support/error.h"

namespace qv::gst {

using namespace tool;

namespace {

config::Image from_text(const std::string &text) {
  const para::ReadText read = para::read_text(text, ".");
  for (const para::Finding &finding : read.log.findings())
    if (finding.severity == para::Severity::error)
      throw InputError("{}", to_string(finding, "text"));
  return read.image;
}

} // namespace

template <class Load> std::string Parameters::take(const Load &load) try {
  const config::Image image = load();
  if (image[config::magic_word] != config::magic || !rate_served(image[config::rate_word]))
    return "no parameter file: word 0 must be 8000 or 16000, word 9 1111";
  words_ = image;
  return "";
} catch (const std::exception &error) {
  return error.what();
}

std::string Parameters::set_preset(const std::string &name) {
  if (para::find_preset(name))
    return take([&] { return para::load_valid(name).image; });
  std::string names;
  for (const std::string &known : para::preset_names())
    names += (names.empty() ? "" : ", ") + known;
  return fmt::format("there is no preset \"{}\"; there are {}", name, names);
}

std::string Parameters::set_parameters(const std::string &file_or_text) {
  const bool text = file_or_text.find('\n') != std::string::npos;
  return take([&] { return text ? from_text(file_or_text) : para::load_valid(file_or_text).image; });
}

config::Image Parameters::words(int rate, int frame_length) const {
  return words_ ? *words_ : para::load_valid(para::preset_of(para::default_family, rate, frame_length)).image;
}

} // namespace qv::gst
