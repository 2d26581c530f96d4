/// @file elements.h  The two elements in harnesses, and the messages that they post.
#pragma once

#include <gst/check/gstharness.h>

#include <memory>

#include "call/run.h"
#include "images.h"

namespace qv::gst {

using test::Samples;

inline std::string caps_of(int rate) {
  return "audio/x-raw,format=S16LE,channels=1,layout=interleaved,rate=" + std::to_string(rate);
}

inline GstBuffer *buffer_of(std::span<const int16_t> samples, GstClockTime pts = GST_CLOCK_TIME_NONE) {
  GstBuffer *buffer = gst_buffer_new_memdup(samples.data(), samples.size_bytes());
  GST_BUFFER_PTS(buffer) = pts;
  return buffer;
}

/// Of a warning or an error, which is freed.
inline std::string text_of(GstMessage *message) {
  GError *error = nullptr;
  (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR ? gst_message_parse_error
                                                  : gst_message_parse_warning)(message, &error, nullptr);
  const std::string text = error->message;
  g_error_free(error);
  gst_message_unref(message);
  return text;
}

inline uint64_t stat_of(GstElement *voice, const char *name) {
  GstStructure *stats = nullptr;
  g_object_get(voice, "stats", &stats, nullptr);
  guint64 value = 0;
  EXPECT_TRUE(gst_structure_get_uint64(stats, name, &value)) << name;
  gst_structure_free(stats);
  return value;
}

/// An element with a bus, between pads that the test holds.
class Element {
public:
  explicit Element(const std::string &launch) : harness(gst_harness_new_parse(launch.c_str())), bus_(gst_bus_new()) {
    gst_harness_set_live(harness, FALSE);
    GstElement *found = nullptr;
    for (const char *name : {"qvvoice", "qvvoiceprobe"})
      if (!found)
        found = gst_harness_find_element(harness, name);
    element = found;
    gst_element_set_bus(element, bus_);
  }
  ~Element() {
    gst_element_set_bus(element, nullptr);
    gst_object_unref(bus_);
    gst_object_unref(element);
    gst_harness_teardown(harness);
  }
  Element(const Element &) = delete;
  Element &operator=(const Element &) = delete;

  void caps(int rate) { gst_harness_set_src_caps_str(harness, caps_of(rate).c_str()); }
  GstFlowReturn push(std::span<const int16_t> samples, GstClockTime pts = GST_CLOCK_TIME_NONE) {
    return gst_harness_push(harness, buffer_of(samples, pts));
  }
  void push_in_pieces(const Samples &samples, const std::vector<size_t> &lengths) {
    std::span<const int16_t> rest(samples);
    while (!rest.empty())
      for (const size_t length : lengths) {
        const size_t count = std::min(length, rest.size());
        if (count == 0)
          return;
        ASSERT_EQ(push(rest.first(count)), GST_FLOW_OK);
        rest = rest.subspan(count);
      }
  }
  void event(GstEvent *event) { ASSERT_TRUE(gst_harness_push_event(harness, event)); }

  /// What has left since the last time; every buffer begins where the one before it ended, unless it is marked.
  Samples pull(GstClockTime *first = nullptr) {
    Samples all;
    while (GstBuffer *buffer = gst_harness_try_pull(harness)) {
      if (first && all.empty())
        *first = GST_BUFFER_PTS(buffer);
      if (GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DISCONT))
        ++discontinuities;
      else if (GST_BUFFER_PTS_IS_VALID(buffer)) { // a probe's buffers are those that came in
        EXPECT_EQ(GST_BUFFER_PTS(buffer), next_);
      }
      next_ = GST_BUFFER_PTS(buffer) + GST_BUFFER_DURATION(buffer);
      Samples samples(gst_buffer_get_size(buffer) / 2);
      gst_buffer_extract(buffer, 0, samples.data(), 2 * samples.size());
      all.insert(all.end(), samples.begin(), samples.end());
      gst_buffer_unref(buffer);
    }
    return all;
  }

  /// The text of the first warning or error; empty when there is none.
  std::string complaint() {
    std::string text;
    while (GstMessage *message = gst_bus_pop_filtered(bus_, GstMessageType(GST_MESSAGE_WARNING | GST_MESSAGE_ERROR)))
      if (const std::string next = text_of(message); text.empty())
        text = next;
    return text;
  }
  /// How many element messages of this name have come so far.
  int messages(const char *name) {
    int count = 0;
    std::vector<GstMessage *> others;
    while (GstMessage *message = gst_bus_pop(bus_)) {
      count += gst_message_has_name(message, name);
      others.push_back(message);
    }
    for (GstMessage *message : others)
      gst_bus_post(bus_, message);
    return count;
  }
  template <class Value> void set(const char *property, Value value) {
    g_object_set(element, property, value, nullptr);
  }
  uint64_t stat(const char *name) { return stat_of(element, name); }

  GstHarness *const harness;
  GstElement *element = nullptr;
  int discontinuities = 0;

private:
  GstBus *bus_;
  GstClockTime next_ = 0;
};

/// Where two signals first differ, for messages; nothing when they do not.
inline std::string difference(const Samples &got, const Samples &right) {
  if (got.size() != right.size())
    return std::to_string(got.size()) + " samples, right would be " + std::to_string(right.size());
  for (size_t i = 0; i < got.size(); ++i)
    if (got[i] != right[i])
      return "sample " + std::to_string(i) + " is " + std::to_string(got[i]) + ", right would be " +
             std::to_string(right[i]);
  return got.empty() ? "nothing to compare" : "";
}

/// What the tool makes of the signals, in step with the microphone and as long; where `mic` ends, silence follows.
inline Samples expected_of(const std::string &preset, const test::Layout &layout, const Samples &mic,
                           const Samples &ref) {
  const tool::Setup setup = tool::make_setup(preset, layout.rate, 1000 * layout.frame_len / layout.rate);
  Samples sent = tool::run_tx(setup, mic, ref, {.compensate = true, .progress = {}}).sent;
  sent.resize(mic.size());
  return sent;
}

} // namespace qv::gst
