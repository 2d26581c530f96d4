/// @file check_rules.h  The rules of check(), by module.
#pragma once

#include <algorithm>
#include <string>
#include <utility>

#include <fmt/format.h>

#include "para/finding.h"
#include "para/words.h"

namespace qv::tool::inspect {

using para::Findings;
using para::Severity;
using para::Values;

/// Collects what the rules for one section find.
class SectionFindings {
public:
  SectionFindings(std::string section, Findings &findings) : section_(std::move(section)), findings_(findings) {}

  const std::string &section() const { return section_; }
  std::string path(const char *key) const { return fmt::format("{}.{}", section_, key); }

  template <class... Args> void note(const char *key, fmt::format_string<Args...> message, Args &&...args) {
    findings_.push_back({Severity::note, 0, path(key), fmt::format(message, std::forward<Args>(args)...)});
  }
  template <class... Args> void error(const char *key, fmt::format_string<Args...> message, Args &&...args) {
    findings_.push_back({Severity::error, 0, path(key), fmt::format(message, std::forward<Args>(args)...)});
  }
  template <class... Args> void warning(const char *key, fmt::format_string<Args...> message, Args &&...args) {
    findings_.push_back({Severity::warning, 0, path(key), fmt::format(message, std::forward<Args>(args)...)});
  }

private:
  std::string section_;
  Findings &findings_;
};

/// Whether the state-space canceller takes the other one's place: nobody hears of that one's fields then.
inline bool state_space_runs(const Values &values) {
  return values.on("aec.enable") && values.on("echo_control.enable");
}

void check_echo_control(const Values &values, Findings &findings);
void check_echo_canceller(const Values &values, Findings &findings);
void check_double_talk(const Values &values, Findings &findings);
void check_noise(const Values &values, Findings &findings); ///< noise reducers and comfort noise
void check_gain_control(const Values &values, const std::string &section, Findings &findings);
void check_equaliser(const Values &values, const std::string &section, Findings &findings);

} // namespace qv::tool::inspect
