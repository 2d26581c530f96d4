#include <cmath>

#include "inspect/check_rules.h"
#include "inspect/level_curve.h"
#include "para/fir_design.h"

namespace qv::tool::inspect {

using namespace para;

namespace {

constexpr double speech_crest_db = 9; // peaks of a voiced frame above its level, about
constexpr double quiet_room_db = -70; // level of a frame of background noise

void check_slopes(const LevelCurve &curve, SectionFindings &out) {
  const std::pair<const char *, double> slopes[] = {
      {"slope_low", curve.slope_low}, {"slope_mid", curve.slope_mid}, {"slope_high", curve.slope_high}};
  for (const auto &[key, slope] : slopes)
    if (slope < 0)
      out.error(key, "{:g} is negative; the louder the talker, the quieter he comes out", slope);
  if (curve.slope_low > 3)
    out.warning("slope_low",
                "{:g} dB per dB below {:g} dB closes like a gate; soft beginnings and ends of words are lost",
                curve.slope_low, curve.knee_low);
  if (curve.slope_high > 1)
    out.warning("slope_high", "{:g} lifts what is loud already; it clips", curve.slope_high);
}

/// A frame's gain follows its level at once, spread over the ramp: a steep deviation from slope 1 with a
/// short ramp changes the gain within words.
void check_pumping(const Values &values, const LevelCurve &curve, SectionFindings &out) {
  constexpr double syllables_db = 20; // between the loud and the soft syllables of a talker
  constexpr double swing_limit_db = 12;
  constexpr double slow_ramp_s = 0.5;
  const double swing = std::abs(1 - curve.slope_mid) * syllables_db;
  if (swing > swing_limit_db && values(out.path("ramp_mid")) < slow_ramp_s * values.rate())
    out.warning("slope_mid", "{:g} gives syllables {:g} dB apart gains {:.0f} dB apart; speech pumps", curve.slope_mid,
                syllables_db, swing);
  const std::pair<const char *, double> segments[] = {
      {"ramp_low", curve.slope_low}, {"ramp_mid", curve.slope_mid}, {"ramp_high", curve.slope_high}};
  for (const auto &[key, slope] : segments)
    if (slope != 1 && values(out.path(key)) == 0)
      out.warning(key, "0 samples with a slope of {:g}; the gain jumps at frame borders, which clicks", slope);
}

void check_levels(const LevelCurve &curve, SectionFindings &out) {
  const double top = curve.knee_high + curve.knee_gain;
  if (top > -speech_crest_db)
    out.warning("knee_gain_db",
                "speech at the upper knee ({:g} dB) comes out at {:g} dB; its peaks, {:g} dB higher, clip",
                curve.knee_high, top, speech_crest_db);
  constexpr double audible_lift_db = 12;
  if (const double lift = curve.gain(quiet_room_db); lift > audible_lift_db)
    out.warning("slope_low", "noise of a quiet room ({:g} dB) is lifted by {:.0f} dB; it swells in every pause",
                quiet_room_db, lift);
}

/// Twice the source amplitude at which the comfort noise is as loud as the noise that it follows.
double loud_comfort_noise(int32_t rate) {
  const double frame = rate * 0.02;
  // Level L of a band: sqrt of the power of a Hann-windowed frame of noise of variance v, spectrum scaled by
  // 1/2N: L^2 = v (3/8) / 2N. A uniform source of amplitude a times L has the variance L^2 a^2 / 12.
  return 2 * std::sqrt(12 * 2 * frame * 8 / 3);
}

void check_comfort_noise(const Values &values, Findings &findings) {
  SectionFindings out("tx.cng", findings);
  if (!values.on("tx.cng.enable"))
    return;
  if (state_space_runs(values))
    return out.warning("enable", "has no effect beside echo_control, which fills in the room's background itself");
  const double amplitude = values("tx.cng.noise_level") * values("tx.cng.noise_gain");
  if (amplitude == 0)
    out.warning("noise_level", "noise_level times noise_gain is 0; no comfort noise is added, pauses sound dead");
  if (amplitude > loud_comfort_noise(values.rate()))
    out.warning("noise_gain",
                "noise_level times noise_gain is {:g}; the comfort noise is {:.0f} dB louder than the noise "
                "that it stands for",
                amplitude, 20 * std::log10(2 * amplitude / loud_comfort_noise(values.rate())));
  if (!values.on("aec.enable"))
    out.warning("enable",
                "the echo canceller is off, so comfort noise is added to every frame, near-end speech included");
  if (!values.on("tx.anr.enable"))
    out.warning("enable", "the noise reducer, whose estimate the comfort noise follows, is off; pauses sound dead");
}

} // namespace

void check_noise(const Values &values, Findings &findings) {
  for (const std::string section : {"tx.anr", "rx.anr"})
    if (values.on(section + ".enable") && values(section + ".noise_scale") == 0)
      SectionFindings(section, findings).warning("noise_scale", "0 removes no noise; a frame of delay remains");
  check_comfort_noise(values, findings);
}

void check_gain_control(const Values &values, const std::string &section, Findings &findings) {
  if (!values.on(section + ".enable"))
    return;
  SectionFindings out(section, findings);
  const LevelCurve curve(values, section);
  if (curve.knee_low >= curve.knee_high)
    out.error("knee_low_db",
              "{:g} dB is not below knee_high_db = {:g} dB; the middle segment is never used and the level "
              "jumps by {:.1f} dB at the knee: speech pumps",
              curve.knee_low, curve.knee_high,
              std::abs((curve.slope_mid - curve.slope_low) * (curve.knee_high - curve.knee_low)));
  check_slopes(curve, out);
  check_pumping(values, curve, out);
  check_levels(curve, out);
}

void check_equaliser(const Values &values, const std::string &section, Findings &findings) {
  SectionFindings out(section, findings);
  const std::vector<double> half = values.half_response(section);
  const auto louder = [](double a, double b) { return std::abs(a) < std::abs(b); };
  const auto centre = std::max_element(half.begin(), half.end(), louder);
  const bool silent = *centre == 0;
  if (!values.on(section + ".enable")) {
    if (!silent)
      out.warning("enable", "false although there are coefficients; the signal passes unchanged");
    return;
  }
  if (silent)
    return out.error("coef", "all {} are 0; the path is silent", half.size());
  if (centre != half.end() - 1)
    out.warning("coef",
                "the largest is number {}, not the last of {} that are used, the centre; the sound smears over "
                "time",
                centre - half.begin() + 1, half.size());
  const ResponsePoint peak = response_peak(half, values.rate());
  if (peak.db > 0.5)
    out.warning("coef", "{:.0f} Hz is lifted by {:.1f} dB; loud sounds there clip", peak.hz, peak.db);
  if (peak.db < -20)
    out.warning("coef", "the loudest frequency, {:.0f} Hz, comes out at {:.1f} dB; the path is hardly heard", peak.hz,
                peak.db);
}

} // namespace qv::tool::inspect
