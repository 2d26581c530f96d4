/// @file timeline.h  Where buffers lie in running time, counted in samples.
#pragma once

#include <gst/audio/audio.h>
#include <gst/gst.h>

#include <cstdint>
#include <cstdlib>
#include <optional>

namespace qv::gst {

inline constexpr const char *caps_text = "audio/x-raw, format = (string) S16LE, rate = (int) { 8000, 16000 }, channels "
                                         "= (int) 1, layout = (string) interleaved";

/// @param time  ns
inline int64_t to_samples(GstClockTimeDiff time, int rate) {
  const bool before = time < 0;
  const auto samples = int64_t(gst_util_uint64_scale_round(guint64(before ? -time : time), guint64(rate), GST_SECOND));
  return before ? -samples : samples;
}

inline GstClockTime to_time(int64_t samples, int rate) {
  return gst_util_uint64_scale_round(guint64(samples), GST_SECOND, guint64(rate));
}

/// Follows the buffers of a stream. Timestamps that wander by less than 40 ms, as those of devices do, move nothing.
class Timeline {
public:
  void set_rate(int rate) { rate_ = rate; }
  void set_segment(const GstSegment &segment) { segment_ = segment; }
  const GstSegment &segment() const { return segment_; }
  void forget() { next_.reset(); } ///< the next buffer lies where its timestamp says

  /// What of the buffer lies in the segment. Takes it over. @return null for nothing
  GstBuffer *clip(GstBuffer *buffer) const {
    return gst_audio_buffer_clip(buffer, &segment_, rate_, int(sizeof(int16_t)));
  }

  /// @param pts  GST_CLOCK_TIME_NONE: right behind the last buffer, or at the beginning
  /// @return samples of running time
  int64_t place(GstClockTime pts) const {
    if (!GST_CLOCK_TIME_IS_VALID(pts))
      return next_.value_or(0);
    const GstClockTime running = gst_segment_to_running_time(&segment_, GST_FORMAT_TIME, pts);
    if (!GST_CLOCK_TIME_IS_VALID(running))
      return next_.value_or(0);
    const int64_t at = to_samples(GstClockTimeDiff(running), rate_);
    return next_ && std::abs(at - *next_) < rate_ * 40 / 1000 ? *next_ : at;
  }
  void pass(int64_t end) { next_ = end; } ///< what was placed ends here
  std::optional<int64_t> next() const { return next_; }

  GstClockTime pts_of(int64_t running) const {
    return gst_segment_position_from_running_time(&segment_, GST_FORMAT_TIME, to_time(running, rate_));
  }

private:
  GstSegment segment_{};
  int rate_ = 16000;
  std::optional<int64_t> next_;
};

} // namespace qv::gst
