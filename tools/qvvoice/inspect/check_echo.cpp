#include "inspect/check_rules.h"
#include "para/bands.h"

namespace qv::tool::inspect {

using namespace para;

namespace {

std::string group_name(const Values &values, int32_t group) {
  const HzRange range = group_range(values.rate(), group);
  return fmt::format("group {} ({:.0f}-{:.0f} Hz)", group + 1, range.low, range.high);
}

void check_suppressor(const Values &values, Findings &findings) {
  SectionFindings out("aec.suppressor", findings);
  const bool echo_ratio = values.on("aec.suppressor.echo_ratio"), coherence = values.on("aec.suppressor.coherence");
  if (!echo_ratio && !coherence)
    out.warning("coherence",
                "neither suppressor is on; what the linear filter leaves of the echo is heard at the far end");
  if (echo_ratio && coherence)
    out.warning("coherence",
                "both suppressors are on; echo_ratio alone then shapes the sound, coherence only replaces a "
                "diverged filter's output");
  constexpr double deep_divisor = 10; // a gain of 0.5 becomes 0.09
  for (int32_t g = 0; g < group_count(values.rate()); ++g) {
    const double divisor = values("aec.suppressor.odds_divisor", g);
    if (divisor == 0)
      out.warning("odds_divisor", "{} has 0, which lifts its gain to nearly 1; echo there is heard",
                  group_name(values, g));
    else if (divisor > deep_divisor)
      out.warning("odds_divisor", "{} has {:g}; near-end speech there is cut with the echo", group_name(values, g),
                  divisor);
  }
}

void check_knees(const Values &values, SectionFindings &out) {
  for (int32_t g = 0; g < group_count(values.rate()); ++g) {
    const double res_low = values(out.path("residual_low"), g), res_high = values(out.path("residual_high"), g);
    const double ratio_low = values(out.path("ratio_low"), g), ratio_high = values(out.path("ratio_high"), g);
    if (res_low > res_high)
      out.error("residual_low",
                "{} has its lower knee {:g} above its upper knee {:g}; near-end speech turns on and off "
                "at once, words are chopped",
                group_name(values, g), res_low, res_high);
    if (ratio_low > ratio_high)
      out.error("ratio_low",
                "{} has its lower knee {:g} above its upper knee {:g}; near-end speech turns on and off at "
                "once, words are chopped",
                group_name(values, g), ratio_low, ratio_high);
    if (values(out.path("drop_factor"), g) > 1)
      out.warning("drop_factor",
                  "{} has {:g}; a steady vowel of the near end already falls below its own average times "
                  "that and is cut",
                  group_name(values, g), values(out.path("drop_factor"), g));
  }
}

void check_count(const Values &values, SectionFindings &out) {
  const int from = std::max(int(values(out.path("count_from"))), 0);
  const int to = int(values(out.path("count_to"))), need = int(values(out.path("count_min")));
  const int bands = band_count(values.rate()), counted = std::min(to, bands) - from;
  const char *muted = "the near-end talker is muted whenever the far end talks";
  const char *open = "every frame counts as double talk: single talk is never muted, and faint echo stays";
  if (counted <= 0)
    out.error("count_from", "bands {} to {} hold no band to count; {}", from, to, need > 0 ? muted : open);
  else if (need <= 0)
    out.error("count_min", "{} bands are reached without any near-end speech; {}", need, open);
  else if (need > counted)
    out.error("count_min", "{} bands are needed and {} are counted; {}", need, counted, muted);
  else if (need > counted / 2)
    out.warning("count_min",
                "{} of {} counted bands are needed, more than half; vowels fill fewer, so a near-end talker "
                "is muted now and then",
                need, counted);
  if (to > bands)
    out.warning("count_to", "{} lies above the {} bands of this rate, to which it is cut", to, bands);
  constexpr int syllable_gap = 3; // frames: about 50 ms, a plosive's closure
  if (const double hang = values(out.path("single_talk_hang")); hang < syllable_gap)
    out.warning("single_talk_hang",
                "{:g} frames are shorter than the gaps within words; words of the near end are chopped", hang);
}

void check_presence(const Values &values, SectionFindings &out) {
  const double start = values(out.path("presence_start")), step = values(out.path("presence_step"));
  const double lowest = values(out.path("presence_min")), highest = values(out.path("presence_max"));
  if (lowest > highest)
    out.error("presence_min",
              "{:g} lies above presence_max = {:g}; the threshold jumps between the two, double talk comes "
              "and goes",
              lowest, highest);
  else if (start < lowest || start > highest)
    out.warning("presence_start",
                "{:g} lies outside presence_min .. presence_max, {:g} .. {:g}; the first seconds of a "
                "call sound unlike the rest",
                start, lowest, highest);
  if (highest > 0.9)
    out.warning("presence_max",
                "{:g} is a share of the microphone that hardly any frame exceeds; after long far-end speech "
                "the near end does not get through",
                highest);
  if (step == 0 && lowest < highest)
    out.warning("presence_step", "0 keeps the threshold at its start; the detector does not settle on the room");
}

void check_far_end(const Values &values, SectionFindings &out) {
  constexpr double soft_speech = 3000; // peak, -21 dB of full scale
  const double peak = values(out.path("far_active_peak"));
  if (peak <= 0)
    out.warning("far_active_peak",
                "{:g} takes even digital silence for far-end speech; the near end is suppressed all the "
                "time",
                peak);
  else if (peak > soft_speech)
    out.warning("far_active_peak", "{:g} takes soft far-end speech for silence; its echo passes unsuppressed", peak);
}

} // namespace

void check_echo_canceller(const Values &values, Findings &findings) {
  SectionFindings out("aec", findings);
  if (!values.on("aec.enable") || state_space_runs(values))
    return;
  if (!values.on("aec.track_delay") && values("aec.echo_delay") == 0)
    out.warning("echo_delay", "0 without track_delay; only echo within two frames of the reference is cancelled, a "
                              "device with audio buffers has more");
  check_suppressor(values, findings);
}

void check_double_talk(const Values &values, Findings &findings) {
  const bool judged = values.on("aec.suppressor.echo_ratio") || values.on("aec.suppressor.coherence");
  if (!values.on("aec.enable") || state_space_runs(values) || !judged)
    return;
  SectionFindings out("aec.double_talk", findings);
  check_knees(values, out);
  check_count(values, out);
  check_presence(values, out);
  check_far_end(values, out);
}

} // namespace qv::tool::inspect
