#include "scene/render.h"

#include <algorithm>
#include <filesystem>

#include "audio/audio.h"
#include "scene/echo_path.h"
#include "scene/music.h"
#include "scene/noise.h"
#include "scene/stream.h"
#include "support/error.h"

namespace qv::tool::scene {
namespace {

/// Independent random sequences of a scene's seed.
enum Stream : uint64_t { far_stream, near_stream, noise_stream, babble_stream };

constexpr double cut_seconds = 0.01; ///< fade where a talk begins or ends within a sentence
constexpr int babble_talkers = 8;

/// The talker's words at the times of his talks, level as recorded.
Signal talk(const Talker &talker, size_t count, SpeechReader &reader, int rate, Random random) {
  Signal track(count);
  size_t needed = 0;
  for (const Interval &interval : talker.talks)
    needed += size_t((interval.end - interval.begin) * rate);
  const Signal words = needed == 0                    ? Signal()
                       : talker.sound == Sound::music ? music(needed, rate, random)
                                                      : reader.stream(talker.speech, needed, random);
  const auto cut = size_t(cut_seconds * rate);
  size_t spoken = 0;
  for (const Interval &interval : talker.talks) {
    const auto begin = size_t(interval.begin * rate), length = size_t((interval.end - interval.begin) * rate);
    for (size_t i = 0; i < length && begin + i < count; ++i)
      track[begin + i] = words[spoken + i] * std::min(1.0, double(std::min(i, length - i)) / double(cut));
    spoken += length;
  }
  return track;
}

void set_active_level(Signal &signal, double level, int rate, const char *what) {
  if (energy(signal) == 0)
    return;
  const auto now = active_level_db(signal, rate);
  if (!now)
    throw InputError("{}: the speech is too quiet to be set to a level; give recordings above -90 dBov", what);
  scale(signal, gain_from_db(level - *now));
}

Signal babble(const std::vector<std::string> &voices, size_t count, SpeechReader &reader, uint64_t seed) {
  Signal sum(count);
  for (int i = 0; i < babble_talkers; ++i) {
    const Speech speech{voices[size_t(i) % voices.size()], {}};
    const Signal one = reader.stream(speech, count, Random(seed, babble_stream + uint64_t(i)));
    std::ranges::transform(sum, one, sum.begin(), std::plus());
  }
  return sum;
}

Signal looped(const Signal &recording, size_t count) {
  Signal loop(count);
  for (size_t i = 0; i < count; ++i)
    loop[i] = recording[i % recording.size()];
  return loop;
}

Signal noise_of(const Scene &scene, size_t count, SpeechReader &reader) {
  switch (scene.noise.kind) {
  case NoiseKind::white:
    return white_noise(count, Random(scene.seed, noise_stream));
  case NoiseKind::pink:
    return pink_noise(count, Random(scene.seed, noise_stream));
  case NoiseKind::babble:
    return babble(scene.noise.voices, count, reader, scene.seed);
  case NoiseKind::file:
    return looped(reader.recording(scene.noise.file), count);
  case NoiseKind::none:
    break;
  }
  return Signal(count);
}

/// @param call  gets ref, echo and the truth about them
Signal far_end(const Scene &scene, SpeechReader &reader, size_t count, Call &call) {
  Signal ref = talk(scene.far, count, reader, call.rate, Random(scene.seed, far_stream));
  set_active_level(ref, scene.far.level, call.rate, "far");
  call.ref = to_samples(ref);
  Signal echo = echo_of(scene, to_signal(call.ref), call.rate, call.truth);
  set_active_level(echo, scene.near.level + scene.echo.to_near, call.rate, "echo");
  return echo;
}

Signal near_end(const Scene &scene, SpeechReader &reader, size_t count, int rate) {
  const Signal words = talk(scene.near, count, reader, rate, Random(scene.seed, near_stream));
  Signal near = convolve(words, impulse_response(scene.room, scene.talker, scene.microphone, rate));
  set_active_level(near, scene.near.level, rate, "near");
  return near;
}

} // namespace

Call render(const Scene &scene, SpeechReader &reader, int rate) {
  const auto count = size_t(scene.duration * rate);
  const size_t sounding = count + size_t(std::ceil(lost_seconds(scene.faults) * rate));
  Call call;
  call.rate = rate;
  Signal echo = far_end(scene, reader, sounding, call);
  Signal near = near_end(scene, reader, sounding, rate);
  Signal noise = noise_of(scene, sounding, reader);
  if (const double now = power(noise); now > 0)
    scale(noise, gain_from_db(scene.near.level - scene.noise.snr - *to_db(now)));
  const Carried heard = carried(scene.faults, Side::microphone, count, rate);
  for (Signal *part : {&echo, &near, &noise})
    *part = delivered(*part, heard);
  call.ref = to_samples(delivered(to_signal(call.ref), carried(scene.faults, Side::reference, count, rate)));
  apply_faults(scene.faults, scene.duration, call.truth);
  call.truth.far = intervals(activity(echo, rate));
  call.truth.near = intervals(activity(near, rate));
  call.echo = to_samples(echo);
  call.near = to_samples(near);
  call.noise = to_samples(noise);
  Signal mic = near;
  for (size_t i = 0; i < count; ++i)
    mic[i] += echo[i] + noise[i];
  call.mic = to_samples(mic);
  return call;
}

void write_call(const Call &call, const Scene &scene, const std::string &folder) {
  std::filesystem::create_directories(folder);
  std::vector<std::string> inputs = scene.far.speech.files;
  inputs.insert(inputs.end(), scene.near.speech.files.begin(), scene.near.speech.files.end());
  if (!scene.noise.file.empty())
    inputs.push_back(scene.noise.file);
  const std::pair<const char *, const std::vector<int16_t> &> tracks[] = {
      {"ref", call.ref}, {"near", call.near}, {"echo", call.echo}, {"noise", call.noise}, {"mic", call.mic}};
  for (const auto &[name, samples] : tracks) {
    OutputFile file(fmt::format("{}/{}.wav", folder, name), inputs);
    write_wav(file, {call.rate, samples});
    file.commit();
  }
  OutputFile file(folder + "/scene.toml");
  file.write(scene.text + "\n" + truth_text(call.truth));
  file.commit();
}

} // namespace qv::tool::scene
