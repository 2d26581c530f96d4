// What the noise reducer does to recorded speech in noise. docs/noise.md holds its output and says what the columns
// mean.
//
//   noise_table [--scale 0.8] [--sweep 0.5 0.65 0.8]

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <functional>
#include <map>
#include <span>
#include <string>

#include "call/run.h"
#include "scene/noise.h"
#include "scene/speech.h"
#include "signal/activity.h"

namespace {

using namespace qv::tool;

constexpr double speech_level = -26;             // dBov, active
constexpr double active_margin = 15.9;           // dB below it: a frame of speech (as in ITU-T P.56)
constexpr double pause_margin = 50;              // dB below it: nothing but noise
constexpr double least_snr = -10, most_snr = 35; // dB, of a segment
constexpr int babblers = 16;
constexpr size_t voices = 2; // English and Russian: those that have all of the prompts
constexpr const char *prompts[] = {"demo-congrats", "vm-options", "conf-adminmenu", "basic-pbx-ivr-main"};
constexpr double snrs[] = {5, 10, 20};
constexpr struct { int rate, frame_ms; } layouts[] = {{8000, 16}, {8000, 20}, {16000, 16}, {16000, 20}};

struct Noise {
  const char *kind;
  Signal signal; // power 1, as long as the speech
};

struct Material {
  Signal speech;
  std::vector<Noise> noises;
};

/// Whole prompts of both voices, each after a second of silence.
Signal conversation(scene::SpeechReader &reader, int rate) {
  Signal all;
  for (const scene::Voice &voice : std::span(scene::voices()).first(voices))
    for (const char *prompt : prompts) {
      Signal part = reader.recording(std::string(voice.folder) + "/" + prompt + (rate == 8000 ? ".wav" : ".g722"));
      scale(part, gain_from_db(speech_level - active_level_db(part, rate).value()));
      all.insert(all.end(), size_t(rate), 0.0);
      all.insert(all.end(), part.begin(), part.end());
    }
  return all;
}

Signal babble(scene::SpeechReader &reader, size_t count) {
  Signal sum(count);
  for (uint64_t i = 0; i < babblers; ++i) {
    const scene::Voice &voice = scene::voices()[i % voices];
    const Signal one = reader.stream({voice.name, {}}, count, scene::Random(1, i));
    std::ranges::transform(sum, one, sum.begin(), std::plus());
  }
  return sum;
}

Material make_material(int rate) {
  scene::SpeechReader reader(rate);
  Material material{conversation(reader, rate), {}};
  const size_t count = material.speech.size();
  material.noises = {{"white", scene::white_noise(count, scene::Random(1))},
                     {"pink", scene::pink_noise(count, scene::Random(1))},
                     {"babble", babble(reader, count)}};
  for (Noise &noise : material.noises)
    scale(noise.signal, 1 / std::sqrt(power(noise.signal)));
  return material;
}

/// The receive path with nothing but the noise reducer, its delay taken out.
Signal reduce_noise(const Signal &in, int rate, int frame_ms, double noise_scale) {
  Setup setup = setup_of(qv::config::default_image(rate), "defaults", rate, frame_ms);
  for (const qv::config::Field &field : qv::config::fields) {
    if (field.name == "swAgcEnable" || field.name == "swEqEnable")
      set_value(field, setup.para, 0, 0);
    if (field.name == "fNoiseScale")
      set_value(field, setup.para, 0, noise_scale);
  }
  return to_signal(run_rx(setup, to_samples(in), {.compensate = true, .progress = {}}).played);
}

double segment_snr(SignalView clean, SignalView noisy) {
  Signal error(clean.size());
  std::ranges::transform(clean, noisy, error.begin(), std::minus());
  return std::clamp(10 * std::log10(power(clean) / power(error)), least_snr, most_snr);
}

enum Column { attenuation, flutter, level_change, snr_before, snr_after, columns };
using Quality = std::array<double, columns>; // dB

Quality measure(const Signal &clean, const Signal &noisy, const Signal &out, int rate) {
  const std::vector<double> level = frame_powers(clean, rate), before = frame_powers(noisy, rate),
                            after = frame_powers(out, rate);
  const std::vector<bool> active = activity(clean, rate);
  const size_t length = frame_length(rate);
  double in_pauses = 0, out_pauses = 0, sum = 0, squares = 0, cross = 0, speech = 0;
  int spoken = 0, pauses = 0;
  Quality q{};
  for (size_t f = 0; f < level.size(); ++f) {
    if (!active[f] && level[f] < from_db(speech_level - pause_margin)) {
      const double reduction = 10 * std::log10(before[f] / std::max(after[f], 0x1p-34)); // down to 1/8 of the last bit
      ++pauses, in_pauses += before[f], out_pauses += after[f];
      sum += reduction, squares += reduction * reduction;
    }
    if (level[f] > from_db(speech_level - active_margin)) {
      const auto segment = [&](const Signal &x) { return SignalView(x).subspan(f * length, length); };
      ++spoken;
      q[snr_before] += segment_snr(segment(clean), segment(noisy));
      q[snr_after] += segment_snr(segment(clean), segment(out));
      for (size_t i = f * length; i < (f + 1) * length; ++i)
        cross += clean[i] * out[i], speech += clean[i] * clean[i];
    }
  }
  q[attenuation] = 10 * std::log10(in_pauses / out_pauses);
  q[flutter] = std::sqrt(squares / pauses - std::pow(sum / pauses, 2));
  q[level_change] = 20 * std::log10(cross / speech);
  q[snr_before] /= spoken;
  q[snr_after] /= spoken;
  return q;
}

/// Seconds after a rise of the noise by 10 dB until 0.2 s of the output lie within 3 dB of what is then to be
/// expected; the median of eleven pieces of the noise.
double adaptation_time(const Signal &noise, int rate, int frame_ms, double noise_scale) {
  const auto second = size_t(rate), jump = 4 * second, window = second / 5;
  std::vector<double> times;
  for (size_t piece = 0; piece < 11; ++piece) {
    Signal in = excerpt(noise, std::ptrdiff_t(piece * (noise.size() - 2 * jump) / 10), 2 * jump);
    scale(in, gain_from_db(-50));
    std::transform(in.begin() + long(jump), in.end(), in.begin() + long(jump),
                   [](double x) { return x * gain_from_db(10); });
    const Signal out = reduce_noise(in, rate, frame_ms, noise_scale);
    const SignalView view(out);
    const double wanted = power(view.subspan(jump - 2 * second, 2 * second)) * from_db(10 + 3);
    size_t at = jump;
    while (at + window < out.size() && power(view.subspan(at, window)) > wanted)
      at += second / 100;
    times.push_back(double(at - jump) / rate);
  }
  return median(times);
}

Quality one_case(const Material &material, const Noise &noise, double snr, int rate, int frame_ms, double noise_scale) {
  Signal noisy = noise.signal;
  scale(noisy, gain_from_db(speech_level - snr));
  std::ranges::transform(noisy, material.speech, noisy.begin(), std::plus());
  return measure(material.speech, noisy, reduce_noise(noisy, rate, frame_ms, noise_scale), rate);
}

using Materials = std::map<int, Material>; // by rate

void print_table(const Materials &materials, double noise_scale) {
  std::puts(
      "| rate | frame | noise | SNR | attenuation in pauses | flutter | speech level | segmental SNR before | after "
      "| gain |\n|---|---|---|---|---|---|---|---|---|---|");
  for (const auto [rate, ms] : layouts)
    for (const Noise &noise : materials.at(rate).noises)
      for (const double snr : snrs) {
        const Quality q = one_case(materials.at(rate), noise, snr, rate, ms, noise_scale);
        std::printf("| %d | %d | %s | %.0f | %.1f | %.1f | %+.2f | %.1f | %.1f | %+.1f |\n", rate, ms, noise.kind, snr,
                    q[attenuation], q[flutter], q[level_change], q[snr_before], q[snr_after],
                    q[snr_after] - q[snr_before]);
      }
}

void print_adaptation(const Materials &materials, double noise_scale) {
  std::puts("\n| rate | frame | white | pink | babble |\n|---|---|---|---|---|");
  for (const auto [rate, ms] : layouts) {
    std::printf("| %d | %d |", rate, ms);
    for (const Noise &noise : materials.at(rate).noises)
      std::printf(" %.2f |", adaptation_time(noise.signal, rate, ms, noise_scale));
    std::puts("");
  }
}

/// Means over the layouts.
void print_sweep(const Materials &materials, const std::vector<double> &noise_scales) {
  std::puts("| noise | SNR | fNoiseScale | attenuation in pauses | flutter | speech level | segmental SNR gain |\n"
            "|---|---|---|---|---|---|---|");
  for (size_t kind = 0; kind < materials.begin()->second.noises.size(); ++kind)
    for (const double snr : snrs)
      for (const double noise_scale : noise_scales) {
        Quality mean{};
        for (const auto [rate, ms] : layouts) {
          const Material &material = materials.at(rate);
          const Quality q = one_case(material, material.noises[kind], snr, rate, ms, noise_scale);
          std::ranges::transform(mean, q, mean.begin(), [](double m, double x) { return m + x / std::size(layouts); });
        }
        std::printf("| %s | %.0f | %.2f | %.1f | %.1f | %+.2f | %+.1f |\n", materials.at(8000).noises[kind].kind, snr,
                    noise_scale, mean[attenuation], mean[flutter], mean[level_change],
                    mean[snr_after] - mean[snr_before]);
      }
}

} // namespace

int main(int argc, char **argv) {
  CLI::App app{"Measures the noise reducer on recorded speech in white, pink and babble noise"};
  const auto field = std::find_if(qv::config::fields.begin(), qv::config::fields.end(),
                                  [](const qv::config::Field &candidate) { return candidate.name == "fNoiseScale"; });
  double noise_scale = field->preset;
  std::vector<double> sweep;
  app.add_option("--scale", noise_scale, "fNoiseScale")->capture_default_str();
  app.add_option("--sweep", sweep, "Print the means for these values of fNoiseScale instead");
  CLI11_PARSE(app, argc, argv);
  try {
    const Materials materials{{8000, make_material(8000)}, {16000, make_material(16000)}};
    if (!sweep.empty()) {
      print_sweep(materials, sweep);
      return 0;
    }
    print_table(materials, noise_scale);
    print_adaptation(materials, noise_scale);
  } catch (const std::exception &error) {
    std::fprintf(stderr, "noise_table: %s\n", error.what());
    return 2;
  }
}
