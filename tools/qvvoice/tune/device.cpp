#include "tune/device.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "audio/audio.h"
#include "diagnose/diagnose.h"
#include "diagnose/talk.h"
#include "scene/truth.h"
#include "support/error.h"

namespace qv::tool::tune {
namespace {

constexpr double call_seconds = 24;
constexpr Interval far_first = {0, 9}, far_again = {13.5, 23.8}; ///< as played
constexpr double far_needed = far_first.end - far_first.begin + far_again.end - far_again.begin;
constexpr double near_needed = 9; ///< from the end of the first echo on: the noise of one or the other never stops
constexpr double near_levels_db[] = {0, -6, 6, 0, -6, 6}; ///< against the recording, a call each
constexpr double fade_seconds = 0.01;
constexpr double above_noise_db = 6; ///< of talk in a recording with noise

/// What is no bad recording, but what tuning is for: a hard device, and a bad result of the library.
constexpr const char *tuned_for[] = {"distortion", "coupling",      "canceller_on", "delay_found",
                                     "filter",     "residual_echo", "near_end"};

/// @param channel  from 1; 0 is the only one
std::vector<int16_t> read(const std::string &path, int channel, int rate, double seconds) {
  Source source;
  source.path = path;
  source.channel = channel;
  Recording recording = read_audio(source);
  if (recording.file_rate < rate)
    throw InputError("{}: has {} Hz, the parameters are for {} Hz; record with at least that, or tune with --rate 8000",
                     path, recording.file_rate, rate);
  convert_rate(recording, rate);
  if (recording.audio.seconds() < seconds)
    throw InputError("{}: is {:.1f} s long; at least {:.0f} s are needed, half to tune on and half to judge by", path,
                     recording.audio.seconds(), seconds);
  return recording.audio.samples;
}

/// Speech in a recording with noise: the frames that stand out of its quietest twentieth.
std::vector<Interval> talk_in(SignalView signal, int rate) {
  const std::vector<double> powers = frame_powers(signal, rate);
  const double floor = quantile(powers, 0.05) * from_db(above_noise_db);
  std::vector<bool> active = activity(signal, rate);
  for (size_t i = 0; i < active.size(); ++i) {
    const auto begin = powers.begin() + std::ptrdiff_t(i > 20 ? i - 20 : 0),
               end = powers.begin() + std::ptrdiff_t(i) + 1;
    active[i] = active[i] && *std::max_element(begin, end) > floor;
  }
  return intervals(active);
}

/// @return the delay of the echo, s
double examine(const DeviceRecordings &device, const Samples &mic, const Samples &ref, const Setup &setup) {
  RunOptions options;
  options.compensate = true;
  const Run run = run_tx(setup, mic, ref, options);
  const diagnose::Evidence evidence(setup, mic, ref, run.sent, run.trace);
  double follows = 1; // share of the echo that follows the reference linearly
  for (const diagnose::Check &check : diagnose::diagnose(evidence).checks) {
    follows = check.numbers.value("echo_share", follows);
    if (check.state == diagnose::State::wrong && std::ranges::find(tuned_for, check.name) == std::end(tuned_for))
      throw InputError("{} with {}: nothing to tune on: {}: {}. {}", device.mic, device.ref, check.title, check.found,
                       check.next);
  }
  const diagnose::Talk talk = judge_talk(evidence);
  constexpr double most_talking = 0.5; // s
  constexpr double clean = 0.8;        // below, what the loudspeaker distorts looks like somebody who talks meanwhile
  const double talking = talk.near.seconds() + (follows < clean ? 0 : talk.both.seconds());
  if (talking > most_talking)
    throw InputError("{}: somebody talks for {:.1f} s while the device plays {}; record it with nobody talking",
                     device.mic, talking, device.ref);
  return evidence.delay.median;
}

double seconds_within(const std::vector<Interval> &intervals, double begin, double end) {
  double sum = 0;
  for (const Interval &interval : intervals)
    sum += std::max(0.0, std::min(interval.end, end) - std::max(interval.begin, begin));
  return sum;
}

/// The near-end recording must hold talk in both halves, and no far end.
void examine_near(const DeviceRecordings &device, const Samples &near, Samples ref, const Setup &setup) {
  const int rate = setup.rate;
  if (!active_level_db(to_signal(near), rate))
    throw InputError("{}: is silent; somebody should talk in it", device.near);
  constexpr double needed = 2; // s of talk in each half
  const std::vector<Interval> talk = talk_in(to_signal(near), rate);
  const double end = double(near.size()) / rate;
  for (const double begin : {0.0, end / 2})
    if (const double found = seconds_within(talk, begin, begin + end / 2); found < needed)
      throw InputError("{}: somebody talks for {:.1f} s of its {} half; at least {:g} s are needed, {:g} dB above the "
                       "noise",
                       device.near, found, begin == 0 ? "first" : "second", needed, above_noise_db);
  ref.resize(near.size());
  RunOptions options;
  options.compensate = true;
  const Run run = run_tx(setup, near, ref, options);
  const diagnose::Evidence evidence(setup, near, ref, run.sent, run.trace);
  constexpr size_t by_chance = 4; // windows that look alike in two talkers
  if (evidence.delay.points.size() > by_chance)
    throw InputError("{}: the far end of {} is in it, {:.0f} ms late; record the talker while the device plays nothing",
                     device.near, device.ref, 1000 * evidence.delay.median);
}

/// Copies a stretch with faded ends. @param from,to  s
void place(Signal &track, double to, const Signal &source, double from, double seconds, int rate) {
  const auto count = size_t(seconds * rate), fade = size_t(fade_seconds * rate);
  const Signal part = excerpt(source, std::ptrdiff_t(from * rate), count);
  const auto begin = size_t(to * rate);
  for (size_t i = 0; i < count && begin + i < track.size(); ++i)
    track[begin + i] += part[i] * std::min(1.0, double(std::min(i, count - i)) / double(fade));
}

/// The far end's two stretches, one after the other in the recording, `late` seconds after they are played.
Signal far_track(const Signal &recording, double from, double late, int rate) {
  Signal track(size_t(call_seconds * rate));
  const double first = far_first.end - far_first.begin;
  place(track, far_first.begin + late, recording, from + late, first, rate);
  place(track, far_again.begin + late, recording, from + first + late, far_again.end - far_again.begin, rate);
  return track;
}

void write(const std::string &path, const Signal &signal, int rate) {
  OutputFile file(path);
  write_wav(file, {rate, to_samples(signal)});
  file.commit();
}

struct Material {
  Signal mic, ref, near;
  double delay; ///< s
  int rate;
};

/// @param far_from,near_from  s, places in the recordings
void make_call(const Material &material, double far_from, double near_from, double near_db, const std::string &folder) {
  const int rate = material.rate;
  const Signal ref = far_track(material.ref, far_from, 0, rate);
  const Signal echo = far_track(material.mic, far_from, material.delay, rate);
  Signal near(ref.size());
  place(near, far_first.end + material.delay - fade_seconds, material.near, near_from, near_needed, rate);
  scale(near, gain_from_db(near_db));
  Signal mic = near;
  for (size_t i = 0; i < mic.size(); ++i)
    mic[i] += echo[i];
  scene::Truth truth;
  truth.far = intervals(activity(far_track(material.ref, far_from - material.delay, material.delay, rate), rate));
  truth.near = talk_in(near, rate);
  truth.delay = {{0, material.delay, 0}};
  std::filesystem::create_directories(folder);
  write(folder + "/mic.wav", mic, rate);
  write(folder + "/ref.wav", ref, rate);
  write(folder + "/echo.wav", echo, rate);
  write(folder + "/near.wav", near, rate);
  OutputFile file(folder + "/scene.toml");
  file.write(fmt::format("title = \"Device recording from {:.1f} s, near end from {:.1f} s at {:+.0f} dB\"\n{}",
                         far_from, near_from, near_db, truth_text(truth)));
  file.commit();
}

} // namespace

void make_calls(const DeviceRecordings &device, const Setup &setup, const std::string &folder) {
  const int rate = setup.rate;
  const bool stereo = device.mic == device.ref;
  const std::vector<int16_t> mic = read(device.mic, stereo ? 1 : 0, rate, 2 * far_needed),
                             near = read(device.near, 0, rate, 2 * near_needed);
  std::vector<int16_t> ref = read(device.ref, stereo ? 2 : 0, rate, 2 * far_needed);
  ref.resize(mic.size());
  const double delay = examine(device, mic, ref, setup);
  examine_near(device, near, ref, setup);
  const Material material{to_signal(mic), to_signal(ref), to_signal(near), delay, rate};
  const double far_half = double(mic.size()) / rate / 2, near_half = double(near.size()) / rate / 2;
  const auto last = double(std::size(near_levels_db) - 1);
  for (const bool check : {false, true})
    for (size_t i = 0; i < std::size(near_levels_db); ++i)
      make_call(material, check * far_half + (far_half - far_needed) * double(i) / last,
                check * near_half + (near_half - near_needed) * (1 - double(i) / last), near_levels_db[i],
                fmt::format("{}/{}/call-{}", folder, check ? "check" : "tune", i + 1));
}

} // namespace qv::tool::tune
