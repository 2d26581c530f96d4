#include "diagnose/diagnose.h"

#include <algorithm>
#include <map>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "diagnose/checks.h"

namespace qv::tool::diagnose {
namespace {

// Each before what it causes. A cause that makes others hard to measure comes first.
constexpr Check (*causes[])(const Evidence &) = {
    check_format,     check_length,         check_reference,
    check_microphone, check_same_recording, check_echo_present,
    check_drift,      check_order,          check_near_in_reference,
    check_reach,      check_steady_delay,   check_clipping,
    check_levels,     check_processed,      check_noise,
    check_bandwidth,  check_distortion,     check_gain_control,
    check_volume,     check_coupling,       check_canceller_on,
};
constexpr Check (*effects[])(const Evidence &) = {
    check_delay_found,
    check_filter,
    check_residual_echo,
    check_near_end,
};

std::string nothing_wrong(const std::vector<Check> &checks) {
  std::string verdict = "Nothing wrong found";
  if (const auto count = std::ranges::count(checks, State::unmeasured, &Check::state); count > 0)
    verdict += fmt::format(", but {} of {} checks could not be measured", count, checks.size());
  std::vector<std::string> notes;
  for (const Check &check : checks)
    if (check.state == State::note)
      notes.push_back(check.title);
  return verdict + (notes.empty() ? "." : fmt::format("; worth knowing: {}.", fmt::join(notes, ", ")));
}

void judge(Diagnosis &diagnosis) {
  const std::vector<Check> &checks = diagnosis.checks;
  const auto wrong = std::ranges::find(checks, State::wrong, &Check::state);
  if (wrong == checks.end()) {
    diagnosis.verdict = nothing_wrong(checks);
    diagnosis.sure = std::ranges::all_of(checks, [](const Check &check) { return check.state == State::ok; });
    return;
  }
  diagnosis.sure = wrong - checks.begin() < std::ssize(causes);
  diagnosis.verdict =
      fmt::format("{}: {}{}.", wrong->title, wrong->found, diagnosis.sure ? "" : "; no cause was found");
}

/// Words filled into lines, every line after a margin.
std::string wrapped(const std::string &text, size_t margin, size_t width) {
  std::string lines, line;
  const auto flush = [&] { lines += fmt::format("{:{}}{}\n", "", margin, line); };
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = std::min(text.find(' ', begin), text.size());
    const std::string word = text.substr(begin, end - begin);
    if (!line.empty() && margin + line.size() + 1 + word.size() > width) {
      flush();
      line.clear();
    }
    line += (line.empty() ? "" : " ") + word;
    begin = end + 1;
  }
  flush();
  return lines;
}

} // namespace

std::string to_string(State state) {
  switch (state) {
  case State::ok:
    return "ok";
  case State::note:
    return "note";
  case State::wrong:
    return "wrong";
  default:
    return "unmeasured";
  }
}

Diagnosis diagnose(const Evidence &evidence) {
  Diagnosis diagnosis;
  for (const auto check : causes)
    diagnosis.checks.push_back(check(evidence));
  for (const auto check : effects)
    diagnosis.checks.push_back(check(evidence));
  judge(diagnosis);
  diagnosis.state = std::ranges::max(diagnosis.checks, {}, &Check::state).state;
  return diagnosis;
}

nlohmann::ordered_json to_json(const Diagnosis &diagnosis) {
  auto checks = nlohmann::ordered_json::array();
  for (const Check &check : diagnosis.checks)
    checks.push_back({{"name", check.name},
                      {"title", check.title},
                      {"state", to_string(check.state)},
                      {"found", check.found},
                      {"limit", check.limit},
                      {"next", check.next},
                      {"numbers", check.numbers}});
  return {{"verdict", diagnosis.verdict},
          {"sure", diagnosis.sure},
          {"state", to_string(diagnosis.state)},
          {"checks", checks}};
}

std::string to_text(const Diagnosis &diagnosis, size_t width) {
  static const std::map<State, std::string> marks = {
      {State::ok, "ok"}, {State::note, "NOTE"}, {State::wrong, "WRONG"}, {State::unmeasured, "--"}};
  constexpr size_t margin = 7;
  std::string text = wrapped(diagnosis.verdict, 0, width) + "\n";
  for (const Check &check : diagnosis.checks) {
    text += fmt::format("{:{}}{}\n", marks.at(check.state), margin, check.title);
    text += wrapped(fmt::format("{} (limit: {})", check.found, check.limit), margin, width);
    if (!check.next.empty())
      text += wrapped("> " + check.next, margin, width);
  }
  return text;
}

} // namespace qv::tool::diagnose
