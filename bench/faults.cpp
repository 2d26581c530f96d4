// What happens in the audio of real devices, in the middle of a call, and how long each echo canceller needs to get
// over it. Prints a table; exit status 1 when one does not get over something.

#include <algorithm>
#include <cmath>
#include <functional>

#include <fmt/format.h>

#include "call/run.h"
#include "scene/render.h"
#include "signal/signal.h"
#include "support/error.h"

namespace {

using namespace qv::tool;

constexpr const char *presets[] = {"clear-16k-20ms", "balanced-16k-20ms"};
constexpr int rate = 16000, frame_ms = 20;
constexpr size_t frame = rate / 1000 * frame_ms, quarter = rate / 4;
constexpr double begin_seconds = 30;
constexpr double spoken_dbfs = -50; ///< microphone level of a quarter second that counts
constexpr double close_db = 10;     ///< to the reduction without the fault
constexpr int quarters_in_a_row = 4;

/// The far end talks all the time, so that recovery is seen when it comes; the near end talks now and then.
constexpr const char *call_text = R"(
duration = 220
seed = 40
[far]
talks = [[0.5, 220]]
[echo]
delay = 0.080
[noise]
kind = "pink"
snr = 40
)";

struct Fault {
  const char *name;
  double seconds; ///< how long it lasts; recovery counts from its end
  std::function<void(Samples &mic, Samples &ref, size_t begin, size_t end)> happen;
};

void square(Samples &samples, size_t begin, size_t end) {
  for (size_t i = begin; i < end; ++i)
    samples[i] = i / 40 % 2 ? INT16_MAX : INT16_MIN;
}

void add_dc(Samples &samples, size_t begin, int step) {
  for (size_t i = begin; i < samples.size(); ++i)
    samples[i] = int16_t(std::clamp(samples[i] + step, int(INT16_MIN), int(INT16_MAX)));
}

const Fault faults[] = {
    {"clicks: 20 full-scale samples in the microphone", 1,
     [](Samples &mic, Samples &, size_t begin, size_t end) {
       for (size_t i = 0; i < 20; ++i)
         mic[begin + (end - begin) * i / 20] = i % 2 ? INT16_MAX : INT16_MIN;
     }},
    {"dropouts: every tenth microphone frame silent", 5,
     [](Samples &mic, Samples &, size_t begin, size_t end) {
       for (size_t at = begin; at + frame <= end; at += 10 * frame)
         std::fill_n(mic.begin() + std::ptrdiff_t(at), frame, int16_t(0));
     }},
    {"a microphone frame lost: the echo comes 20 ms earlier", 0,
     [](Samples &mic, Samples &, size_t begin, size_t) {
       mic.erase(mic.begin() + std::ptrdiff_t(begin), mic.begin() + std::ptrdiff_t(begin + frame));
       mic.resize(mic.size() + frame);
     }},
    {"a microphone frame repeated: the echo comes 20 ms later", 0,
     [](Samples &mic, Samples &, size_t begin, size_t) {
       const Samples again(mic.begin() + std::ptrdiff_t(begin - frame), mic.begin() + std::ptrdiff_t(begin));
       mic.insert(mic.begin() + std::ptrdiff_t(begin), again.begin(), again.end());
       mic.resize(mic.size() - frame);
     }},
    {"microphone and reference swapped", 5,
     [](Samples &mic, Samples &ref, size_t begin, size_t end) {
       std::swap_ranges(mic.begin() + std::ptrdiff_t(begin), mic.begin() + std::ptrdiff_t(end),
                        ref.begin() + std::ptrdiff_t(begin));
     }},
    {"reference gone", 120,
     [](Samples &, Samples &ref, size_t begin, size_t end) {
       std::fill(ref.begin() + std::ptrdiff_t(begin), ref.begin() + std::ptrdiff_t(end), int16_t(0));
     }},
    {"full-scale square wave in the microphone", 5,
     [](Samples &mic, Samples &, size_t begin, size_t end) { square(mic, begin, end); }},
    {"full-scale square wave in the reference", 5,
     [](Samples &, Samples &ref, size_t begin, size_t end) { square(ref, begin, end); }},
    {"DC step of 8000 in the microphone, for good", 0,
     [](Samples &mic, Samples &, size_t begin, size_t) { add_dc(mic, begin, 8000); }},
    {"DC step of 8000 in the reference, for good", 0,
     [](Samples &, Samples &ref, size_t begin, size_t) { add_dc(ref, begin, 8000); }},
};

double level_db(const Samples &samples, size_t begin) {
  double sum = 0;
  for (size_t i = begin; i < begin + quarter; ++i)
    sum += double(samples[i]) * samples[i];
  return 10 * std::log10(sum / double(quarter) / 32768 / 32768 + 1e-11);
}

/// Far-end talk after the fault until the output is as quiet as without it, or nearly, for a second.
std::optional<double> recovery(const Samples &mic, const Samples &plain, const Samples &disturbed, size_t from) {
  double waited = 0;
  int good = 0;
  for (size_t at = from; at + quarter <= mic.size(); at += quarter) {
    if (level_db(mic, at) < spoken_dbfs)
      continue;
    good = level_db(disturbed, at) <= level_db(plain, at) + close_db ? good + 1 : 0;
    if (good == quarters_in_a_row)
      return waited - 0.25 * (quarters_in_a_row - 1);
    waited += 0.25;
  }
  return std::nullopt;
}

} // namespace

int main() try {
  scene::SpeechReader speech(rate);
  const scene::Call call = scene::render(scene::parse_scene(call_text, "call"), speech, rate);
  RunOptions options;
  options.compensate = true;
  std::vector<Setup> setups;
  std::vector<Samples> plain;
  std::string head = "| fault at 30 s | lasts |", rule = "|---|---|";
  for (const char *preset : presets) {
    setups.push_back(make_setup(preset, rate, frame_ms));
    plain.push_back(run_tx(setups.back(), call.mic, call.ref, options).sent);
    head += fmt::format(" {} |", preset);
    rule += "---|";
  }
  bool fine = true;
  fmt::print("{}\n{}\n", head, rule);
  for (const Fault &fault : faults) {
    Samples mic = call.mic, ref = call.ref;
    const auto begin = size_t(begin_seconds * rate), end = begin + size_t(fault.seconds * rate);
    fault.happen(mic, ref, begin, end);
    fmt::print("| {} | {} |", fault.name, fault.seconds > 0 ? fmt::format("{:g} s", fault.seconds) : "");
    for (size_t i = 0; i < setups.size(); ++i) {
      const auto found = recovery(call.mic, plain[i], run_tx(setups[i], mic, ref, options).sent, end);
      fmt::print(" {} |", found ? fmt::format("{:.2f} s", *found) : "never");
      fine = fine && found;
    }
    fmt::print("\n");
  }
  return fine ? 0 : 1;
} catch (const std::exception &error) {
  fmt::print(stderr, "faults: {}\n", error.what());
  return 2;
}
