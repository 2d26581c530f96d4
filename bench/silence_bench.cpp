// Cost of a frame of digital silence against one of speech, on both paths with every stage on: each second of three
// minutes of silence after speech, while the averages decay, pass through the denormal numbers and come to rest
// there. Medians over a second, the least of several rounds: the machine may be busy. The dearest second is to cost
// at most 1.2 times the speech; otherwise the run is marked as failed.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "config/fields.h"
#include "qvvoice/qvvoice.h"

namespace {

constexpr int speech_seconds = 10, silence_seconds = 180, rounds = 3;
constexpr double allowed_ratio = 1.2;

enum Path { transmit, receive };

/// Every stage on: the defaults, with equalisers of 129 taps that pass the signal.
qv::config::Image everything_on(int rate) {
  qv::config::Image image = qv::config::default_image(rate);
  for (const qv::config::Field &field : qv::config::fields) {
    if (field.name == "swEqEnable")
      set_value(field, image, 0, 1);
    if (field.name == "swHalfTapNum")
      set_value(field, image, 0, 65);
    if (field.name == "afCoef")
      set_value(field, image, 64, 1); // the nearest below
  }
  return image;
}

/// Low-passed noise in four syllables a second, with a pause every two seconds; then silence.
std::vector<int16_t> speech_then_silence(int rate) {
  std::minstd_rand source(1);
  std::uniform_real_distribution<double> sample(-1, 1);
  std::vector<int16_t> signal(size_t(rate) * (speech_seconds + silence_seconds));
  double low = 0;
  for (int i = 0; i < speech_seconds * rate; ++i) {
    const double t = double(i) / rate;
    const double level = std::fmod(t, 2.0) > 1.6 ? 0 : std::exp(-8 * std::fmod(t, 0.25));
    low = 0.7 * low + sample(source);
    signal[size_t(i)] = int16_t(4000 * level * low);
  }
  return signal;
}

/// Microseconds that one frame takes; in the transmit path the microphone hears the reference, a fifth as loud.
double time_of_frame(Path path, const int16_t *in, std::vector<int16_t> &mic, std::vector<int16_t> &out) {
  std::transform(in, in + mic.size(), mic.begin(), [](int16_t x) { return int16_t(x / 5); });
  const auto start = std::chrono::steady_clock::now();
  if (path == transmit)
    QV_VOICE_ProcessTx(mic.data(), in, out.data(), 0);
  else
    QV_VOICE_ProcessRx(in, out.data(), 0);
  benchmark::DoNotOptimize(out.data());
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
}

/// Lowers the cost of every second of the signal to the median of this run's frames, where that is less.
void time_seconds(Path path, const std::vector<int16_t> &signal, int rate, int frame, std::vector<double> &cost) {
  std::vector<int16_t> mic(static_cast<size_t>(frame)), out(mic.size());
  const int per_second = rate / frame;
  for (size_t second = 0; second < cost.size(); ++second) {
    std::vector<double> times(static_cast<size_t>(per_second));
    for (size_t f = 0; f < times.size(); ++f)
      times[f] = time_of_frame(path, &signal[(second * times.size() + f) * mic.size()], mic, out);
    std::nth_element(times.begin(), times.begin() + per_second / 2, times.end());
    cost[second] = std::min(cost[second], times[times.size() / 2]);
  }
}

void silence_against_speech(benchmark::State &state, Path path, int rate, int frame) {
  const auto signal = speech_then_silence(rate);
  std::vector<double> cost(speech_seconds + silence_seconds, INFINITY);
  for (auto _ : state) {
    if (QV_VOICE_InitImage(everything_on(rate).data(), rate, frame) != QV_VOICE_OK) {
      state.SkipWithError("initialisation failed");
      return;
    }
    time_seconds(path, signal, rate, frame, cost);
    QV_VOICE_Destory();
  }
  const auto silence = cost.begin() + speech_seconds + 1; // a second for the switch
  double speech = 0;
  for (int i = 0; i < speech_seconds; ++i)
    speech += cost[size_t(i)] / speech_seconds;
  const auto dearest = std::max_element(silence, cost.end());
  state.counters["speech_us"] = speech;
  state.counters["rest_us"] = cost.back();
  state.counters["dearest_us"] = *dearest;
  state.counters["dearest_at_s"] = double(dearest - cost.begin() - speech_seconds);
  state.counters["ratio"] = *dearest / speech;
  if (!(*dearest <= allowed_ratio * speech))
    state.SkipWithError("silence costs more than 1.2 times speech");
}

} // namespace

int main(int argc, char **argv) {
  for (const auto &[name, path] : {std::pair{"transmit/", transmit}, {"receive/", receive}})
    for (const auto &[rate, frame] : qv::layouts)
      benchmark::RegisterBenchmark((name + std::to_string(frame)).c_str(), silence_against_speech, path, rate, frame)
          ->Iterations(rounds);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
