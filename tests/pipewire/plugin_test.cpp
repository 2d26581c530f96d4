// The plugin that ships, loaded as the daemon loads it: bytes, rates, channels, echo, refusals, the heap.

#include <cmath>
#include <complex>
#include <cstdlib>
#include <fstream>
#include <numbers>

#include "call/calls.h"
#include "heap_watch.h"
#include "host.h"

namespace {

using namespace qv::test;

constexpr Layout layout = all_layouts[3];

std::vector<float> to_float(const Samples &x) {
  std::vector<float> y(x.size());
  std::transform(x.begin(), x.end(), y.begin(), [](int16_t s) { return float(s) / 32768; });
  return y;
}

Samples to_samples(const std::vector<float> &x) {
  Samples y(x.size());
  std::transform(x.begin(), x.end(), y.begin(), [](float s) { return int16_t(std::lrint(s * 32768)); });
  return y;
}

/// A packed file, removed with the object.
struct ParameterFile {
  std::string path = testing::TempDir() + "qvvoice_plugin_" + std::to_string(getpid()) + "_";
  explicit ParameterFile(const qv::config::Image &image, size_t bytes = 1000) {
    path += std::to_string(bytes) + ".para";
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char *>(image.data()), std::streamsize(bytes));
  }
  ~ParameterFile() { std::remove(path.c_str()); }
};

/// Every stage off: what goes in comes out.
qv::config::Image nothing_on(int32_t rate) {
  qv::config::Image image = qv::config::default_image(rate);
  for (const auto &field : qv::config::fields)
    if (field.is_switch())
      image[size_t(field.word(rate, 0))] = 0;
  return image;
}

// At the call's own rate the output is the call's, to the byte, N - 1 samples later, whatever the blocks. Catches a
// block border that moves samples, and a wrong scale.
TEST(Plugin, bytes_are_those_of_a_call) {
  const ParameterFile file(busy_image(layout.rate));
  const Call signals(layout, 60);
  const auto call = make_call(layout, busy_image(layout.rate));
  const size_t n = size_t(layout.frame_len), count = signals.mic.size();
  Samples expected(count);
  for (size_t at = 0; at < count; at += n)
    ASSERT_EQ(qv_call_transmit(call.get(), &signals.mic[at], &signals.far[at], &expected[at]), QV_VOICE_OK);

  for (const std::vector<uint32_t> &blocks : {std::vector<uint32_t>{320}, {341, 342}, {1}, {111, 1, 1024}, {8192}}) {
    Host host({{"parameters", file.path}}, 16000, 1);
    ASSERT_EQ(host.status, 0) << host.log.text;
    const Samples out = to_samples(host.run({to_float(signals.mic)}, {to_float(signals.far)}, blocks)[0]);
    EXPECT_TRUE(std::equal(out.begin() + long(n) - 1, out.end(), expected.begin())) << "blocks of " << blocks[0];
  }
}

/// Amplitude and phase of a tone in the second half of a signal.
std::complex<double> tone_in(const std::vector<float> &x, double hz, double rate) {
  std::complex<double> sum;
  double weights = 0;
  for (size_t i = x.size() / 2; i < x.size(); ++i) {
    const double at = double(i) / double(x.size() - 1), weight = std::pow(std::sin(2 * std::numbers::pi * at), 2);
    sum += weight * double(x[i]) * std::polar(2., -2 * std::numbers::pi * hz * double(i) / rate);
    weights += weight;
  }
  return sum / weights;
}

std::vector<float> tone(double hz, double rate, double seconds = 0.4) {
  std::vector<float> x(size_t(seconds * rate));
  for (size_t i = 0; i < x.size(); ++i)
    x[i] = float(0.5 * std::sin(2 * std::numbers::pi * hz * double(i) / rate));
  return x;
}

// Every graph's rate and its own: the channels' mean, flat, at the delay that the log announces, nothing above the
// call's band. Catches a filter of the wrong length or gain, a channel left out, images and aliases.
TEST(Plugin, passes_the_band_of_the_call_at_any_rate) {
  for (const int32_t call_rate : {8000, 16000})
    for (const uint32_t rate : {8000u, 11025u, 16000u, 32000u, 44100u, 48000u, 96000u}) {
      SCOPED_TRACE(std::to_string(call_rate) + " in " + std::to_string(rate));
      const ParameterFile file(nothing_on(call_rate));
      const auto response = [&](double hz, double &announced_ms) {
        Host host({{"parameters", file.path}, {"rate", std::to_string(call_rate)}}, rate, 2);
        EXPECT_EQ(host.status, 0) << host.log.text;
        const auto in = tone(hz, rate);
        const std::vector<float> nothing(in.size());
        const auto out = host.run({in, nothing}, {nothing, nothing}, {333, 1, 47});
        EXPECT_EQ(out[0], out[1]);
        announced_ms = std::stod(host.log.text.substr(host.log.text.find("delay ") + 6));
        return tone_in(out[0], hz, rate) / tone_in(in, hz, rate);
      };
      double delay_ms = 0;
      const auto low = response(500, delay_ms), high = response(510, delay_ms);
      const double turn = std::arg(low / high) / (2 * std::numbers::pi); // of 10 Hz: within 100 ms, no ambiguity
      EXPECT_NEAR(100 * (turn < 0 ? turn + 1 : turn), delay_ms, 0.1);
      const double edge = 0.84 * std::min(call_rate, int32_t(rate)) / 2;
      for (const double hz : {500., edge / 2, edge})
        EXPECT_NEAR(20 * std::log10(std::abs(response(hz, delay_ms))), -6.02, 0.1) << hz << " Hz";
      if (rate <= 2 * uint32_t(call_rate))
        continue;
      for (const double hz : {0.55, 0.45}) { // mirrored at the call's Nyquist frequency on the way in, and out
        const auto in = tone(hz * call_rate, rate);
        Host host({{"parameters", file.path}, {"rate", std::to_string(call_rate)}}, rate, 1);
        const auto out = host.run({in}, {in}, {441})[0];
        EXPECT_LT(std::abs(tone_in(out, (1 - hz) * call_rate, rate)), 1e-4 * 0.5) << hz; // 80 dB down
      }
    }
}

