/// @file fields.h  The parameter file, described once: every word that is read.
///
/// The conversion into the parameter block, the text form, the checks, the plots and the reference
/// page all come from this table.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "qvvoice/config/para.h"

namespace qv::config {

inline constexpr int32_t word_count = 500;
inline constexpr int32_t rate_word = 0;
inline constexpr int32_t magic_word = 9;
inline constexpr int16_t magic = 1111; ///< word 9 of a file that is to be converted

/// How a signed 16-bit word becomes a slot of the parameter block.
enum class Encoding {
  integer, ///< sign-extended to 32 bits
  int16,   ///< as it is
  whole,   ///< float, no scaling
  q15,     ///< float, word / 32768
  q12,     ///< float, word / 4096
  q5,      ///< float, word / 32
};

/// Value of one unit of the word.
constexpr float unit_of(Encoding encoding) {
  switch (encoding) {
  case Encoding::q15:
    return 1.f / 32768;
  case Encoding::q12:
    return 1.f / 4096;
  case Encoding::q5:
    return 1.f / 32;
  default:
    return 1.f;
  }
}

/// How many elements a field has.
enum class Extent {
  scalar, ///< one
  groups, ///< one per band group: 6 at 8000 Hz, 8 at 16000 Hz
  taps,   ///< EQ_MAX_HALF_TAPS
};

constexpr int32_t band_count(int32_t rate) { return rate == 8000 ? 24 : 32; }
constexpr int32_t group_count(int32_t rate) { return band_count(rate) / 4; }

struct Field {
  std::string_view section; ///< module and path in the text form: "tx.agc"
  std::string_view key;     ///< the field in the text form
  std::string_view name;    ///< field of the configuration record
  Encoding encoding;
  Extent extent;
  int32_t word_base;   ///< word of element i = word_base + word_groups * groups + word_stride * i
  int32_t word_groups; ///< the echo canceller's rows move with the number of groups
  int32_t word_stride;
  size_t offset;         ///< bytes from the start of VoicePara to element 0; elements are adjacent
  std::string_view unit; ///< "" for switches and pure numbers
  float least, greatest; ///< sensible range, in `unit`
  float preset;          ///< default, in `unit`
  std::string_view meaning;

