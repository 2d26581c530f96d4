/// @file reader.h  Channels of an audio file or pipe, block by block.
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
  /// Opens the file; its channels are taken one by one.
  /// @throws InputError when the file cannot be opened or understood, is cut short, or has a rate that is not read
  explicit AudioReader(const Source &source);

  /// @return the number of a lane, by which the channel of the source is read from now on
  /// @throws InputError when there is no such channel
  size_t take(const Source &source);

  /// The next samples of a lane, fewer than asked for only at the end. What the other lanes have not read yet is kept.
  /// @throws InputError when the file is damaged, or ends too early or without a sample
  size_t read(size_t lane, std::span<int16_t> samples);

  int rate() const { return info_.samplerate; } ///< Hz
  int channels() const { return info_.channels; }
  size_t clipped(size_t lane) const { return lanes_.at(lane).clipped; } ///< decoded samples beyond full scale

  /// Samples that the header states, as true as the header; 0 when it states none.
  size_t stated() const;

private:
  struct Decoded; ///< the file as libsndfile sees it
  struct Closer {
    void operator()(SNDFILE *file) const { sf_close(file); }
  };
  struct Lane {
    size_t channel;                  ///< from 0
    std::vector<int16_t> ready = {}; ///< decoded
    size_t taken = 0;                ///< of them
    size_t clipped = 0;
  };

  bool decode(size_t frames);
  void check_end() const;
  void check_pipe_end(const PipeBytes &pipe) const;

  Source source_;
  std::string path_; ///< for messages
  std::shared_ptr<Decoded> decoded_;
  SF_INFO info_{};
  std::unique_ptr<SNDFILE, Closer> file_;
  std::vector<Lane> lanes_;
  std::vector<double> block_; ///< all channels, interleaved
  size_t count_ = 0;          ///< samples decoded, of one channel
};

} // namespace qv::tool
