/// @file stream.h  One channel of a recording at the rate of a run, block by block.
#pragma once

#include <memory>
#include <optional>

#include "audio/reader.h"
#include "signal/resample.h"

namespace qv::tool {

/// The samples that read_audio and convert_rate give, in constant memory.
class AudioStream {
public:
  /// @param reader  may be shared by several streams, which are then read in step
  /// @param rate    Hz, of what comes out
  /// @throws InputError when there is no such channel
  AudioStream(std::shared_ptr<AudioReader> reader, const Source &source, int rate);

  /// The next samples, fewer than asked for only at the end.
  /// @throws InputError as AudioReader does, and when conversion leaves no sample
  size_t read(std::span<int16_t> samples);

  size_t clipped() const { return clipped_ + reader_->clipped(lane_); } ///< in the file or after conversion
  double stated_seconds() const { return double(reader_->stated()) / reader_->rate(); } ///< 0 when not known

private:
  void refill();

  std::shared_ptr<AudioReader> reader_;
  size_t lane_;
  std::string path_;
  int rate_;
  std::optional<Resampler> resampler_; ///< where the file has another rate
  Signal values_;                      ///< of the file, not converted yet from taken_ on
  std::vector<double> converted_;
  size_t taken_ = 0, clipped_ = 0, read_ = 0, written_ = 0; ///< samples
  bool ended_ = false;
};

} // namespace qv::tool
