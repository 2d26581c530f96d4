#include "audio/reader.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <optional>

#include "audio/full_scale.h"
#include "audio/raw_format.h"
#include "support/error.h"

namespace qv::tool {

/// A view and a place in it. What goes wrong on the disk is kept until libsndfile, which is C, has returned.
struct AudioReader::Decoded {
  explicit Decoded(const Source &source)
      : file(source.path), view(source.raw ? View{"", 0, file.size(), !file.pipe()} : view_of(file)) {}

  sf_count_t size() const { return sf_count_t(view.head.size() + view.length); }
  sf_count_t read(char *to, sf_count_t count);
  sf_count_t seek(sf_count_t offset, int from);
  static SF_VIRTUAL_IO calls();

  InputFile file;
  View view;
  sf_count_t place = 0;
  std::optional<InputError> failure = {};
};

sf_count_t AudioReader::Decoded::read(char *to, sf_count_t count) try {
  const size_t wanted = size_t(std::clamp<sf_count_t>(count, 0, size() - place));
  const size_t from_head = std::min(wanted, view.head.size() - std::min(view.head.size(), size_t(place)));
  std::memcpy(to, view.head.data() + (from_head > 0 ? place : 0), from_head);
  const uint64_t at = view.begin + uint64_t(place) + from_head - view.head.size();
  const size_t got = from_head + (wanted > from_head ? file.read(at, to + from_head, wanted - from_head) : 0);
  place += sf_count_t(got);
  return sf_count_t(got);
} catch (const InputError &error) {
  failure = error;
  return 0;
}

/// Stays within the view.
sf_count_t AudioReader::Decoded::seek(sf_count_t offset, int from) {
  const sf_count_t base = from == SEEK_SET ? 0 : from == SEEK_CUR ? place : size();
  if (offset < -base || offset > size() - base)
    return -1;
  return place = base + offset;
}

SF_VIRTUAL_IO AudioReader::Decoded::calls() {
  return {
      .get_filelen = [](void *file) { return static_cast<Decoded *>(file)->size(); },
      .seek = [](sf_count_t offset, int from, void *file) { return static_cast<Decoded *>(file)->seek(offset, from); },
      .read = [](void *to, sf_count_t count,
                 void *file) { return static_cast<Decoded *>(file)->read(static_cast<char *>(to), count); },
      .write = [](const void *, sf_count_t, void *) -> sf_count_t { return 0; },
      .tell = [](void *file) { return static_cast<Decoded *>(file)->place; },
  };
}

namespace {

constexpr size_t block_values = 1 << 16; ///< of all channels, decoded at a time

/// Index of the channel to take, from 0.
size_t chosen_channel(const Source &source, int channels) {
  if (source.channel == 0 && channels == 1)
    return 0;
  if (source.channel == 0)
    throw InputError("{}: has {} channels; choose one of 1 to {} with {}", input_name(source.path), channels, channels,
                     source.channel_option);
  if (source.channel < 1 || source.channel > channels)
    throw InputError("{}: has no channel {}; it has {}", input_name(source.path), source.channel,
                     channels == 1 ? "one channel" : fmt::format("channels 1 to {}", channels));
  return size_t(source.channel - 1);
}

} // namespace

AudioReader::AudioReader(const Source &source)
    : source_(source), path_(input_name(source.path)), decoded_(std::make_shared<Decoded>(source)) {
  if (source.raw)
    info_ = raw_info(*source.raw, decoded_->file);
  SF_VIRTUAL_IO calls = Decoded::calls();
  file_.reset(sf_open_virtual(&calls, SFM_READ, &info_, decoded_.get()));
  if (decoded_->failure)
    throw *decoded_->failure;
  if (!file_)
    throw InputError("{}: cannot be read as audio: {} WAV, FLAC and other files that libsndfile knows are read, and "
                     "files without a header when their encoding is given",
                     path_, sf_strerror(nullptr));
  if (rate() < lowest_rate || rate() > highest_rate)
    throw InputError("{}: its header has a sample rate of {} Hz; {} to {} Hz are read", path_, rate(), lowest_rate,
                     highest_rate);
}

size_t AudioReader::take(const Source &source) {
  lanes_.push_back({chosen_channel(source, channels())});
  return lanes_.size() - 1;
}

size_t AudioReader::stated() const { return info_.frames > 0 && decoded_->view.sized ? size_t(info_.frames) : 0; }

/// Hands the next samples of every channel that was taken to its lane. @return whether there were any
bool AudioReader::decode(size_t frames) {
  const auto width = size_t(channels());
  block_.resize(std::clamp(frames, size_t(1), std::max(block_values / width, size_t(1))) * width);
  const auto got = size_t(sf_readf_double(file_.get(), block_.data(), sf_count_t(block_.size() / width)));
  for (Lane &lane : lanes_) {
    if (lane.taken == lane.ready.size())
      lane.ready.resize(lane.taken = 0);
    for (size_t i = 0; i < got; ++i) {
      const double value = block_[i * width + lane.channel];
      if (std::isnan(value))
        throw InputError("{}: sample {} is not a number; the file is damaged", path_, count_ + i);
      lane.ready.push_back(from_full_scale(value, lane.clipped));
    }
  }
  count_ += got;
  return got > 0;
}

size_t AudioReader::read(size_t number, std::span<int16_t> samples) {
  Lane &lane = lanes_.at(number);
  size_t done = 0;
  while (done < samples.size()) {
    if (lane.taken == lane.ready.size() && !decode(samples.size() - done)) {
      check_end();
      break;
    }
    const size_t part = std::min(lane.ready.size() - lane.taken, samples.size() - done);
    std::copy_n(lane.ready.begin() + std::ptrdiff_t(lane.taken), part, samples.begin() + std::ptrdiff_t(done));
    lane.taken += part;
    done += part;
  }
  return done;
}

void AudioReader::check_end() const {
  if (decoded_->failure)
    throw *decoded_->failure;
  if (sf_error(file_.get()) != SF_ERR_NO_ERROR)
    throw InputError("{}: damaged after {} samples: {}", path_, count_, sf_strerror(file_.get()));
  if ((info_.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_FLAC && stated() > count_)
    throw InputError("{}: cut short: its header promises {} samples, {} are there", path_, stated(), count_);
  if (const PipeBytes *pipe = decoded_->file.pipe())
    check_pipe_end(*pipe);
  if (count_ == 0)
    throw InputError("{}: holds no samples; at least one is needed", path_);
}

/// What a regular file tells at once, a pipe tells at its end.
void AudioReader::check_pipe_end(const PipeBytes &pipe) const {
  const View &view = decoded_->view;
  if (source_.raw)
    check_whole(*source_.raw, path_, pipe.received());
  else if (view.sized && pipe.received() < view.begin + view.length)
    refuse_cut(path_, view.length, pipe.received() - view.begin);
}

Recording read_audio(const Source &source) {
  AudioReader reader(source);
  const size_t lane = reader.take(source);
  Recording recording{{reader.rate(), {}}, reader.channels(), reader.rate(), 0, input_name(source.path)};
  std::vector<int16_t> &samples = recording.audio.samples;
  constexpr size_t block = 1 << 16;
  for (size_t got = block; got == block;) {
    const size_t before = samples.size();
    samples.resize(before + block);
    got = reader.read(lane, std::span(samples).subspan(before));
    samples.resize(before + got);
  }
  recording.clipped = reader.clipped(lane);
  return recording;
}

} // namespace qv::tool
