#include "call/setup.h"

#include <algorithm>
#include <cstdio>
#include <set>

#include "inspect/check.h"
#include "para/para_file.h"
#include "para/presets.h"
#include "support/error.h"

namespace qv::tool {

using namespace qv::config;

void check_layout(int rate, int frame_ms) {
  if (!rate_served(rate))
    throw InputError("rate: {} Hz is not served; 8000 or 16000 is", rate);
  if (!std::ranges::count(served_frame_ms, frame_ms))
    throw InputError("frame: {} ms is not served; 16 or 20 is", frame_ms);
}

Image read_image(const std::string &name) {
  const Image image = para::load_valid(name).image;
  if (image[magic_word] != magic)
    throw InputError("{}: not a parameter file: word {} is {}; {} is needed", name, magic_word, image[magic_word],
                     magic);
  return image;
}

void warn_about(const std::string &name) {
  static std::set<std::string> told;
  const size_t errors = count(inspect::check_file(para::load(name)), para::Severity::error);
  if (errors > 0 && told.insert(name).second)
    fmt::print(stderr, "qvvoice: {} error{} in {}: see `qvvoice para check {}`\n", errors, errors == 1 ? "" : "s", name,
               name);
}

Setup setup_of(const Image &para, std::string source, int rate, int frame_ms) {
  check_layout(rate, frame_ms);
  if (para[rate_word] != rate)
    throw InputError(
        "{}: parameter file is for {} Hz (word {}), the run is at {} Hz; give a file for {} Hz, or another --rate",
        source, para[rate_word], rate_word, rate, rate);
  return {para, std::move(source), rate, frame_length(rate, frame_ms)};
}

Setup make_setup(const std::optional<std::string> &para, int rate, int frame_ms) {
  check_layout(rate, frame_ms);
  const std::string name = para.value_or(para::preset_of(para::default_family, rate, frame_length(rate, frame_ms)));
  Setup setup = setup_of(read_image(name), name, rate, frame_ms);
  warn_about(name);
  return setup;
}

} // namespace qv::tool