double power(const std::vector<float> &x, double from) {
  double sum = 0;
  const auto start = size_t(from * double(x.size()));
  for (size_t i = start; i < x.size(); ++i)
    sum += double(x[i]) * double(x[i]);
  return sum / double(x.size() - start);
}

// A stereo graph at 48 kHz with odd blocks: the echo of what is played goes, and without what is played it stays.
TEST(Plugin, takes_the_echo_out_of_a_graph) {
  constexpr size_t count = 48000 * 6, echo_delay = 48 * 30;
  std::vector<float> far = noise_values(3, count, 0.4f), mic = noise_values(4, count, 0.0005f);
  for (size_t i = 0; i < count; ++i)
    far[i] *= float(0.6 + 0.4 * std::sin(double(i) / 5000)) * float(i / 24000 % 3 != 2); // as syllables and pauses
  for (size_t i = echo_delay; i < count; ++i)
    mic[i] += 0.3f * (far[i - echo_delay] + far[i - echo_delay + 2]);
  const std::vector<float> silence(count);
  double left[2];
  for (const bool heard : {false, true}) {
    Host host({}, 48000, 2);
    ASSERT_EQ(host.status, 0) << host.log.text;
    const auto &ref = heard ? far : silence;
    const auto out = host.run({mic, mic}, {ref, ref}, {1024, 999, 64});
    left[heard] = 10 * std::log10(power(out[0], 0.5) / power(mic, 0.5));
  }
  EXPECT_GT(left[0], -15) << "dB";
  EXPECT_LT(left[1], -35) << "dB";
}

TEST(Plugin, refuses_what_it_cannot_do_and_says_why) {
  const ParameterFile file(busy_image(16000)), cut(busy_image(16000), 300);
  const struct {
    Host::Args args;
    uint32_t rate, channels;
    std::vector<const char *> said;
  } cases[] = {
      {{{"rate", "48000"}}, 48000, 2, {"rate = 48000", "8000 or 16000"}},
      {{{"frame_ms", ""}}, 48000, 2, {"frame_ms", "16 or 20"}},
      {{{"parameters", "loud"}}, 48000, 2, {"\"loud\"", "balanced, clear, echo-safe, full-duplex, noise-only"}},
      {{{"parameters", "/nowhere/at.all"}}, 48000, 2, {"/nowhere/at.all"}},
      {{{"parameters", file.path}, {"rate", "8000"}}, 48000, 2, {"8000 Hz"}},
      {{{"preset", "balanced"}}, 48000, 2, {"\"preset\"", "rate, frame_ms, parameters"}},
      {{}, 4000, 2, {"audio.rate = 4000", "8000 to 384000"}},
      {{}, 44099, 2, {"audio.rate = 44099", "steps of 25"}},
      {{}, 48000, 0, {"audio.channels = 0"}},
  };
  for (const auto &c : cases) {
    Host host(c.args, c.rate, c.channels);
    EXPECT_LT(host.status, 0);
    for (const char *words : c.said)
      EXPECT_NE(host.log.text.find(words), std::string::npos) << words << " in: " << host.log.text;
    float x = 0, *out = &x;
    const float *in = &x;
    EXPECT_LT(spa_audio_aec_run(host.aec, &in, &in, &out, 1), 0);
  }
}

struct Watched : Host {
  using Host::Host;
  int64_t heap_calls = 0, blocks = 0;
  int run_block(const float *mic[], const float *ref[], float *out[], uint32_t count) override {
    const Armed scope;
    const int result = Host::run_block(mic, ref, out, count);
    heap_calls += watch.calls;
    ++blocks;
    return result;
  }
};

TEST(Plugin, a_block_neither_touches_the_heap_nor_logs) {
  Watched host({}, 48000, 2);
  const std::string at_start = host.log.text;
  ASSERT_NE(at_start, "");
  const auto x = noise_values(1, 96000, 0.3f);
  host.run({x, x}, {x, x}, {960, 1920, 1024, 5, 4096});
  spa_audio_aec_activate(host.aec);
  host.run({x, x}, {x, x}, {960});
  EXPECT_EQ(host.heap_calls, 0);
  EXPECT_GT(host.blocks, 50);
  EXPECT_EQ(host.log.text, at_start);
  free(std::malloc(10)); // the watch sees this program's heap
  {
    const Armed scope;
    delete new std::string(100, 'x');
  }
  EXPECT_GE(watch.calls, 2);
}

// After a pause nothing of what was heard before it comes out.
TEST(Plugin, a_pause_forgets_what_waits) {
  const ParameterFile file(nothing_on(16000));
  for (const uint32_t block : {960u, 1000u}) {
    Host host({{"parameters", file.path}}, 48000, 1);
    const auto x = noise_values(1, 48001, 0.3f); // no whole number of samples at the call's rate
    const std::vector<float> silence(4800);
    EXPECT_GT(power(host.run({x}, {x}, {block})[0], 0.5), 1e-4);
    spa_audio_aec_activate(host.aec);
    EXPECT_EQ(power(host.run({silence}, {silence}, {block})[0], 0), 0);
  }
}

} // namespace
