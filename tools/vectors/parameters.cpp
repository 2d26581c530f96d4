#include "parameters.h"

#include <cstdlib>

#include "call.h"

namespace vectors {

namespace {

using qv::config::Field;
using qv::config::Image;

struct Word {
  std::string_view section, name;
  int32_t value; ///< as the file stores it, for every element of the field
};

// Each stage tuned so that all of its branches are taken in the call.
constexpr Word tuning[] = {
    {"aec", "fSupExp", 2},
    {"aec", "afBandFarThr", 2},
    {"aec", "afBandSupFactor", 1},
    {"aec", "aswBandJudgeEnable", 1},
    {"aec", "afBandFarMin", 2},
    {"aec", "afResLow", 1},
    {"aec", "afResHigh", 8},
    {"aec", "afRatioLow", 328},
    {"aec", "afRatioHigh", 3277},
    {"aec", "afResDropFactor", 0},
    {"aec", "swCountBandStart", 2},
    {"aec", "swCountBandEnd", 20},
    {"aec", "swCountMin", 2},
    {"aec", "swSingleTalkHang", 10},
    {"aec", "fPresenceThrInit", 4915},
    {"aec", "fPresenceThrStep", 164},
    {"aec", "fPresenceThrMax", 9830},
    {"aec", "fPresenceThrMin", 1638},
    {"aec", "fFarActiveThr", 60},
    {"tx.anr", "fNoiseScale", 31130},
    {"rx.anr", "fNoiseScale", 29491},
    {"tx.agc", "fKneeGainDb", 16},
    {"tx.agc", "fKneeLowDb", -1600},
    {"tx.agc", "fKneeHighDb", -640},
    {"tx.agc", "fSlopeLow", 6144},
    {"tx.agc", "fSlopeMid", 3686},
    {"tx.agc", "fSlopeHigh", 819},
    {"tx.agc", "swRampLow", 320},
    {"tx.agc", "swRampMid", 500},
    {"tx.agc", "swRampHigh", 80},
    {"rx.agc", "fKneeGainDb", -16},
    {"rx.agc", "fKneeLowDb", -1920},
    {"rx.agc", "fKneeHighDb", -384},
    {"rx.agc", "fSlopeLow", 4096},
    {"rx.agc", "fSlopeMid", 3900},
    {"rx.agc", "fSlopeHigh", 2048},
    {"rx.agc", "swRampLow", 320},
    {"rx.agc", "swRampMid", 320},
    {"rx.agc", "swRampHigh", 1},
    {"tx.cng", "fNoiseLevel", 1},
    {"tx.cng", "fNoiseGain", 8},
};

/// The field of that name in a section or one of its parts ("aec" holds "aec.suppressor").
const Field &field_of(std::string_view section, std::string_view name) {
  for (const Field &field : qv::config::fields)
    if (field.section.starts_with(section) && field.name == name)
      return field;
  std::abort();
}

/// @param steps  as the file stores them
void set_steps(const Field &field, Image &image, int32_t element, int32_t steps) {
  set_value(field, image, element, steps * double(unit_of(field.encoding)));
}

void set(Image &image, int32_t rate, const Word &word) {
  const Field &field = field_of(word.section, word.name);
  for (int32_t i = 0; i < field.count(rate); ++i)
    set_steps(field, image, i, word.value);
}

/// Half of a response: taps of falling size on both sides of a large centre.
void set_taps(Image &image, std::string_view section, int32_t half_taps, uint32_t seed) {
  const Field &field = field_of(section, "afCoef");
  for (int32_t i = 0; i < half_taps; ++i) {
    seed = seed * 1664525u + 1013904223u;
    const int32_t tap = (int32_t(seed >> 16) - 32768) / (16 + 4 * (half_taps - i));
    set_steps(field, image, i, i == half_taps - 1 ? 26000 : tap);
  }
}

} // namespace

Image make_image(const StageSet &stages, int32_t rate) {
  Image image{};
  image[qv::config::rate_word] = int16_t(rate);
  image[qv::config::magic_word] = qv::config::magic;
  for (const Word &word : tuning)
    set(image, rate, word);
  const Word switches[] = {
      {"aec", "swAecEnable", stages.echo_canceller},
      {"aec", "swDelayEstEnable", !stages.signal_to_echo},
      {"aec", "swEchoDelay", stages.signal_to_echo ? first_echo_delay(rate) - 16 : 0},
      {"aec", "swSerSupEnable", stages.signal_to_echo},
      {"aec", "swCohSupEnable", !stages.signal_to_echo},
      {"tx.anr", "swAnrEnable", stages.noise_reducer},
      {"rx.anr", "swAnrEnable", stages.noise_reducer},
      {"tx.agc", "swAgcEnable", stages.gain_control},
      {"rx.agc", "swAgcEnable", stages.gain_control},
      {"tx.eq", "swEqEnable", stages.half_taps > 0},
      {"tx.eq", "swHalfTapNum", stages.half_taps},
      {"rx.eq", "swEqEnable", stages.half_taps > 0},
      {"rx.eq", "swHalfTapNum", stages.half_taps},
      {"tx.cng", "swCngEnable", stages.comfort_noise},
  };
  for (const Word &word : switches)
    set(image, rate, word);
  if (stages.tail_ms > 0)
    for (const Word &word : {Word{"echo_control", "enable", 1},
                             {"echo_control", "tail_ms", stages.tail_ms},
                             {"echo_control", "depth_db", 50},
                             {"echo_control", "care", 2048},
                             {"echo_control", "background", 4096}})
      set(image, rate, word);
  set_taps(image, "tx.eq", stages.half_taps, 5);
  set_taps(image, "rx.eq", stages.half_taps, 6);
  return image;
}

} // namespace vectors
