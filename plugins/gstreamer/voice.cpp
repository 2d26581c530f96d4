// The samples of a qvvoice element: what comes in, which reference belongs to it, what leaves.

#include "voice.h"

#include <algorithm>
#include <utility>

namespace qv::gst {
namespace {

constexpr int patience_ms = 1000; ///< a stream's gap of up to this is silence; beyond, a new beginning
constexpr int lead_ms = 10; ///< live, the reference is taken by this earlier: devices play before they say, never after

} // namespace

Voice::Voice(GstElement *owner)
    : element(owner), capture([this](int64_t at, std::span<int16_t> frame) { return read_reference(at, frame); },
                              [this](int64_t at, std::span<const int16_t> samples) { return push(at, samples); },
                              [this](const Happening &happening) { tell(happening); }) {}

// The reference.

void Voice::find_reference() {
  const std::lock_guard lock(guard);
  const auto found = find_probe(probe.empty() ? nullptr : probe.c_str(), top_of(element));
  if (found == reference)
    return;
  if (reference)
    reference->keep_step({});
  reference = found;
  if (reference && !live && reference->top() == top_of(element))
    reference->keep_step(capture.started() ? capture.position() : 0);
}

void Voice::look_whether_live() {
  GstQuery *query = gst_query_new_latency();
  gboolean is_live = FALSE;
  if (gst_pad_peer_query(sink, query))
    gst_query_parse_latency(query, &is_live, nullptr, nullptr);
  gst_query_unref(query);
  live = is_live;
  if (live)
    leave_step();
}

void Voice::leave_step() {
  const std::lock_guard lock(guard);
  if (reference)
    reference->keep_step({});
}

void Voice::stop(bool on) {
  stopped = on;
  const std::lock_guard lock(guard);
  if (reference)
    reference->wake();
}

void Voice::forget_reference() {
  const std::lock_guard lock(guard);
  reference.reset();
}

size_t Voice::read_reference(int64_t at, std::span<int16_t> frame) {
  find_reference();
  if (!reference) {
    if (!std::exchange(told_missing, true))
      GST_ELEMENT_WARNING(
          element, RESOURCE, NOT_FOUND,
          ("there is no probe %s; there are: %s", probe.empty() ? "to choose" : probe.c_str(), probe_names().c_str()),
          ("silence is the reference until it is there; qvvoiceprobe makes one, the property probe names it"));
    std::ranges::fill(frame, 0);
    return 0;
  }
  told_missing = false;
  const int rate = capture.rate();
  if (reference->rate() != 0 && reference->rate() != rate) {
    GST_ELEMENT_ERROR(element, STREAM, FORMAT,
                      ("probe %s has %d Hz, the microphone %d Hz: both must have the same", reference->name().c_str(),
                       reference->rate(), rate),
                      (nullptr));
    return 0;
  }
  if (reference->top() != top_of(element) && GST_CLOCK_TIME_IS_VALID(reference->base_time()))
    at += to_samples(GST_CLOCK_DIFF(reference->base_time(), gst_element_get_base_time(element)), rate);
  if (live)
    at += lead_ms * rate / 1000 - to_samples(GstClockTimeDiff(reference->latency()), rate);
  return reference->read(at, frame, stopped);
}

// What leaves.

bool Voice::push(int64_t at, std::span<const int16_t> samples) {
  GstBuffer *buffer = gst_buffer_new_memdup(samples.data(), samples.size_bytes());
  GST_BUFFER_PTS(buffer) = timeline.pts_of(at);
  GST_BUFFER_DURATION(buffer) = to_time(at + int64_t(samples.size()), capture.rate()) - to_time(at, capture.rate());
  if (std::exchange(discont, false))
    GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DISCONT);
  flow = gst_pad_push(source, buffer);
  return flow == GST_FLOW_OK;
}

void Voice::tell(const Happening &happening) {
  if (happening.converged)
    post("qvvoice-converged");
  if (happening.delay_moved)
    post("qvvoice-delay-moved");
  if (happening.reference_lost)
    post("qvvoice-reference-lost");
  if (happening.reference_found)
    post("qvvoice-reference-found");
}

void Voice::post(const char *name) {
  QvVoiceTrace trace{};
  trace.size = sizeof trace;
  qv_call_trace(capture.call(), &trace);
  gst_element_post_message(
      element,
      gst_message_new_element(
          GST_OBJECT(element),
          gst_structure_new(name, "running-time", G_TYPE_UINT64, to_time(capture.position(), capture.rate()), "delay",
                            G_TYPE_INT, trace.echo_delay, "erle-db", G_TYPE_DOUBLE, double(trace.erle_db), "probe",
                            G_TYPE_STRING, reference ? reference->name().c_str() : "", nullptr)));
}

// What comes in.

/// A short gap is silence; behind a long one, and before a jump back, what is there leaves and the stream begins anew.
void Voice::continue_at(int64_t at) {
  if (!capture.started()) {
    capture.start(at);
    return;
  }
  const int64_t gap = at - capture.position();
  if (gap >= 0 && gap <= int64_t(capture.rate()) * patience_ms / 1000) {
    capture.silence(gap);
    return;
  }
  capture.drain();
  discont = true;
  capture.start(at);
}

GstFlowReturn Voice::write(GstBuffer *buffer) {
  flow = GST_FLOW_OK;
  const auto samples = int64_t(gst_buffer_get_size(buffer) / sizeof(int16_t));
  const int64_t at = timeline.place(GST_BUFFER_PTS(buffer));
  continue_at(at);
  timeline.pass(at + samples);
  GstMapInfo map;
  if (flow != GST_FLOW_OK || !gst_buffer_map(buffer, &map, GST_MAP_READ))
    return flow == GST_FLOW_OK ? GST_FLOW_ERROR : flow;
  if (GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_GAP))
    capture.silence(samples);
  else
    capture.write({reinterpret_cast<const int16_t *>(map.data), size_t(samples)});
  gst_buffer_unmap(buffer, &map);
  return flow;
}

GstFlowReturn Voice::chain(GstBuffer *buffer) {
  if (!capture.call()) {
    gst_buffer_unref(buffer);
    return GST_FLOW_NOT_NEGOTIATED;
  }
  buffer = timeline.clip(buffer);
  if (!buffer)
    return GST_FLOW_OK;
  if (!capture.started())
    look_whether_live();
  const GstFlowReturn result = write(buffer);
  gst_buffer_unref(buffer);
  return result;
}

void Voice::gap(GstEvent *event) {
  GstClockTime start = 0, duration = 0;
  gst_event_parse_gap(event, &start, &duration);
  if (!capture.call() || !GST_CLOCK_TIME_IS_VALID(duration))
    return;
  const int64_t end = timeline.place(start) + to_samples(GstClockTimeDiff(duration), capture.rate());
  if (capture.started())
    continue_at(end);
  timeline.pass(end);
}

} // namespace qv::gst
