/// @file reader.h  One channel of an audio file, block by block.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

#include <sndfile.h>

#include "audio/audio.h"
#include "audio/container.h"

namespace qv::tool {

/// Sample rates that are read, Hz.
inline constexpr int lowest_rate = 1000, highest_rate = 768000;

/// Reads whatever libsndfile reads. Integer samples of up to 16 bits come through exact; wider ones and floats (full
/// scale 1.0) are rounded to the nearest and clipped.
class AudioReader {
public:
  /// @throws InputError when the file cannot be opened or understood, is cut short, has a rate that is not read, or no
  ///         such channel
  explicit AudioReader(const Source &source);

  /// The next samples, fewer than asked for only at the end.
  /// @throws InputError when the file is damaged, or ends without a sample
  size_t read(std::span<int16_t> samples);

  int rate() const { return info_.samplerate; } ///< Hz
  int channels() const { return info_.channels; }
  size_t clipped() const { return clipped_; } ///< samples read so far that lie beyond full scale
  size_t count() const { return count_; }     ///< samples read so far

  /// Samples that the header states; as true as the header.
  size_t stated() const { return info_.frames > 0 ? size_t(info_.frames) : 0; }

private:
  struct Decoded; ///< the file as libsndfile sees it
  struct Closer {
    void operator()(SNDFILE *file) const { sf_close(file); }
  };

  void check_end() const;

  std::string path_;
  std::shared_ptr<Decoded> decoded_;
  SF_INFO info_{};
  std::unique_ptr<SNDFILE, Closer> file_;
  size_t channel_; ///< from 0
  std::vector<double> block_;
  size_t clipped_ = 0, count_ = 0;
};

} // namespace qv::tool
