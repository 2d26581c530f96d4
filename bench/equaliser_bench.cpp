// The equaliser at its full 257 taps on frames of 320 samples, against the same loop that makes one output after the
// other. Both give the same samples; the library's takes at most a quarter of the time, or this program fails.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "dsp/fma.h"
#include "dsp/sample.h"
#include "qvvoice/post/eq.h"

namespace {

constexpr int32_t frame_len = 320, taps = 2 * EQ_MAX_HALF_TAPS - 1;
constexpr double wanted_ratio = 0.25;

/// One output: its taps in order, one fused multiply-add each. Not inlined, so that outputs cannot be computed side by
/// side.
[[gnu::noinline]] float one_output(const float *x, const float *coef) {
  float sum = 0;
  for (int32_t k = 0; k < taps; ++k)
    sum = qv::fma_q15(x[k], coef[k], sum);
  return sum;
}

#if defined(__x86_64__)
/// The same with the instruction, for processors on which the library has it too.
[[gnu::noinline, gnu::target("fma")]] float one_output_by_instruction(const float *x, const float *coef) {
  float sum = 0;
  for (int32_t k = 0; k < taps; ++k)
    sum = __builtin_fmaf(x[k], coef[k], sum);
  return sum;
}
const auto reference = __builtin_cpu_supports("x86-64-v3") ? one_output_by_instruction : one_output;
#else
const auto reference = one_output;
#endif

/// One frame through a fresh equaliser: the history holds silence.
struct Setting {
  EqState state{};
  std::vector<int16_t> in = std::vector<int16_t>(frame_len);
  std::vector<float> x = std::vector<float>(taps - 1 + frame_len);

  Setting() {
    std::minstd_rand random(1);
    EqPara para{.swEqEnable = 1, .swFrameLen = frame_len, .swHalfTapNum = EQ_MAX_HALF_TAPS, .afCoef = {}};
    for (float &coef : para.afCoef)
      coef = float(int32_t(random() % 4000) - 2000) / 32768.f;
    EQ_Init(&para, &state);
    for (int16_t &sample : in)
      sample = int16_t(random());
    std::copy(in.begin(), in.end(), x.begin() + taps - 1);
  }
  ~Setting() { EQ_Destroy(&state); }

  void one_at_a_time(int16_t *out) const {
    for (int32_t j = 0; j < frame_len; ++j)
      out[j] = qv::to_sample(reference(x.data() + j, state.pfCoef));
  }
};

void library(benchmark::State &run) {
  Setting setting;
  std::vector<int16_t> out(frame_len);
  for (auto _ : run) {
    EQ_Process(setting.in.data(), out.data(), &setting.state);
    benchmark::DoNotOptimize(out.data());
  }
}

void one_at_a_time(benchmark::State &run) {
  const Setting setting;
  std::vector<int16_t> out(frame_len);
  for (auto _ : run) {
    setting.one_at_a_time(out.data());
    benchmark::DoNotOptimize(out.data());
  }
}

/// Prints as usual and keeps the shortest time of each benchmark, which other programs disturb least.
struct Shortest : benchmark::ConsoleReporter {
  std::map<std::string, double> seconds;
  void ReportRuns(const std::vector<Run> &runs) override {
    for (const Run &run : runs)
      if (run.run_type == Run::RT_Iteration) {
        const double time = run.cpu_accumulated_time / double(run.iterations);
        const auto [entry, added] = seconds.try_emplace(run.run_name.function_name, time);
        entry->second = std::min(entry->second, time);
      }
    ConsoleReporter::ReportRuns(runs);
  }
};

bool same_samples() {
  Setting setting;
  std::vector<int16_t> found(frame_len), expected(frame_len);
  EQ_Process(setting.in.data(), found.data(), &setting.state);
  setting.one_at_a_time(expected.data());
  return found == expected && std::count(found.begin(), found.end(), 0) < frame_len / 2;
}

BENCHMARK(library)->Repetitions(5)->Unit(benchmark::kMicrosecond);
BENCHMARK(one_at_a_time)->Repetitions(5)->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  if (!same_samples()) {
    std::puts("the two loops give different samples");
    return 1;
  }
  Shortest shortest;
  benchmark::RunSpecifiedBenchmarks(&shortest);
  const double ratio = shortest.seconds["library"] / shortest.seconds["one_at_a_time"];
  std::printf("library / one at a time: %.3f (at most %.2f wanted)\n", ratio, wanted_ratio);
  return ratio <= wanted_ratio ? 0 : 1;
}
