/// @file voice.h  What a qvvoice element does, behind its GObject.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "capture.h"
#include "parameters.h"
#include "reference.h"
#include "timeline.h"

namespace qv::gst {

/// The streaming thread has `capture`, `timeline` and `reference`; `guard` is for what properties
/// touch, for the life of the call and for which reference it is.
struct Voice {
  explicit Voice(GstElement *owner);

  GstElement *const element;
  GstPad *sink = nullptr, *source = nullptr;

  mutable std::mutex guard;
  Parameters parameters;
  std::string preset, file, problem; ///< problem: of the value last set, until the element starts
  std::string probe;                 ///< empty: the only one
  guint frame_ms = 20, noise_seed = 0;

  Capture capture;
  Timeline timeline;
  std::shared_ptr<Reference> reference;
  bool told_missing = false;         ///< that there is no such probe
  std::atomic<bool> live = false;    ///< the samples come when they are recorded; nothing waits then
  std::atomic<bool> stopped = false; ///< flushing or shutting down: nothing waits
  bool discont = true;               ///< the next buffer that leaves is not the continuation of the last
  GstFlowReturn flow = GST_FLOW_OK;

  // Parameters, from any thread.
  void set(bool is_preset, const std::string &value); ///< the property preset, or parameters
  std::string take(bool is_preset, const std::string &value);

  // The reference.
  void find_reference();
  void forget_reference(); ///< it is found again, from a new beginning
  void leave_step();       ///< nobody waits for this element any more, nor it for anybody
  void look_whether_live();
  void stop(bool on); ///< whoever waits goes on
  size_t read_reference(int64_t at, std::span<int16_t> frame);

  // The stream, on its thread.
  bool open(int rate); ///< a call for this rate; false after an error message
  GstFlowReturn chain(GstBuffer *buffer);
  GstFlowReturn write(GstBuffer *buffer);
  void continue_at(int64_t at); ///< the next sample lies there
  void gap(GstEvent *event);
  bool push(int64_t at, std::span<const int16_t> samples);

  // What it tells.
  void tell(const Happening &happening); ///< as element messages
  void post(const char *name);
  void add_latency(GstQuery *query) const;
  GstStructure *stats(); ///< the caller's
};

} // namespace qv::gst
