#include "state_space/suppressor.h"

#include <cmath>
#include <numbers>

#include "dsp/arrays.h"
#include "qvvoice/dsp/layout.h"

namespace qv::state_space {

namespace {

constexpr float block_window = 0.5f; // energy of the suppressor's window over that of the filter's block

constexpr float start_share = 0.1f, least_share = 0.003f;
constexpr float share_rise = 0.1f, share_fall = 0.2f; // per frame
constexpr float class_db = 5;

// Mean squares per sample, sample units.
constexpr float compared_echo = 469; // -63 dBFS: its shape is compared
constexpr float learnt_echo = 94;    // -70 dBFS: what is left of it is learnt
constexpr float far_speech = 1000;   // -60 dBFS: the reference says something
constexpr float far_audible = 100;   // -70 dBFS: the reference may be heard
constexpr float far_decay = 0.7f;    // per frame
constexpr float far_now_decay = 0.2f;

constexpr float compared_from = 300; // Hz
constexpr float directed = 0.9f;     // weight of the last frame in the a-priori ratio
constexpr float least_gain = 0.01f;  // -40 dB in double talk
constexpr float base_threshold = 25; // evidence: five bands' utmost, or a second of a doubtful talker
constexpr float evidence_bias = 3;   // what a frame of noise alone hardly ever brings
constexpr int32_t bands_standing_out = 3;
constexpr float like_echo = 0.9f;   // score of the change detector
constexpr int32_t established = 15; // frames after which a talker is believed whatever the echo looks like
constexpr int32_t quiet_frames = 5; // without a talker or an echo: a pause
constexpr float echo_in_background =
    0.02f; // share of the echo from which the background waits, besides what is expected

constexpr auto owned = [](Suppressor &s, auto visit) {
  visit(s.window, 2 * s.n);
  for (float **array : {&s.error_before, &s.overlap})
    visit(*array, s.n);
  for (float **array : {&s.error.re, &s.error.im, &s.echo_power, &s.residual, &s.clean_ratio})
    visit(*array, s.n + 1);
};

/// Mean powers per bin.
struct BandPowers {
  float error[most_bands], residual[most_bands];
  float echo[most_bands];          ///< of the frame
  float lasting_echo[most_bands];  ///< with what reverberates of the frames before
  float in_background[most_bands]; ///< echo that the background's tracker must not take in
};

void follow_far_end(float reference_power, Suppressor &s) {
  s.far_power = std::max(reference_power, far_decay * s.far_power);
  s.far_now = std::max(reference_power, far_now_decay * s.far_now);
  s.far_frames = s.far_power > far_audible ? s.tail_frames : std::max(s.far_frames - 1, 0);
}

/// The share of the echo that is left beside what the filter expects, for an echo as loud as this frame's.
float *share_of(float echo, Suppressor &s) {
  s.loudest = std::max(s.loudest_decay * s.loudest, echo);
  const double below = 10 * std::log10((double(s.loudest) + 1) / (double(echo) + 1));
  return s.share[std::clamp(int32_t(below / class_db), 0, Suppressor::classes - 1)];
}

/// Lets the echo decay and expects what is left of it. @param echo  [N + 1] power of the frame's  @return the share in
/// use
float *expect_residual(const float *echo, const float *uncertainty, Suppressor &s) {
  float total = 0;
  for (int32_t k = 0; k <= s.n; ++k)
    s.echo_power[k] = std::max(echo[k], s.echo_decay * s.echo_power[k]);
  for (int32_t k = s.compared_bin; k <= s.n; ++k)
    total += s.echo_power[k];
  s.echo_heard = total > compared_echo * float(s.n) * float(s.n);
  float *share = share_of(total, s);
  for (int32_t b = 0; b < s.bands.count; ++b)
    for (int32_t k = s.bands.edge[b]; k < s.bands.edge[b + 1]; ++k)
      s.residual[k] = block_window * uncertainty[k] + share[b] * s.echo_power[k];
  return share;
}

BandPowers measure(const float *error, const float *echo, const float *uncertainty, const Suppressor &s) {
  BandPowers power;
  means_of(error, s.bands, power.error);
  means_of(echo, s.bands, power.echo);
  means_of(s.residual, s.bands, power.residual);
  means_of(s.echo_power, s.bands, power.lasting_echo);
  means_of(uncertainty, s.bands, power.in_background);
  for (int32_t b = 0; b < s.bands.count; ++b)
    power.in_background[b] = block_window * power.in_background[b] + echo_in_background * power.lasting_echo[b];
  return power;
}

/// Who talks, and whether what is left is the echo of a path that has changed.
void judge(const BandPowers &power, const Arrival &arrival, Suppressor &s) {
  const TalkerEvidence evidence =
      evidence_of(s.bands, power.error, power.residual, power.lasting_echo, s.background.power);
  const bool stands_out = evidence.bands() >= bands_standing_out;
  detect(s.bands, {power.error, power.echo, s.far_now > far_speech, s.echo_heard, stands_out}, arrival, s.change);
  s.surely_echo = s.change.suspicion > 0 && s.talker.lasting <= established;
  gather(evidence, s.change.score > like_echo, s.surely_echo, s.talker);
  s.single_talk = !s.talker.talking && s.far_frames > 0;
  s.quiet = s.far_frames > 0 || stands_out ? 0 : std::min(s.quiet + 1, quiet_frames + 1);
}

void learn_share(const BandPowers &power, float *share, Suppressor &s) {
  for (int32_t b = 0; b < s.bands.count; ++b) {
    s.left_mean[b] += s.mean_weight * (power.error[b] - s.left_mean[b]);
    s.echo_mean[b] += s.mean_weight * (power.lasting_echo[b] - s.echo_mean[b]);
    if (s.echo_mean[b] < learnt_echo * float(s.n))
      continue;
    const float left = std::max(s.left_mean[b] - s.background.power[b], 0.f);
    const float ratio = std::clamp(left / s.echo_mean[b], least_share, 1.f);
    const float weight = ratio < share[b] ? share_fall : s.talker.talking ? 0 : share_rise;
    share[b] += weight * (ratio - share[b]);
  }
}

void learn(const BandPowers &power, const Arrival &arrival, float *share, Suppressor &s) {
  track(power.error, power.in_background, s.background);
  judge(power, arrival, s);
  learn_share(power, share, s);
}

/// The microphone is muted: so is what is sent, and nothing can be learnt.
void wait(Suppressor &s) {
  s.change.changed = s.surely_echo = s.single_talk = false;
  s.quiet = 0;
}

/// Wiener's gain per bin against the residual echo. @param error  [N + 1] power  @param gain  [N + 1] written
void echo_gains(const float *error, float *gain, Suppressor &s) {
  for (int32_t k = 0; k <= s.n; ++k) {
    const float posterior = error[k] / (s.caution * s.residual[k] + 1e-3f);
    const float prior = directed * s.clean_ratio[k] + (1 - directed) * std::max(posterior - 1, 0.f);
    gain[k] = std::max(prior / (1 + prior), least_gain);
    s.clean_ratio[k] = gain[k] * gain[k] * posterior;
  }
}

/// What the trace shows of the gains, and the level at which pauses are sent.
void note(const float *error, const float *noise_gain, const float *gain, Suppressor &s) {
  float sum = 0, residual = 0, sent[QV_MAX_FRAME + 1];
  for (int32_t k = 0; k < s.n; ++k) {
    sum += gain[k];
    residual += s.residual[k];
    sent[k] = noise_gain[k] * noise_gain[k] * error[k];
  }
  s.gain = sum / float(s.n);
  s.residual_power = residual / (float(s.n) * float(s.n));
  sent[s.n] = 0;
  if (s.quiet > quiet_frames) {
    float mean[most_bands];
    means_of(sent, s.bands, mean);
    learn_pause(mean, s.background);
  }
}

/// Mean and highest frequency have no part in speech.
void apply(const float *echo_gain, const float *noise_gain, Suppressor &s) {
  s.error.re[0] = s.error.re[s.n] = 0;
  for (int32_t k = 1; k < s.n; ++k) {
    const float gain = noise_gain[k] * (s.single_talk ? std::min(echo_gain[k], s.mute) : echo_gain[k]);
    s.error.re[k] *= gain;
    s.error.im[k] *= gain;
  }
}

void synthesise(BatchTransform &transform, float *out, Suppressor &s) {
  float frame[2 * QV_MAX_FRAME];
  transform.inverse({{s.error.re, s.error.im}, {}, {}, {}}, {frame, nullptr, nullptr, nullptr});
  const float scale = 1 / float(2 * s.n);
  for (int32_t i = 0; i < 2 * s.n; ++i)
    frame[i] *= s.window[i] * scale;
  for (int32_t i = 0; i < s.n; ++i)
    out[i] = s.overlap[i] + frame[i];
  std::copy_n(frame + s.n, s.n, s.overlap);
}

} // namespace

bool init(const Shape &shape, bool noise_reduced, uint32_t seed, Suppressor &s) {
  s = {};
  s.n = shape.n;
  s.bands = bands_of(shape);
  s.compared_bin = shape.bin(compared_from);
  s.tail_frames = shape.frames(longest_tail_ms);
  s.echo_decay = shape.keep(0.3);
  s.mean_weight = 1 - shape.keep(0.8);
  s.loudest_decay = shape.keep(0.9995);
  for (auto &share : s.share)
    std::fill_n(share, most_bands, start_share);
  start(shape, noise_reduced, seed, s.background);
  s.talker.bias = evidence_bias;
  s.change.wait = shape.frames(500);
  if (!take(s, owned))
    return false;
  for (int32_t i = 0; i < 2 * s.n; ++i)
    s.window[i] = float(std::sqrt(0.5 - 0.5 * std::cos(std::numbers::pi * i / s.n)));
  return true;
}

void destroy(Suppressor &s) { give_back(s, owned); }

void tune(const Tuning &tuning, Suppressor &s) {
  const double care = std::clamp(double(tuning.care), 0.0, 1.0);
  s.caution = float(std::exp2(1 - 2 * care));
  s.talker.threshold = base_threshold * s.caution;
  s.mute = float(std::pow(10, -double(tuning.depth_db) / 20));
  s.filling = std::clamp(tuning.background, 0.f, 1.f);
}

void window_error(const float *error, float *windowed, Suppressor &s) {
  for (int32_t i = 0; i < s.n; ++i) {
    windowed[i] = s.error_before[i] * s.window[i];
    windowed[s.n + i] = error[i] * s.window[s.n + i];
    s.error_before[i] = error[i];
  }
}

void suppress(const EchoState &state, const Arrival &arrival, const float *noise_gain, BatchTransform &transform,
              float *out, Suppressor &s) {
  float error[QV_MAX_FRAME + 1], echo[QV_MAX_FRAME + 1], gain[QV_MAX_FRAME + 1];
  power_of(s.error, 1, error, s.n + 1);
  power_of(state.echo, block_window, echo, s.n + 1);
  follow_far_end(state.reference_power, s);
  float *share = expect_residual(echo, state.uncertainty, s);
  const BandPowers power = measure(error, echo, state.uncertainty, s);
  if (state.microphone_muted)
    wait(s);
  else
    learn(power, arrival, share, s);
  if (s.surely_echo)
    for (int32_t k = 0; k <= s.n; ++k)
      s.residual[k] = std::max(s.residual[k], error[k]);
  echo_gains(error, gain, s);
  note(error, noise_gain, gain, s);
  apply(gain, noise_gain, s);
  if (s.single_talk)
    fill(s.filling, s.error, s.background);
  s.error.re[s.n] = 0;
  synthesise(transform, out, s);
}

} // namespace qv::state_space
