// Time of a frame and of its stages, next to that of the transforms which the frame makes, at all four
// layouts. The last lines give the ratios: times of one run, the least of several interleaved repetitions.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "config/fields.h"
#include "qvvoice/api/process.h"
#include "qvvoice/dsp/fft.h"
#include "qvvoice/dsp/math.h"
#include "qvvoice/qvvoice.h"

namespace {

using Samples = std::vector<int16_t>;

using qv::Layout, qv::layouts;
constexpr int32_t frames = 250; ///< of the call that every benchmark runs round

// Transforms of one frame: noise reducer 1 + 1, adaptive filter 5 + 4, suppressor 4 + 1, comfort noise 1 + 1;
// delay estimator: two signals in two blocks of half a frame, so transforms of one frame's length.
struct Transforms {
  int32_t forward_2n, inverse_2n, forward_n;
};
constexpr Transforms tx_transforms = {11, 7, 4}, rx_transforms = {1, 1, 0};

/// Syllables of coloured noise, one in three frames quiet.
Samples speech_like(uint32_t seed, int32_t length, int32_t rate, float level) {
  Samples samples(static_cast<size_t>(length));
  float low = 0;
  for (int32_t i = 0; i < length; ++i) {
    low = 0.8f * low + VOICE_Rand(&seed, 1.f);
    const float envelope = std::max(0.f, std::sin(6.28f * 3.f * float(i) / float(rate)) + 0.5f);
    samples[size_t(i)] = int16_t(std::clamp(level * envelope * low, -32768.f, 32767.f));
  }
  return samples;
}

/// A call going on with the default parameters, the echo a few milliseconds late, both talkers active.
class Call {
public:
  explicit Call(Layout layout)
      : layout_(layout), far_(speech_like(1, frames * layout.frame_len, layout.rate, 3000.f)),
        mic_(speech_like(2, frames * layout.frame_len, layout.rate, 1000.f)), out_(size_t(layout.frame_len)),
        played_(size_t(layout.frame_len)) {
    for (size_t i = 40; i < mic_.size(); ++i)
      mic_[i] = int16_t(mic_[i] + far_[i - 40] / 4);
    qv::config::Image image = qv::config::default_image(layout.rate);
    image[161] = 32; // half length of the transmit equaliser, which is off but for its own row
    if (QV_VOICE_InitImage(image.data(), layout.rate, layout.frame_len) != QV_VOICE_OK)
      std::abort();
    for (int32_t i = 0; i < frames; ++i)
      tx_frame();
  }
  ~Call() { QV_VOICE_Destory(); }
  Call(const Call &) = delete;
  Call &operator=(const Call &) = delete;

