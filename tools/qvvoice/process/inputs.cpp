#include "process/inputs.h"

#include <algorithm>
#include <map>

#include "dsp/layout.h"
#include "support/error.h"

namespace qv::tool::process {
namespace {

/// Opens a file once, however many of its channels are inputs: a pipe cannot be read twice.
class Files {
public:
  std::shared_ptr<AudioReader> open(const Source &source) {
    std::shared_ptr<AudioReader> &reader = open_[source.path];
    if (!reader)
      reader = std::make_shared<AudioReader>(source);
    return reader;
  }

private:
  std::map<std::string, std::shared_ptr<AudioReader>> open_;
};

std::optional<RawFormat> raw_format(const Options &options) {
  if (!options.raw)
    return std::nullopt;
  return RawFormat{*options.raw, options.raw_rate.value(), options.raw_channels.value_or(1)};
}

std::optional<Source> source_of(const char *role, const std::optional<std::string> &path, std::optional<int> channel,
                                const Options &options) {
  if (!path)
    return std::nullopt;
  return Source{*path, channel.value_or(0), raw_format(options), fmt::format("--{}-channel", role)};
}

void check_stereo(const Source &source, const AudioReader &reader) {
  if (reader.channels() != 2)
    throw InputError("{}: --stereo takes a file of 2 channels, microphone and reference; this one has {}",
                     input_name(source.path), reader.channels());
}

} // namespace

Input::Input(std::string role, const Source &source, std::shared_ptr<AudioReader> reader, int rate)
    : role_(std::move(role)), source_(source), reader_(std::move(reader)), stream_(reader_, source, rate) {}

size_t Input::read(std::span<int16_t> samples) {
  const size_t got = stream_.read(samples);
  level_.add(samples.first(got));
  return got;
}

std::vector<int16_t> Input::read_all() {
  constexpr size_t block = 1 << 16;
  std::vector<int16_t> samples;
  for (size_t got = block; got == block;) {
    const size_t before = samples.size();
    samples.resize(before + block);
    got = read(std::span(samples).subspan(before));
    samples.resize(before + got);
  }
  return samples;
}

std::vector<const Input *> Inputs::given() const {
  std::vector<const Input *> all;
  for (const auto *input : {&mic, &ref, &far})
    if (*input)
      all.push_back(&**input);
  return all;
}

double Inputs::stated_seconds() const {
  double longest = 0;
  for (const Input *input : given()) {
    const double seconds = input->stream().stated_seconds();
    if (!(seconds > 0))
      return 0;
    longest = std::max(longest, seconds);
  }
  return longest;
}

std::vector<std::string> Inputs::notes() const {
  std::vector<std::string> notes;
  const auto all = given();
  for (const Input *input : all) {
    if (input->file_rate() != rate)
      notes.push_back(
          fmt::format("{}: {} converted from {} to {} Hz", input->name(), input->role(), input->file_rate(), rate));
    if (const size_t clipped = input->stream().clipped())
      notes.push_back(fmt::format("{}: {} has {} samples beyond full scale, which were clipped", input->name(),
                                  input->role(), clipped));
  }
  const Input *longest = *std::ranges::max_element(all, {}, [](const Input *input) { return input->level().count(); });
  for (const Input *input : all)
    if (const size_t missing = longest->level().count() - input->level().count())
      notes.push_back(fmt::format("{}: {} ends {} samples ({:.3f} s) before {}; continued with silence", input->name(),
                                  input->role(), missing, double(missing) / rate, longest->name()));
  return notes;
}

Inputs open_inputs(const Options &options) {
  const bool stereo = options.stereo.has_value();
  Inputs inputs;
  const struct {
    const char *role;
    std::optional<Input> &input;
    std::optional<Source> source;
  } all[] = {{"mic", inputs.mic,
              source_of("mic", stereo ? options.stereo : options.mic, stereo ? 1 : options.mic_channel, options)},
             {"ref", inputs.ref,
              source_of("ref", stereo ? options.stereo : options.ref, stereo ? 2 : options.ref_channel, options)},
             {"far", inputs.far, source_of("far", options.far, options.far_channel, options)}};
  Files files;
  for (const auto &[role, input, source] : all) {
    if (!source)
      continue;
    const auto reader = files.open(*source);
    if (stereo)
      check_stereo(*source, *reader);
    if (inputs.rate == 0)
      inputs.rate = options.rate.value_or(reader->rate() <= narrow_rate ? narrow_rate : wide_rate);
    input.emplace(role, *source, reader, inputs.rate);
  }
  return inputs;
}

} // namespace qv::tool::process
