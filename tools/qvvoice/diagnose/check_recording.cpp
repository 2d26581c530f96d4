// How the two are recorded: clipping, levels, and what has been done to the microphone before.

#include "diagnose/checks.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "signal/activity.h"

namespace qv::tool::diagnose {
namespace {

/// Number or null.
nlohmann::json or_null(const std::optional<double> &value) { return value ? nlohmann::json(*value) : nullptr; }

/// Samples in flat tops: runs of three or more at the highest value of their sign.
size_t flat_top_samples(const Samples &samples) {
  if (samples.empty())
    return 0;
  const auto [low, high] = std::ranges::minmax(samples);
  size_t flat = 0;
  for (size_t i = 0; i < samples.size();) {
    size_t end = i + 1;
    while (end < samples.size() && samples[end] == samples[i])
      ++end;
    if (end - i >= 3 && samples[i] != 0 && (samples[i] == low || samples[i] == high))
      flat += end - i;
    i = end;
  }
  return flat;
}

/// Frames of 10 ms between the first and the last that is not digital silence.
struct QuietParts {
  double silent_share = 0;        ///< frames of digital silence
  size_t gaps = 0;                ///< runs of them
  std::optional<double> floor_db; ///< level of the quietest twentieth of the other frames, dBov
};

QuietParts quiet_parts(SignalView mic, int rate) {
  const std::vector<double> powers = frame_powers(mic, rate);
  const auto sound = [](double power) { return power > 0; };
  const auto begin = std::ranges::find_if(powers, sound);
  const auto end = std::find_if(powers.rbegin(), powers.rend(), sound).base();
  QuietParts parts;
  if (begin >= end)
    return parts;
  std::vector<double> loud;
  for (auto power = begin; power < end; ++power) {
    if (sound(*power))
      loud.push_back(*power);
    else
      parts.gaps += sound(power[-1]);
  }
  parts.silent_share = 1 - double(loud.size()) / double(end - begin);
  parts.floor_db = to_db(quantile(loud, 0.05));
  return parts;
}

} // namespace

Check check_clipping(const Evidence &evidence) {
  constexpr double most_ppm = 100; // one flat top of ten samples in six seconds
  const auto ppm = [](const Samples &samples) {
    return samples.empty() ? 0 : 1e6 * double(flat_top_samples(samples)) / double(samples.size());
  };
  const double mic = ppm(evidence.mic_samples), ref = ppm(evidence.ref_samples);
  Check check{"clipping", "Clipping"};
  check.numbers = {{"mic_ppm", mic}, {"ref_ppm", ref}};
  check.limit = fmt::format("{:.0f} samples per million in flat tops", most_ppm);
  check.found = fmt::format("microphone {:.0f}, reference {:.0f} samples per million", mic, ref);
  check.state = mic > most_ppm ? State::wrong : ref > most_ppm ? State::note : State::ok;
  if (check.state == State::wrong) {
    check.found = "the microphone clips: " + check.found;
    check.next = "Lower the microphone's gain before the converter, or the loudspeaker: a clipped echo cannot be "
                 "cancelled linearly.";
  } else if (check.state == State::note) {
    check.next = "The reference clips. That is harmless only if the loudspeaker plays the clipped signal: then it is "
                 "taken at the right place.";
  }
  return check;
}

Check check_levels(const Evidence &evidence) {
  constexpr double quiet = -46, loud = -10; // dBov: 20 dB below and 16 dB above the nominal speech level
  constexpr double lost = -56;              // dBov: of 16 bits fewer than 8 are used
  constexpr double most_missed = 0.1;
  const auto mic = active_level_db(evidence.mic, evidence.setup.rate);
  const auto ref = active_level_db(evidence.ref, evidence.setup.rate);
  Check check{"levels", "Levels"};
  check.numbers = {{"mic_dbov", or_null(mic)}, {"ref_dbov", or_null(ref)}, {"ref_missed_share", nullptr}};
  check.limit = fmt::format("active levels of {:.0f} to {:.0f} dBov", quiet, loud);
  if (!mic || !ref) {
    check.found = fmt::format("could not be measured: {} is silent", mic ? "the reference" : "the microphone");
    return check;
  }
  const std::vector<bool> talking = activity(evidence.ref, evidence.setup.rate);
  const double active = double(std::ranges::count(talking, true)) * frame_seconds;
  const double missed = active > 0 ? std::max(1 - evidence.ref_active_seconds / active, 0.0) : 0;
  check.numbers["ref_missed_share"] = missed;
  check.found = fmt::format("microphone {:.1f}, reference {:.1f} dBov", *mic, *ref);
  const auto fits = [](double level) { return level >= quiet && level <= loud; };
  const bool lowest = std::min(*mic, *ref) < lost;
  check.state = missed > most_missed || lowest ? State::wrong : fits(*mic) && fits(*ref) ? State::ok : State::note;
  if (lowest) {
    check.found = fmt::format("the {} is far too quiet: {}", *mic < *ref ? "microphone" : "reference", check.found);
    check.next = "Raise its gain where it is converted or recorded: too few of the 16 bits are used.";
  } else if (check.state == State::wrong) {
    check.found += fmt::format("; the library takes {:.0f} % of the reference's speech for silence", 100 * missed);
    check.next = evidence.state_space() ? "Raise the reference to the level at which the loudspeaker plays: nothing is "
                                          "learnt from what counts as silence."
                                        : "Raise the reference to the level at which the loudspeaker plays, or lower "
                                          "aec.double_talk.far_active_peak: echo of "
                                          "what counts as silence passes.";
  } else if (check.state == State::note) {
    check.next = "Set the gains so that speech lies near -26 dBov: too quiet loses resolution, too loud clips.";
  }
  return check;
}

Check check_processed(const Evidence &evidence) {
  constexpr double most_silent = 0.01;
  constexpr double least_floor_db = -84; // two steps of 16 bits; microphones and converters are above it
  const QuietParts quiet = quiet_parts(evidence.mic, evidence.setup.rate);
  Check check{"processed", "Processing before"};
  check.numbers = {{"digital_silence_share", nullptr}, {"noise_floor_dbov", or_null(quiet.floor_db)}};
  check.limit = fmt::format("at most {:.0f} % digital silence, a noise floor above {:.0f} dBov", 100 * most_silent,
                            least_floor_db);
  if (!quiet.floor_db) {
    check.found = "could not be measured: the microphone is silent";
    return check;
  }
  check.numbers["digital_silence_share"] = quiet.silent_share;
  check.found = fmt::format("{:.1f} % digital silence in {} gaps, noise floor {:.1f} dBov", 100 * quiet.silent_share,
                            quiet.gaps, *quiet.floor_db);
  check.state = quiet.silent_share > most_silent   ? State::wrong
                : *quiet.floor_db < least_floor_db ? State::note
                                                   : State::ok;
  if (check.state == State::wrong) {
    check.found = "something gates the microphone: " + check.found;
    check.next = "Switch off every noise gate, noise reducer and echo canceller before this one (codec, driver, sound "
                 "server): a path whose gain moves cannot be learnt.";
  } else if (check.state == State::note) {
    check.found = "the microphone has no noise floor: " + check.found;
    check.next = "Either the recording is synthetic, or something has reduced its noise: switch that off.";
  }
  return check;
}

} // namespace qv::tool::diagnose
