#include "process/inputs.h"

#include <algorithm>

#include "dsp/layout.h"
#include "support/error.h"

namespace qv::tool::process {
namespace {

std::optional<RawFormat> raw_format(const Options &options) {
  if (!options.raw)
    return std::nullopt;
  return RawFormat{*options.raw, options.raw_rate.value(), options.raw_channels.value_or(1)};
}

std::optional<Input> read_input(const char *role, const std::optional<std::string> &path, std::optional<int> channel,
                                const Options &options) {
  if (!path)
    return std::nullopt;
  Source source{*path, channel.value_or(0), raw_format(options), fmt::format("--{}-channel", role)};
  Recording recording = read_audio(source);
  return Input{role, std::move(source), std::move(recording)};
}

void read_files(const Options &options, Inputs &inputs) {
  const auto &mic = options.stereo ? options.stereo : options.mic;
  const auto &ref = options.stereo ? options.stereo : options.ref;
  inputs.mic = read_input("mic", mic, options.stereo ? 1 : options.mic_channel, options);
  if (options.stereo && inputs.mic->recording.channels != 2)
    throw InputError("{}: --stereo takes a file of 2 channels, microphone and reference; this one has {}",
                     *options.stereo, inputs.mic->recording.channels);
  inputs.ref = read_input("ref", ref, options.stereo ? 2 : options.ref_channel, options);
  inputs.far = read_input("far", options.far, options.far_channel, options);
}

void bring_to_rate(Input &input, int rate, std::vector<std::string> &notes) {
  Recording &recording = input.recording;
  convert_rate(recording, rate);
  if (recording.file_rate != rate)
    notes.push_back(
        fmt::format("{}: {} converted from {} to {} Hz", input.source.path, input.role, recording.file_rate, rate));
  if (recording.clipped > 0)
    notes.push_back(fmt::format("{}: {} has {} samples beyond full scale, which were clipped", input.source.path,
                                input.role, recording.clipped));
}

void note_lengths(Inputs &inputs) {
  const auto given = inputs.given();
  const Input *longest = *std::max_element(given.begin(), given.end(), [](const Input *a, const Input *b) {
    return a->samples().size() < b->samples().size();
  });
  for (const Input *input : given)
    if (const size_t missing = longest->samples().size() - input->samples().size())
      inputs.notes.push_back(fmt::format("{}: {} ends {} samples ({:.3f} s) before {}; continued with silence",
                                         input->source.path, input->role, missing, double(missing) / inputs.rate,
                                         longest->source.path));
}

} // namespace

std::vector<const Input *> Inputs::given() const {
  std::vector<const Input *> all;
  for (const auto *input : {&mic, &ref, &far})
    if (*input)
      all.push_back(&**input);
  return all;
}

Inputs read_inputs(const Options &options) {
  Inputs inputs;
  read_files(options, inputs);
  const int first_rate = inputs.given().front()->recording.file_rate;
  inputs.rate = options.rate.value_or(first_rate <= narrow_rate ? narrow_rate : wide_rate);
  for (auto *input : {&inputs.mic, &inputs.ref, &inputs.far})
    if (*input)
      bring_to_rate(**input, inputs.rate, inputs.notes);
  note_lengths(inputs);
  return inputs;
}

} // namespace qv::tool::process