  const int16_t *mic() const { return mic_.data() + frame_ * layout_.frame_len; }
  const int16_t *far() const { return far_.data() + frame_ * layout_.frame_len; }
  int16_t *out() { return out_.data(); }
  int16_t *played() { return played_.data(); }
  void step() { frame_ = (frame_ + 1) % frames; }
  void tx_frame() { QV_VOICE_ProcessTx(mic(), far(), out(), uint32_t(layout_.frame_len)), step(); }
  void rx_frame() { QV_VOICE_ProcessRx(far(), played(), uint32_t(layout_.frame_len)), step(); }

private:
  Layout layout_;
  Samples far_, mic_, out_, played_;
  int32_t frame_ = 0;
};

void run_transforms(Transforms count, int32_t n, const std::vector<float> &in, std::vector<float> &out) {
  for (int32_t i = 0; i < count.forward_2n; ++i)
    VOICE_Fft(in.data(), out.data(), 2 * n);
  for (int32_t i = 0; i < count.inverse_2n; ++i)
    VOICE_Ifft(in.data(), out.data(), 2 * n);
  for (int32_t i = 0; i < count.forward_n; ++i)
    VOICE_Fft(in.data(), out.data(), n);
  benchmark::DoNotOptimize(out.data());
}

using Work = std::function<void(Call &)>;

void add(const std::string &name, Layout layout, Work work) {
  benchmark::RegisterBenchmark((name + "/" + std::to_string(layout.frame_len)).c_str(), [=](benchmark::State &state) {
    Call call(layout);
    for ([[maybe_unused]] auto _ : state)
      work(call);
  });
}

void add_layout(Layout layout) {
  VoiceProcess &st = g_stVoiceProcess;
  const int32_t n = layout.frame_len;
  add("tx", layout, [](Call &call) { call.tx_frame(); });
  add("rx", layout, [](Call &call) { call.rx_frame(); });

  add("noise_reducer", layout, [&](Call &call) {
    ANR_Process(call.mic(), call.out(), &st.stAnrTx);
    call.step();
  });
  add("delay", layout, [&, n](Call &call) {
    AEC_DelayProcess(call.mic(), call.far(), n, &st.stAec.stDelay);
    call.step();
  });
  add("adaptive_filter", layout, [&](Call &call) {
    AEC_MdfProcess(call.mic(), call.far(), call.out(), &st.stAec.stMdf);
    call.step();
  });
  add("suppressor", layout, [&, n](Call &call) {
    std::copy_n(call.mic(), n, call.out());
    AEC_DtdProcessPassJudge(call.far(), &st.stAec.stDtd);
    AEC_NlpProcess(call.mic(), call.far(), call.out(), &st.stAec.stDtd, &st.stAec.stNlp, st.stAnrTx.pfBinGain, 0.1f);
    call.step();
  });
  add("gain_control", layout, [&](Call &call) {
    AGC_Process(call.mic(), call.out(), &st.stAgcTx);
    call.step();
  });
  add("equaliser", layout, [&](Call &call) {
    st.stEqTx.swEqEnable = 1;
    EQ_Process(call.mic(), call.out(), &st.stEqTx);
    call.step();
  });
  add("comfort_noise", layout, [&](Call &call) {
    CNG_Process(call.mic(), call.out(), 2, st.stAnrTx.stEnhance.pfNoiseBand, st.stAec.stNlp.pfErrBand, &st.stCngTx);
    call.step();
  });

  std::vector<float> in(size_t(2 * n));
  std::copy_n(speech_like(1, 2 * n, layout.rate, 3000.f).begin(), 2 * n, in.begin());
  for (const auto &[name, count] : {std::pair{"tx_transforms", tx_transforms}, {"rx_transforms", rx_transforms}})
    add(name, layout,
        [=, out = std::vector<float>(size_t(2 * n))](Call &) mutable { run_transforms(count, n, in, out); });
}

/// Keeps the least time of every benchmark, and prints them as one table with the ratios below.
class Table : public benchmark::BenchmarkReporter {
public:
  bool ReportContext(const Context &) override { return true; }

  void ReportRuns(const std::vector<Run> &runs) override {
    for (const Run &run : runs)
      if (run.run_type == Run::RT_Iteration) {
        const double time = run.GetAdjustedCPUTime() / 1000;
        const auto [entry, is_new] = least_.try_emplace(run.run_name.function_name, time);
        entry->second = std::min(entry->second, time);
      }
  }

  void Finalize() override {
    std::printf("%-16s", "us per frame");
    for (const Layout layout : layouts)
      std::printf(" %5d/%d", layout.rate, layout.frame_len);
    for (const char *name : {"tx", "rx", "noise_reducer", "delay", "adaptive_filter", "suppressor", "gain_control",
                             "equaliser", "comfort_noise", "tx_transforms", "rx_transforms"})
      print_row(name, [=, this](const std::string &n) { return time(name, n); });
    print_row("tx/transforms", [this](const std::string &n) { return time("tx", n) / time("tx_transforms", n); });
    print_row("(tx+rx)/transf.", [this](const std::string &n) {
      return (time("tx", n) + time("rx", n)) / (time("tx_transforms", n) + time("rx_transforms", n));
    });
    std::puts("");
  }

private:
  double time(const std::string &name, const std::string &n) const {
    const auto entry = least_.find(name + "/" + n);
    return entry == least_.end() ? std::nan("") : entry->second;
  }

  template <class Value> static void print_row(const char *name, Value value) {
    std::printf("\n%-16s", name);
    for (const Layout layout : layouts)
      std::printf(" %*.3f", layout.rate < 10000 ? 8 : 9, value(std::to_string(layout.frame_len)));
  }

  std::map<std::string, double> least_;
};

} // namespace

int main(int argc, char **argv) {
  std::vector<char *> args(argv, argv + argc); // ours first: what the caller gives overrides them
  char interleave[] = "--benchmark_enable_random_interleaving=true", repeat[] = "--benchmark_repetitions=9",
       shorten[] = "--benchmark_min_time=0.02";
  args.insert(args.begin() + 1, {interleave, repeat, shorten});
  int count = int(args.size());
  benchmark::Initialize(&count, args.data());
  if (benchmark::ReportUnrecognizedArguments(count, args.data()))
    return 2;
  for (const Layout layout : layouts)
    add_layout(layout);
  Table table;
  benchmark::RunSpecifiedBenchmarks(&table);
}
