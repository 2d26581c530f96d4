#include "audio/stream.h"

#include "audio/full_scale.h"
#include "support/error.h"

namespace qv::tool {
namespace {

constexpr int blocks_per_second = 100; ///< of the file, handed to the converter: what a live source waits for

} // namespace

AudioStream::AudioStream(std::shared_ptr<AudioReader> reader, const Source &source, int rate)
    : reader_(std::move(reader)), lane_(reader_->take(source)), path_(input_name(source.path)), rate_(rate) {
  if (reader_->rate() != rate)
    resampler_.emplace(reader_->rate(), rate);
}

void AudioStream::refill() {
  std::vector<int16_t> block(size_t(reader_->rate() / blocks_per_second));
  block.resize(reader_->read(lane_, block));
  values_ = to_signal(block);
  taken_ = 0;
  read_ += block.size();
  ended_ = block.empty();
}

size_t AudioStream::read(std::span<int16_t> samples) {
  if (!resampler_)
    return reader_->read(lane_, samples);
  size_t done = 0;
  while (done < samples.size()) {
    if (taken_ == values_.size() && !ended_)
      refill();
    converted_.resize(samples.size() - done);
    const auto [taken, written] = resampler_->process(SignalView(values_).subspan(taken_), converted_);
    taken_ += taken;
    for (size_t i = 0; i < written; ++i)
      samples[done++] = from_full_scale(converted_[i], clipped_);
    if (ended_ && written == 0)
      break;
  }
  written_ += done;
  if (written_ == 0)
    throw InputError("{}: too short: {} samples at {} Hz are not one sample at {} Hz", path_, read_, reader_->rate(),
                     rate_);
  return done;
}

} // namespace qv::tool
