#include "measure/subject.h"

#include <filesystem>

#include "audio/audio.h"
#include "support/error.h"

namespace qv::tool::measure {
namespace {

Recording read(const std::string &path) {
  Source source;
  source.path = path;
  return read_audio(source);
}

/// One of several recordings that belong together.
std::vector<int16_t> read_at(const std::string &path, int rate) {
  const Audio audio = read(path).audio;
  if (audio.rate != rate)
    throw InputError("{}: has {} Hz; the microphone has {} Hz, and both must have the same", path, audio.rate, rate);
  return audio.samples;
}

std::optional<Signal> read_part(const std::string &path, int rate, size_t length) {
  if (path.empty())
    return std::nullopt;
  Signal part = to_signal(read_at(path, rate));
  part.resize(length);
  return part;
}

/// The AGC moves its gain linearly over a frame; an equaliser behind it delays by less than half a frame, which is
/// passed over.
Signal without_gain(const Output &output) {
  Signal plain = to_signal(output.sent);
  const auto frame = size_t(output.frame_len);
  for (size_t i = 0; i < plain.size(); ++i) {
    const size_t place = i + size_t(output.latency), k = place / frame;
    const double before = k > 0 ? double(output.trace.at(k - 1).tx_agc_gain) : 1;
    const double now = double(output.trace.at(k).tx_agc_gain);
    const double gain = std::lerp(before, now, double(place % frame + 1) / double(frame));
    if (gain > 0)
      plain[i] /= gain;
  }
  return plain;
}

} // namespace

RecordingFiles files_in(const std::string &folder) {
  const std::filesystem::path path = folder;
  const auto known = [&](const char *name) {
    return std::filesystem::exists(path / name) ? (path / name).string() : std::string();
  };
  return {path / "mic.wav",  path / "ref.wav",   known("near.wav"),
          known("echo.wav"), known("noise.wav"), known("scene.toml")};
}

Subject read_files(const std::string &name, const RecordingFiles &files) {
  const Audio mic = read(files.mic).audio;
  if (!rate_served(mic.rate))
    throw InputError("{}: has {} Hz; 8000 or 16000 Hz is needed", files.mic, mic.rate);
  const size_t length = mic.samples.size();
  Subject subject{name,
                  mic.rate,
                  mic.samples,
                  read_at(files.ref, mic.rate),
                  read_part(files.near, mic.rate, length),
                  read_part(files.echo, mic.rate, length),
                  {},
                  read_part(files.noise, mic.rate, length)};
  subject.ref.resize(length);
  if (!files.scene.empty())
    subject.truth = scene::read_truth(files.scene);
  return subject;
}

Subject read_folder(const std::string &folder) {
  return read_files(std::filesystem::path(folder).filename().string(), files_in(folder));
}

Output output_of(Run run, const Setup &setup) {
  Output output{
      std::move(run.sent), {}, std::move(run.trace), std::move(run.frame_seconds), setup.frame_len, run.latency.tx,
      setup.para_source};
  output.plain = without_gain(output);
  return output;
}

Output run_library(const Subject &subject, const Setup &setup, const ProgressFn &progress) {
  return output_of(run_tx(setup, subject.mic, subject.ref, {.compensate = true, .progress = progress}), setup);
}

Output read_output(const Subject &subject, const std::string &path, int lag) {
  const std::vector<int16_t> samples = read_at(path, subject.rate);
  if (samples.size() < subject.mic.size() / 2)
    throw InputError("{}: has {} samples, the microphone has {}; an output of the same recording is needed", path,
                     samples.size(), subject.mic.size());
  Output output;
  output.plain = excerpt(to_signal(samples), lag, subject.mic.size());
  output.sent = to_samples(output.plain);
  output.latency = lag;
  output.source = path;
  return output;
}

} // namespace qv::tool::measure
