/// @file fields.h  The parameter file, described once: every word that is read.
///
/// The conversion into the parameter block, the text form, the checks, the plots and the reference
/// page all come from this table.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string_view>
#include <type_traits>

#include "config/parameters.h"
#include "dsp/layout.h"

namespace qv::config {

inline constexpr int32_t word_count = std::extent_v<VoiceParaFile>;
inline constexpr int32_t rate_word = 0;
inline constexpr int32_t magic_word = 9;
inline constexpr int16_t magic = 1111; ///< word 9 of a file that is to be converted

/// Where a file says that it speaks of the state-space echo canceller: two words, so that a stray value does not. The
/// words behind them belong to that canceller only then.
inline constexpr int32_t echo_mark_word = 450;
inline constexpr std::array<int16_t, 2> echo_mark = {0x5156, 0x4543}; ///< "QV" and "EC"
inline constexpr std::string_view echo_control_section = "echo_control";

/// How words become a slot of the parameters.
enum class Encoding {
  mark,    ///< 32-bit integer: 1 where both words hold the mark, else 0
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
  groups, ///< one per group of bands
  taps,   ///< EQ_MAX_HALF_TAPS
};

/// One element of a slot or the slots of an array: how a value gets there.
struct Slot {
  Encoding encoding;
  Extent extent;
  void (*store)(Parameters &parameters, int32_t element, double value);
};

/// Whether an encoding makes values of the type that a slot has.
template <class Value> constexpr bool makes(Encoding encoding) {
  switch (encoding) {
  case Encoding::mark:
  case Encoding::integer:
    return std::is_same_v<Value, int32_t>;
  case Encoding::int16:
    return std::is_same_v<Value, int16_t>;
  default:
    return std::is_same_v<Value, float>;
  }
}

/// One of the records. @param record  from the parameters or their block: a pointer to member or a function
template <auto record> constexpr auto &reach(Parameters &parameters) {
  if constexpr (std::is_invocable_v<decltype(record), Parameters &>)
    return std::invoke(record, parameters);
  else
    return std::invoke(record, parameters.block);
}

/// The slot of a member of one of the records; its extent follows from the member's type.
template <Encoding encoding, auto record, auto member> constexpr Slot slot() {
  using Member = std::remove_reference_t<decltype(reach<record>(std::declval<Parameters &>()).*member)>;
  using Value = std::remove_extent_t<Member>;
  constexpr size_t count = std::is_array_v<Member> ? std::extent_v<Member> : 1;
  static_assert(makes<Value>(encoding), "the encoding makes values of another type than the slot has");
  static_assert(count == 1 || count == QV_MAX_GROUPS || count == EQ_MAX_HALF_TAPS, "an array that no extent covers");
  return {encoding,
          count == 1               ? Extent::scalar
          : count == QV_MAX_GROUPS ? Extent::groups
                                   : Extent::taps,
          [](Parameters &parameters, [[maybe_unused]] int32_t element, double value) {
            if constexpr (count == 1)
              reach<record>(parameters).*member = Value(value);
            else
              (reach<record>(parameters).*member)[element] = Value(value);
          }};
}

struct Field : Slot {
  std::string_view section; ///< module and path in the text form: "tx.agc"
  std::string_view key;     ///< the field in the text form
  std::string_view name;    ///< field of the configuration record
  int32_t word_base;        ///< word of element i = word_base + word_groups * groups + word_stride * i
  int32_t word_groups;      ///< the echo canceller's rows move with the number of groups
  int32_t word_stride;
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
  /// Words that it takes: word(rate, 0), word(rate, 1) and so on.
  constexpr int32_t words(int32_t rate) const {
    return encoding == Encoding::mark ? int32_t(echo_mark.size()) : count(rate);
  }
  constexpr bool needs_mark() const { return section == echo_control_section; }
  constexpr bool is_switch() const {
    return encoding == Encoding::mark || (encoding == Encoding::integer && least == 0 && greatest == 1);
  }
};

namespace table {

constexpr AecPara &aec(VoicePara &block) { return block.stAec; }
constexpr AecDelayPara &delay(VoicePara &block) { return block.stAec.stDelay; }
constexpr AecNlpPara &nlp(VoicePara &block) { return block.stAec.stNlp; }
constexpr AecDtdPara &dtd(VoicePara &block) { return block.stAec.stDtd; }
constexpr state_space::Tuning &echo_tuning(Parameters &parameters) { return parameters.echo_control; }

using enum Encoding;

template <Encoding encoding, auto record, auto member> inline constexpr Slot at = slot<encoding, record, member>();

// clang-format off
inline constexpr std::array echo_canceller = std::to_array<Field>({
  {at<integer, aec, &AecPara::swAecEnable>, "aec", "enable", "swAecEnable", 10, 0, 0, "", 0, 1, 1,
   "runs the echo canceller"},
  {at<integer, delay, &AecDelayPara::swDelayEstEnable>, "aec", "track_delay", "swDelayEstEnable", 11, 0, 0, "", 0, 1, 1,
   "tracks the echo delay; otherwise the given one holds"},
  {at<integer, aec, &AecPara::swEchoDelay>, "aec", "echo_delay", "swEchoDelay", 12, 0, 0, "samples", 0, AEC_MAX_DELAY, 0,
   "delay of the echo behind the reference: fixed, or where the tracking starts"},
  {at<integer, nlp, &AecNlpPara::swSerSupEnable>, "aec.suppressor", "echo_ratio", "swSerSupEnable", 13, 0, 0, "", 0, 1, 0,
   "shapes the output by signal-to-echo ratios per band; it then takes precedence over coherence"},
  {at<integer, nlp, &AecNlpPara::swCohSupEnable>, "aec.suppressor", "coherence", "swCohSupEnable", 14, 0, 0, "", 0, 1, 1,
   "shapes the output by coherence per bin"},
  {at<whole, nlp, &AecNlpPara::fSupExp>, "aec.suppressor", "exponent", "fSupExp", 15, 0, 0, "", 1, 8, 1,
   "exponent on the suppressors' gains: higher cuts deeper"},
  {at<whole, dtd, &AecDtdPara::afBandFarThr>, "aec.double_talk", "far_echo_power", "afBandFarThr", 16, 0, 2, "power", 0, 32767, 5,
   "far-end band power from which a band can hold echo; below it the band passes"},
  {at<whole, nlp, &AecNlpPara::afBandSupFactor>, "aec.suppressor", "odds_divisor", "afBandSupFactor", 17, 0, 2, "", 0, 100, 1,
   "divisor of a gain's odds: above 1 cuts deeper, 0 lifts the gain to nearly 1"},
  {at<integer, dtd, &AecDtdPara::aswBandJudgeEnable>, "aec.double_talk", "judge", "aswBandJudgeEnable", 16, 2, 7, "", 0, 1, 1,
   "judges the group's bands for near-end speech; otherwise they count as speech"},
  {at<whole, dtd, &AecDtdPara::afBandFarMin>, "aec.double_talk", "far_judge_power", "afBandFarMin", 17, 2, 7, "power", 0, 32767, 1,
   "far-end band power that a band must exceed to be judged"},
  {at<whole, dtd, &AecDtdPara::afResLow>, "aec.double_talk", "residual_low", "afResLow", 18, 2, 7, "power", 0, 32767, 11,
   "residual band power up to which there is no near-end speech"},
  {at<whole, dtd, &AecDtdPara::afResHigh>, "aec.double_talk", "residual_high", "afResHigh", 19, 2, 7, "power", 0, 32767, 42,
   "residual band power above which near-end speech is certain"},
  {at<q15, dtd, &AecDtdPara::afRatioLow>, "aec.double_talk", "ratio_low", "afRatioLow", 20, 2, 7, "ratio", 0, 1, 0.0033f,
   "residual-to-microphone power ratio up to which there is no near-end speech"},
  {at<q15, dtd, &AecDtdPara::afRatioHigh>, "aec.double_talk", "ratio_high", "afRatioHigh", 21, 2, 7, "ratio", 0, 1, 0.0334f,
   "residual-to-microphone power ratio above which near-end speech is certain"},
  {at<whole, dtd, &AecDtdPara::afResDropFactor>, "aec.double_talk", "drop_factor", "afResDropFactor", 22, 2, 7, "", 0, 10, 0,
   "a band whose residual falls below this factor times its average holds no near-end speech"},
  {at<integer, dtd, &AecDtdPara::swCountBandStart>, "aec.double_talk", "count_from", "swCountBandStart", 16, 9, 0, "band", 0, QV_MAX_BANDS - 1, 3,
   "first band that is counted for the double-talk decision"},
  {at<integer, dtd, &AecDtdPara::swCountBandEnd>, "aec.double_talk", "count_to", "swCountBandEnd", 17, 9, 0, "band", 1, QV_MAX_BANDS, 9,
   "band after the last one that is counted"},
  {at<integer, dtd, &AecDtdPara::swCountMin>, "aec.double_talk", "count_min", "swCountMin", 18, 9, 0, "bands", 0, QV_MAX_BANDS, 3,
   "counted bands that make double talk"},
  {at<integer, dtd, &AecDtdPara::swSingleTalkHang>, "aec.double_talk", "single_talk_hang", "swSingleTalkHang", 19, 9, 0, "frames", 0, 100, 12,
   "frames without near-end evidence before single talk mutes"},
  {at<q15, dtd, &AecDtdPara::fPresenceThrInit>, "aec.double_talk", "presence_start", "fPresenceThrInit", 20, 9, 0, "", 0, 1, 0.15f,
   "start of the adaptive presence threshold"},
  {at<q15, dtd, &AecDtdPara::fPresenceThrStep>, "aec.double_talk", "presence_step", "fPresenceThrStep", 21, 9, 0, "", 0, 1, 0.0116f,
   "change of that threshold per decided frame"},
  {at<q15, dtd, &AecDtdPara::fPresenceThrMax>, "aec.double_talk", "presence_max", "fPresenceThrMax", 22, 9, 0, "", 0, 1, 0.15f,
   "upper bound of that threshold"},
  {at<q15, dtd, &AecDtdPara::fPresenceThrMin>, "aec.double_talk", "presence_min", "fPresenceThrMin", 23, 9, 0, "", 0, 1, 0.07f,
   "lower bound of that threshold"},
  {at<whole, dtd, &AecDtdPara::fFarActiveThr>, "aec.double_talk", "far_active_peak", "fFarActiveThr", 24, 9, 0, "peak", 0, 32767, 22,
   "largest reference sample below which a frame counts as silent"},
});

template <AnrPara VoicePara::*record>
constexpr std::array<Field, 2> noise_reducer(std::string_view section, int32_t word) {
  return {{
    {at<integer, record, &AnrPara::swAnrEnable>, section, "enable", "swAnrEnable", word, 0, 0, "", 0, 1, 1,
     "runs the noise reducer"},
    {at<q15, record, &AnrPara::fNoiseScale>, section, "noise_scale", "fNoiseScale", word + 1, 0, 0, "", 0, 1, 0.8f,
     "factor on the tracked noise power: lower keeps more of speech and noise"},
  }};
}

template <AgcPara VoicePara::*record>
constexpr std::array<Field, 11> gain_control(std::string_view section, int32_t word) {
  return {{
    {at<integer, record, &AgcPara::swAgcEnable>, section, "enable", "swAgcEnable", word, 0, 0, "", 0, 1, 1,
     "runs the gain control"},
    {at<q5, record, &AgcPara::fKneeGainDb>, section, "knee_gain_db", "fKneeGainDb", word + 1, 0, 0, "dB", -40, 40, 0,
     "gain at the upper knee"},
    {at<q5, record, &AgcPara::fReservedDb>, section, "reserved_db", "fReservedDb", word + 2, 0, 0, "dB", -90, 0, 0,
     "carried, without effect"},
    {at<q5, record, &AgcPara::fKneeLowDb>, section, "knee_low_db", "fKneeLowDb", word + 3, 0, 0, "dB", -90, 0, -60,
     "lower knee of the level curve, dB of a full-scale square wave"},
    {at<q5, record, &AgcPara::fKneeHighDb>, section, "knee_high_db", "fKneeHighDb", word + 4, 0, 0, "dB", -90, 0, -12,
     "upper knee of the level curve, dB of a full-scale square wave"},
    {at<q12, record, &AgcPara::fSlopeLow>, section, "slope_low", "fSlopeLow", word + 5, 0, 0, "dB/dB", 0, 4, 1,
     "slope at or below the lower knee: above 1 expands"},
    {at<q12, record, &AgcPara::fSlopeMid>, section, "slope_mid", "fSlopeMid", word + 6, 0, 0, "dB/dB", 0, 4, 1,
     "slope between the knees: below 1 lifts quiet talkers, by (1 - slope) times the distance from the upper knee"},
    {at<q12, record, &AgcPara::fSlopeHigh>, section, "slope_high", "fSlopeHigh", word + 7, 0, 0, "dB/dB", 0, 4, 0.5f,
     "slope above the upper knee: below 1 limits"},
    {at<integer, record, &AgcPara::swRampLow>, section, "ramp_low", "swRampLow", word + 8, 0, 0, "samples", 0, 32767, 320,
     "samples over which the gain moves at or below the lower knee"},
    {at<integer, record, &AgcPara::swRampMid>, section, "ramp_mid", "swRampMid", word + 9, 0, 0, "samples", 0, 32767, 320,
     "samples over which the gain moves between the knees"},
    {at<integer, record, &AgcPara::swRampHigh>, section, "ramp_high", "swRampHigh", word + 10, 0, 0, "samples", 0, 32767, 160,
     "samples over which the gain moves above the upper knee"},
  }};
}

template <EqPara VoicePara::*record>
constexpr std::array<Field, 3> equaliser(std::string_view section, int32_t word) {
  return {{
    {at<integer, record, &EqPara::swEqEnable>, section, "enable", "swEqEnable", word, 0, 0, "", 0, 1, 0,
     "runs the equaliser"},
    {at<int16, record, &EqPara::swHalfTapNum>, section, "half_taps", "swHalfTapNum", word + 1, 0, 0, "taps", 1, EQ_MAX_HALF_TAPS, 1,
     "stored half of the symmetric response, centre included: 2H - 1 taps, H - 1 samples of delay"},
    {at<q15, record, &EqPara::afCoef>, section, "coef", "afCoef", word + 2, 0, 1, "", -1, 1, 0,
     "stored half of the response, the centre tap last"},
  }};
}

inline constexpr std::array comfort_noise = std::to_array<Field>({
  {at<integer, &VoicePara::stCngTx, &CngPara::swCngEnable>, "tx.cng", "enable", "swCngEnable", 440, 0, 0, "", 0, 1, 1,
   "runs the comfort noise generator"},
  {at<whole, &VoicePara::stCngTx, &CngPara::fNoiseLevel>, "tx.cng", "noise_level", "fNoiseLevel", 441, 0, 0, "", 0, 32767, 1,
   "amplitude of the noise source: the product with noise_gain counts"},
  {at<whole, &VoicePara::stCngTx, &CngPara::fNoiseGain>, "tx.cng", "noise_gain", "fNoiseGain", 442, 0, 0, "", 0, 32767, 8,
   "amplitude of the noise source: the product with noise_level counts"},
});

inline constexpr std::array echo_control = std::to_array<Field>({
  {at<mark, echo_tuning, &state_space::Tuning::enable>, echo_control_section, "enable", "enable", echo_mark_word, 0, 1, "", 0, 1, 0,
   "lets the state-space echo canceller take the place of the other one; aec.enable switches either"},
  {at<whole, echo_tuning, &state_space::Tuning::tail_ms>, echo_control_section, "tail_ms", "tail_ms", 452, 0, 0, "ms", 100, 320, 320,
   "length of the echo path behind its bulk delay"},
  {at<whole, echo_tuning, &state_space::Tuning::depth_db>, echo_control_section, "depth_db", "depth_db", 453, 0, 0, "dB", 20, 80, 60,
   "attenuation of what is left of the echo while only the far end talks"},
  {at<q12, echo_tuning, &state_space::Tuning::care>, echo_control_section, "care", "care", 454, 0, 0, "", 0, 1, 0.5f,
   "0 removes all echo at the talker's cost, 1 keeps the talker at the price of some echo"},
  {at<q12, echo_tuning, &state_space::Tuning::background>, echo_control_section, "background", "background", 455, 0, 0, "", 0, 1, 1,
   "share of the room's background that is heard in place of the echo"},
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

inline constexpr std::array fields = table::join(
    table::echo_canceller, //
    table::noise_reducer<&VoicePara::stAnrTx>("tx.anr", 100), table::noise_reducer<&VoicePara::stAnrRx>("rx.anr", 110),
    table::gain_control<&VoicePara::stAgcTx>("tx.agc", 120), table::gain_control<&VoicePara::stAgcRx>("rx.agc", 140),
    table::equaliser<&VoicePara::stEqTx>("tx.eq", 160), table::equaliser<&VoicePara::stEqRx>("rx.eq", 300), //
    table::comfort_noise, table::echo_control);

struct Section {
  std::string_view name;
  std::string_view title;
};

/// Sections of the text form, in the order of the signal paths.
inline constexpr auto sections = std::to_array<Section>({
    {"aec", "Echo canceller"},
    {"aec.suppressor", "Residual echo suppressor"},
    {"aec.double_talk", "Double-talk detector"},
    {echo_control_section, "State-space echo canceller"},
    {"tx.anr", "Noise reducer of the transmit path"},
    {"tx.agc", "Gain control of the transmit path"},
    {"tx.eq", "Equaliser of the transmit path"},
    {"tx.cng", "Comfort noise of the transmit path"},
    {"rx.anr", "Noise reducer of the receive path"},
    {"rx.agc", "Gain control of the receive path"},
    {"rx.eq", "Equaliser of the receive path"},
});

using Image = std::array<int16_t, word_count>;

using Words = std::span<const int16_t, word_count>; ///< of an image whose word 0 is a served rate

/// Whether the words of a field are its own: those of the state-space canceller are only behind their mark.
bool owns_words(const Field &field, Words words);

/// The value of an element in the field's unit; the default where the field does not own its words.
double value_of(const Field &field, Words words, int32_t element = 0);

/// Puts a value in, rounded to the nearest step and kept within 16 bits. Words that the field does not own stay. The
/// state-space canceller's switch brings and takes the words behind it: on, they begin at their defaults; off, at 0.
void set_value(const Field &field, Image &image, int32_t element, double value);

/// Puts every field that owns its words into its slot. The state-space canceller's record is zero without the mark;
/// with it, its values are the nearest within their ranges.
void store_fields(Words words, Parameters &parameters);

/// Every field at its default. @param rate  a served one, in Hz
Image default_image(int32_t rate);

} // namespace qv::config
