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
      : file(source.path), view(source.raw ? View{"", 0, file.size()} : view_of(file)) {}

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

constexpr size_t block_values = 1 << 16; ///< of all channels, read at a time

/// Index of the channel to take, from 0.
int chosen_channel(const Source &source, int channels) {
  if (source.channel == 0 && channels == 1)
    return 0;
  if (source.channel == 0)
    throw InputError("{}: has {} channels; choose one of 1 to {} with {}", source.path, channels, channels,
                     source.channel_option);
  if (source.channel < 1 || source.channel > channels)
    throw InputError("{}: has no channel {}; it has {}", source.path, source.channel,
                     channels == 1 ? "one channel" : fmt::format("channels 1 to {}", channels));
  return source.channel - 1;
}

} // namespace

AudioReader::AudioReader(const Source &source) : path_(source.path), decoded_(std::make_shared<Decoded>(source)) {
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
  channel_ = size_t(chosen_channel(source, channels()));
  block_.resize(std::max(block_values / size_t(channels()), size_t(1)) * size_t(channels()));
}

size_t AudioReader::read(std::span<int16_t> samples) {
  const auto width = size_t(channels());
  size_t done = 0;
  while (done < samples.size()) {
    const size_t wanted = std::min(samples.size() - done, block_.size() / width);
    const auto got = size_t(sf_readf_double(file_.get(), block_.data(), sf_count_t(wanted)));
    for (size_t i = 0; i < got; ++i) {
      const double value = block_[i * width + channel_];
      if (std::isnan(value))
        throw InputError("{}: sample {} is not a number; the file is damaged", path_, count_);
      samples[done++] = from_full_scale(value, clipped_);
      ++count_;
    }
    if (got == 0) {
      check_end();
      break;
    }
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
  if (count_ == 0)
    throw InputError("{}: holds no samples; at least one is needed", path_);
}

Recording read_audio(const Source &source) {
  AudioReader reader(source);
  Recording recording{{reader.rate(), {}}, reader.channels(), reader.rate(), 0, source.path};
  std::vector<int16_t> &samples = recording.audio.samples;
  constexpr size_t block = 1 << 16;
  for (size_t got = block; got == block;) {
    const size_t before = samples.size();
    samples.resize(before + block);
    got = reader.read(std::span(samples).subspan(before));
    samples.resize(before + got);
  }
  recording.clipped = reader.clipped();
  return recording;
}

} // namespace qv::tool
