#include "inspect/check.h"

#include "inspect/check_rules.h"

namespace qv::tool::inspect {

using namespace para;

namespace {

/// What the library makes of a value that it has no use for.
std::string effect_beyond(const Field &field, double value) {
  if (field.needs_mark())
    return fmt::format("it counts as {:g}", value < field.least ? field.least : field.greatest);
  if (field.is_switch())
    return field.section.starts_with("aec") ? "only 1 switches it on: it is off"
                                            : "anything but 0 switches it on: it is on";
  if (field.key == "half_taps")
    return value < 1 ? "the equaliser passes the signal unchanged"
                     : "it is cut to 129, so that the centre tap is another";
  if (field.key == "echo_delay")
    return value < 0 ? "it counts as 0" : "the history ends there: the filter hears nothing that it could cancel";
  if (field.key.starts_with("ramp_"))
    return "it counts as 0: the gain jumps from frame to frame";
  return fmt::format("it is taken as it is ({})", field.meaning);
}

void check_range(const Field &field, const Values &values, Findings &findings) {
  for (int32_t i = 0; i < field.count(values.rate()); ++i) {
    const double value = config::value_of(field, values.image(), i);
    if (value >= field.least && value <= field.greatest)
      continue;
    const std::string element = field.extent == config::Extent::scalar ? "" : fmt::format("value {}: ", i + 1);
    findings.push_back(
        {Severity::error, 0, path_of(field),
         fmt::format("{}{:g} lies outside {:g} .. {:g}{}{}; {}", element, value, field.least, field.greatest,
                     field.unit.empty() ? "" : " ", field.unit, effect_beyond(field, value))});
  }
}

void check_image(const Image &image, Findings &findings) {
  const int32_t rate = image[config::rate_word];
  if (!rate_served(rate))
    findings.push_back(
        {Severity::error, 0, "rate",
         fmt::format("word 0 is {}, not 8000 or 16000; the library refuses the file with status 2", rate)});
  else if (image[config::magic_word] != config::magic)
    findings.push_back({Severity::error, 0, "raw.9",
                        fmt::format("word 9 is {}, not {}; the library converts nothing and passes nothing on: the "
                                    "frames that it hands out stay as they were",
                                    image[config::magic_word], config::magic)});
}

} // namespace

Findings check(const Image &image) {
  Findings findings;
  check_image(image, findings);
  const Values values(image);
  if (!rate_served(values.rate()))
    return findings;
  for (const Field &field : config::fields)
    check_range(field, values, findings);
  check_echo_control(values, findings);
  check_echo_canceller(values, findings);
  check_double_talk(values, findings);
  check_noise(values, findings);
  for (const std::string path : {"tx", "rx"}) {
    check_gain_control(values, path + ".agc", findings);
    check_equaliser(values, path + ".eq", findings);
  }
  return findings;
}

Findings check_file(const ParaFile &file, std::optional<int32_t> rate) {
  Findings findings = file.log.findings();
  if (has_errors(findings))
    return findings;
  for (Finding &finding : check(file.image)) {
    finding.line = file.log.line_of(finding.key);
    findings.push_back(std::move(finding));
  }
  if (rate && file.image[config::rate_word] != *rate)
    findings.push_back({Severity::error, file.log.line_of("rate"), "rate",
                        fmt::format("the file is for {} Hz, not {} Hz; the library refuses it with status 2",
                                    file.image[config::rate_word], *rate)});
  return findings;
}

} // namespace qv::tool::inspect