  constexpr int32_t count(int32_t rate) const {
    return extent == Extent::scalar ? 1 : extent == Extent::groups ? group_count(rate) : EQ_MAX_HALF_TAPS;
  }
  constexpr int32_t word(int32_t rate, int32_t element) const {
    return word_base + word_groups * group_count(rate) + word_stride * element;
  }
  constexpr bool is_switch() const { return encoding == Encoding::integer && least == 0 && greatest == 1; }
};

namespace table {

constexpr size_t aec = offsetof(VoicePara, stAec);
constexpr size_t delay = aec + offsetof(AecPara, stDelay);
constexpr size_t nlp = aec + offsetof(AecPara, stNlp);
constexpr size_t dtd = aec + offsetof(AecPara, stDtd);

using enum Encoding;
using enum Extent;

// clang-format off
inline constexpr std::array echo_canceller = std::to_array<Field>({
  {"aec", "enable", "swAecEnable", integer, scalar, 10, 0, 0, aec + offsetof(AecPara, swAecEnable), "", 0, 1, 1,
   "runs the echo canceller"},
  {"aec", "track_delay", "swDelayEstEnable", integer, scalar, 11, 0, 0, delay + offsetof(AecDelayPara, swDelayEstEnable), "", 0, 1, 1,
   "tracks the echo delay; otherwise the given one holds"},
  {"aec", "echo_delay", "swEchoDelay", integer, scalar, 12, 0, 0, aec + offsetof(AecPara, swEchoDelay), "samples", 0, 4096, 0,
   "delay of the echo behind the reference: fixed, or where the tracking starts"},
  {"aec.suppressor", "echo_ratio", "swSerSupEnable", integer, scalar, 13, 0, 0, nlp + offsetof(AecNlpPara, swSerSupEnable), "", 0, 1, 0,
   "shapes the output by signal-to-echo ratios per band; it then takes precedence over coherence"},
  {"aec.suppressor", "coherence", "swCohSupEnable", integer, scalar, 14, 0, 0, nlp + offsetof(AecNlpPara, swCohSupEnable), "", 0, 1, 1,
   "shapes the output by coherence per bin"},
  {"aec.suppressor", "exponent", "fSupExp", whole, scalar, 15, 0, 0, nlp + offsetof(AecNlpPara, fSupExp), "", 1, 8, 1,
   "exponent on the suppressors' gains: higher cuts deeper"},
  {"aec.double_talk", "far_echo_power", "afBandFarThr", whole, groups, 16, 0, 2, dtd + offsetof(AecDtdPara, afBandFarThr), "power", 0, 32767, 5,
   "far-end band power from which a band can hold echo; below it the band passes"},
  {"aec.suppressor", "odds_divisor", "afBandSupFactor", whole, groups, 17, 0, 2, nlp + offsetof(AecNlpPara, afBandSupFactor), "", 0, 100, 1,
   "divisor of a gain's odds: above 1 cuts deeper, 0 lifts the gain to nearly 1"},
  {"aec.double_talk", "judge", "aswBandJudgeEnable", integer, groups, 16, 2, 7, dtd + offsetof(AecDtdPara, aswBandJudgeEnable), "", 0, 1, 1,
   "judges the group's bands for near-end speech; otherwise they count as speech"},
  {"aec.double_talk", "far_judge_power", "afBandFarMin", whole, groups, 17, 2, 7, dtd + offsetof(AecDtdPara, afBandFarMin), "power", 0, 32767, 1,
   "far-end band power that a band must exceed to be judged"},
  {"aec.double_talk", "residual_low", "afResLow", whole, groups, 18, 2, 7, dtd + offsetof(AecDtdPara, afResLow), "power", 0, 32767, 11,
   "residual band power up to which there is no near-end speech"},
  {"aec.double_talk", "residual_high", "afResHigh", whole, groups, 19, 2, 7, dtd + offsetof(AecDtdPara, afResHigh), "power", 0, 32767, 42,
   "residual band power above which near-end speech is certain"},
  {"aec.double_talk", "ratio_low", "afRatioLow", q15, groups, 20, 2, 7, dtd + offsetof(AecDtdPara, afRatioLow), "ratio", 0, 1, 0.0033f,
   "residual-to-microphone power ratio up to which there is no near-end speech"},
  {"aec.double_talk", "ratio_high", "afRatioHigh", q15, groups, 21, 2, 7, dtd + offsetof(AecDtdPara, afRatioHigh), "ratio", 0, 1, 0.0334f,
   "residual-to-microphone power ratio above which near-end speech is certain"},
  {"aec.double_talk", "drop_factor", "afResDropFactor", whole, groups, 22, 2, 7, dtd + offsetof(AecDtdPara, afResDropFactor), "", 0, 10, 0,
   "a band whose residual falls below this factor times its average holds no near-end speech"},
  {"aec.double_talk", "count_from", "swCountBandStart", integer, scalar, 16, 9, 0, dtd + offsetof(AecDtdPara, swCountBandStart), "band", 0, 31, 3,
   "first band that is counted for the double-talk decision"},
  {"aec.double_talk", "count_to", "swCountBandEnd", integer, scalar, 17, 9, 0, dtd + offsetof(AecDtdPara, swCountBandEnd), "band", 1, 32, 9,
   "band after the last one that is counted"},
  {"aec.double_talk", "count_min", "swCountMin", integer, scalar, 18, 9, 0, dtd + offsetof(AecDtdPara, swCountMin), "bands", 0, 32, 3,
   "counted bands that make double talk"},
  {"aec.double_talk", "single_talk_hang", "swSingleTalkHang", integer, scalar, 19, 9, 0, dtd + offsetof(AecDtdPara, swSingleTalkHang), "frames", 0, 100, 12,
   "frames without near-end evidence before single talk mutes"},
  {"aec.double_talk", "presence_start", "fPresenceThrInit", q15, scalar, 20, 9, 0, dtd + offsetof(AecDtdPara, fPresenceThrInit), "", 0, 1, 0.15f,
   "start of the adaptive presence threshold"},
  {"aec.double_talk", "presence_step", "fPresenceThrStep", q15, scalar, 21, 9, 0, dtd + offsetof(AecDtdPara, fPresenceThrStep), "", 0, 1, 0.0116f,
   "change of that threshold per decided frame"},
  {"aec.double_talk", "presence_max", "fPresenceThrMax", q15, scalar, 22, 9, 0, dtd + offsetof(AecDtdPara, fPresenceThrMax), "", 0, 1, 0.15f,
   "upper bound of that threshold"},
  {"aec.double_talk", "presence_min", "fPresenceThrMin", q15, scalar, 23, 9, 0, dtd + offsetof(AecDtdPara, fPresenceThrMin), "", 0, 1, 0.07f,
   "lower bound of that threshold"},
  {"aec.double_talk", "far_active_peak", "fFarActiveThr", whole, scalar, 24, 9, 0, dtd + offsetof(AecDtdPara, fFarActiveThr), "peak", 0, 32767, 22,
   "largest reference sample below which a frame counts as silent"},
});

constexpr std::array<Field, 2> noise_reducer(std::string_view section, int32_t word, size_t at) {
  return {{
    {section, "enable", "swAnrEnable", integer, scalar, word, 0, 0, at + offsetof(AnrPara, swAnrEnable), "", 0, 1, 1,
     "runs the noise reducer"},
    {section, "noise_scale", "fNoiseScale", q15, scalar, word + 1, 0, 0, at + offsetof(AnrPara, fNoiseScale), "", 0, 1, 0.8f,
     "factor on the tracked noise power: lower keeps more of speech and noise"},
  }};
}

constexpr std::array<Field, 11> gain_control(std::string_view section, int32_t word, size_t at) {
  return {{
    {section, "enable", "swAgcEnable", integer, scalar, word, 0, 0, at + offsetof(AgcPara, swAgcEnable), "", 0, 1, 1,
     "runs the gain control"},
    {section, "knee_gain_db", "fKneeGainDb", q5, scalar, word + 1, 0, 0, at + offsetof(AgcPara, fKneeGainDb), "dB", -40, 40, 0,
     "gain at the upper knee"},
    {section, "reserved_db", "fReservedDb", q5, scalar, word + 2, 0, 0, at + offsetof(AgcPara, fReservedDb), "dB", -90, 0, 0,
     "carried, without effect"},
    {section, "knee_low_db", "fKneeLowDb", q5, scalar, word + 3, 0, 0, at + offsetof(AgcPara, fKneeLowDb), "dB", -90, 0, -60,
     "lower knee of the level curve, dB of a full-scale square wave"},
    {section, "knee_high_db", "fKneeHighDb", q5, scalar, word + 4, 0, 0, at + offsetof(AgcPara, fKneeHighDb), "dB", -90, 0, -12,
     "upper knee of the level curve, dB of a full-scale square wave"},
    {section, "slope_low", "fSlopeLow", q12, scalar, word + 5, 0, 0, at + offsetof(AgcPara, fSlopeLow), "dB/dB", 0, 4, 1,
     "slope at or below the lower knee: above 1 expands"},
    {section, "slope_mid", "fSlopeMid", q12, scalar, word + 6, 0, 0, at + offsetof(AgcPara, fSlopeMid), "dB/dB", 0, 4, 1,
     "slope between the knees: below 1 lifts quiet talkers, by (1 - slope) times the distance from the upper knee"},
    {section, "slope_high", "fSlopeHigh", q12, scalar, word + 7, 0, 0, at + offsetof(AgcPara, fSlopeHigh), "dB/dB", 0, 4, 0.5f,
     "slope above the upper knee: below 1 limits"},
    {section, "ramp_low", "swRampLow", integer, scalar, word + 8, 0, 0, at + offsetof(AgcPara, swRampLow), "samples", 0, 32767, 320,
     "samples over which the gain moves at or below the lower knee"},
    {section, "ramp_mid", "swRampMid", integer, scalar, word + 9, 0, 0, at + offsetof(AgcPara, swRampMid), "samples", 0, 32767, 320,
     "samples over which the gain moves between the knees"},
    {section, "ramp_high", "swRampHigh", integer, scalar, word + 10, 0, 0, at + offsetof(AgcPara, swRampHigh), "samples", 0, 32767, 160,
     "samples over which the gain moves above the upper knee"},
  }};
}

constexpr std::array<Field, 3> equaliser(std::string_view section, int32_t word, size_t at) {
  return {{
    {section, "enable", "swEqEnable", integer, scalar, word, 0, 0, at + offsetof(EqPara, swEqEnable), "", 0, 1, 0,
     "runs the equaliser"},
    {section, "half_taps", "swHalfTapNum", int16, scalar, word + 1, 0, 0, at + offsetof(EqPara, swHalfTapNum), "taps", 1, EQ_MAX_HALF_TAPS, 1,
     "stored half of the symmetric response, centre included: 2H - 1 taps, H - 1 samples of delay"},
    {section, "coef", "afCoef", q15, taps, word + 2, 0, 1, at + offsetof(EqPara, afCoef), "", -1, 1, 0,
     "stored half of the response, the centre tap last"},
  }};
}

inline constexpr std::array comfort_noise = std::to_array<Field>({
  {"tx.cng", "enable", "swCngEnable", integer, scalar, 440, 0, 0, offsetof(VoicePara, stCngTx) + offsetof(CngPara, swCngEnable), "", 0, 1, 1,
   "runs the comfort noise generator"},
  {"tx.cng", "noise_level", "fNoiseLevel", whole, scalar, 441, 0, 0, offsetof(VoicePara, stCngTx) + offsetof(CngPara, fNoiseLevel), "", 0, 32767, 1,
   "amplitude of the noise source: the product with noise_gain counts"},
  {"tx.cng", "noise_gain", "fNoiseGain", whole, scalar, 442, 0, 0, offsetof(VoicePara, stCngTx) + offsetof(CngPara, fNoiseGain), "", 0, 32767, 8,
   "amplitude of the noise source: the product with noise_level counts"},
});
// clang-format on

template <size_t... sizes> constexpr auto join(const std::array<Field, sizes> &...parts) {
  std::array<Field, (sizes + ...)> all{};
  size_t end = 0;
  const auto append = [&](const auto &part) {
    for (const Field &field : part)
      all[end++] = field;
  };
  (append(parts), ...);
  return all;
}

} // namespace table

inline constexpr std::array fields = table::join(table::echo_canceller, //
                                                 table::noise_reducer("tx.anr", 100, offsetof(VoicePara, stAnrTx)),
                                                 table::noise_reducer("rx.anr", 110, offsetof(VoicePara, stAnrRx)),
                                                 table::gain_control("tx.agc", 120, offsetof(VoicePara, stAgcTx)),
                                                 table::gain_control("rx.agc", 140, offsetof(VoicePara, stAgcRx)),
                                                 table::equaliser("tx.eq", 160, offsetof(VoicePara, stEqTx)),
                                                 table::equaliser("rx.eq", 300, offsetof(VoicePara, stEqRx)), //
                                                 table::comfort_noise);

struct Section {
  std::string_view name;
  std::string_view title;
};

/// Sections of the text form, in the order of the signal paths.
inline constexpr auto sections = std::to_array<Section>({
    {"aec", "Echo canceller"},
    {"aec.suppressor", "Residual echo suppressor"},
    {"aec.double_talk", "Double-talk detector"},
    {"tx.anr", "Noise reducer of the transmit path"},
    {"tx.agc", "Gain control of the transmit path"},
    {"tx.eq", "Equaliser of the transmit path"},
    {"tx.cng", "Comfort noise of the transmit path"},
    {"rx.anr", "Noise reducer of the receive path"},
    {"rx.agc", "Gain control of the receive path"},
    {"rx.eq", "Equaliser of the receive path"},
});

using Image = std::array<int16_t, word_count>;

/// The word that holds a value in the field's unit, rounded to the nearest and kept within 16 bits.
int16_t encode(const Field &field, double value);

/// The value of a word in the field's unit.
constexpr double decode(const Field &field, int16_t word) { return double(word) * unit_of(field.encoding); }

/// Every field at its default. @param rate  8000 or 16000, in Hz
Image default_image(int32_t rate);

} // namespace qv::config
