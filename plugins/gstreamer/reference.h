/// @file reference.h  What probes hear, kept for the elements that need it as their echo reference.
#pragma once

#include <gst/gst.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace qv::gst {

/// The topmost bin around an element: its pipeline. Only compared, never used.
const void *top_of(GstElement *element);

/// The last seconds that a probe has passed on, by running time. Written by the probe's streaming thread, read by that
/// of the capture element.
///
/// In one pipeline and without a live source the two keep step, so that the result does not depend on who is faster: a
/// reader waits for samples, a probe that is far ahead waits for its reader. Everywhere else nobody waits for anything.
class Reference {
public:
  static constexpr int kept_seconds = 10, ahead_seconds = 5;

  Reference(std::string name, const void *top) : name_(std::move(name)), top_(top) {}
  const std::string &name() const { return name_; }
  const void *top() const { return top_; }

  // For the probe. Positions are samples of its pipeline's running time.
  void begin(int rate); ///< another rate forgets what was kept
  /// Waits while its reader is too far behind. What a stream leaves out is silence.
  void write(int64_t at, std::span<const int16_t> samples);
  void silence_until(int64_t at);
  void end();          ///< nothing more comes
  void flush(bool on); ///< while it is on nobody waits, and all is forgotten
  void set_times(GstClockTime base, GstClockTime latency);

  // For its reader.
  int rate() const;
  GstClockTime base_time() const; ///< of the probe's pipeline; GST_CLOCK_TIME_NONE until it plays
  GstClockTime latency() const;   ///< after which the pipeline plays what the probe hears
  /// Keeps step from now on, or no longer. @param at  where it will read next
  void keep_step(std::optional<int64_t> at);
  /// Zeros where nothing is known. Waits for what is to come when it keeps step, unless `stopped()`.
  /// @return samples that are known
  size_t read(int64_t at, std::span<int16_t> samples, const std::atomic<bool> &stopped);
  void wake(); ///< who waits looks again

private:
  void put(int64_t at, std::span<const int16_t> samples);

  const std::string name_;
  const void *const top_;
  mutable std::mutex guard_; ///< of all that follows
  std::condition_variable changed_;
  std::vector<int16_t> ring_;
  int rate_ = 0;
  int64_t begin_ = 0, end_ = 0; ///< what is kept
  bool ended_ = false, flushing_ = false;
  std::optional<int64_t> reader_; ///< where who keeps step is
  GstClockTime base_ = GST_CLOCK_TIME_NONE, latency_ = 0;
};

/// Probes that run, in the whole process.
void add_probe(const std::shared_ptr<Reference> &reference);
void remove_probe(const std::shared_ptr<Reference> &reference);

/// The probe of a name; of several the one in the same pipeline. Without a name the only one there, or the only one in
/// the pipeline. Null if there is none.
/// @param name  may be null
std::shared_ptr<Reference> find_probe(const char *name, const void *top);

/// "speaker, ringer", or "none".
std::string probe_names();

} // namespace qv::gst
