// qvvoice: the capture path of a call, between the microphone and what encodes or sends.

#include "element.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <utility>

#include <fmt/format.h>

#include "call/trace_table.h"
#include "capture.h"
#include "parameters.h"
#include "reference.h"
#include "timeline.h"

using namespace qv::gst;

struct QvVoice {
  GstElement element;
  struct Voice *voice;
};

struct QvVoiceClass {
  GstElementClass parent;
};

G_DEFINE_TYPE(QvVoice, qv_voice, GST_TYPE_ELEMENT)

/// Behind the GObject. The streaming thread has `capture`, `timeline` and `reference`; `guard` is for what properties
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

  bool open(int rate);
  void set(bool is_preset, const std::string &value);
  std::string take(bool is_preset, const std::string &value);
  bool replace();

  void find_reference();
  void forget_reference(); ///< it is found again, from a new beginning
  void leave_step();
  void look_whether_live();
  void stop(bool on);
  size_t read_reference(int64_t at, std::span<int16_t> frame);
  bool push(int64_t at, std::span<const int16_t> samples);
  void tell(const Happening &happening);
  void post(const char *name);

  GstFlowReturn chain(GstBuffer *buffer);
  GstFlowReturn write(GstBuffer *buffer);
  void continue_at(int64_t at);
  void gap(GstEvent *event);
  void add_latency(GstQuery *query) const;
  GstStructure *stats();
};

namespace {

constexpr int patience_ms = 1000; ///< a stream's gap of up to this is silence; beyond, a new beginning
constexpr int lead_ms = 10; ///< live, the reference is taken by this earlier: devices play before they say, never after

enum Property {
  property_preset = 1,
  property_parameters,
  property_probe,
  property_frame_ms,
  property_seed,
  property_stats
};

Voice &voice_of(gpointer object) { return *static_cast<QvVoice *>(object)->voice; }

std::string text_of(const GValue *value) {
  const gchar *text = g_value_get_string(value);
  return text ? text : "";
}

} // namespace

Voice::Voice(GstElement *owner)
    : element(owner), capture([this](int64_t at, std::span<int16_t> frame) { return read_reference(at, frame); },
                              [this](int64_t at, std::span<const int16_t> samples) { return push(at, samples); },
                              [this](const Happening &happening) { tell(happening); }) {}

// Parameters.

/// @return what is wrong, or nothing; then nothing has changed
std::string Voice::take(bool is_preset, const std::string &value) {
  Parameters taken;
  if (!value.empty()) {
    std::string wrong = is_preset ? taken.set_preset(value) : taken.set_parameters(value);
    if (!wrong.empty())
      return wrong;
    if (capture.call() && taken.rate() != capture.rate())
      return fmt::format("they are for {} Hz, the stream has {} Hz", taken.rate(), capture.rate());
  }
  parameters = taken;
  return "";
}

void Voice::set(bool is_preset, const std::string &value) {
  const char *name = is_preset ? "preset" : "parameters";
  std::unique_lock lock(guard);
  (is_preset ? preset : file) = value;
  const std::string wrong = take(is_preset, value);
  problem = wrong.empty() || capture.call() ? "" : fmt::format("{}: {}", name, wrong);
  const bool running = capture.call(), moved = running && wrong.empty() && replace();
  lock.unlock(); // who hears the messages may ask for properties
  if (running && !wrong.empty())
    GST_ELEMENT_WARNING(element, RESOURCE, SETTINGS, ("%s: %s", name, wrong.c_str()), ("the former parameters stay"));
  if (moved)
    gst_element_post_message(element, gst_message_new_latency(GST_OBJECT(element)));
}

/// New parameters for a running call. @return whether its latency is another one
bool Voice::replace() {
  const int before = capture.latency();
  qv_call_replace_parameters(capture.call(), parameters.words(capture.rate(), capture.frame_length()).data(), nullptr);
  return capture.latency() != before;
}

bool Voice::open(int rate) {
  timeline.set_rate(rate);
  const int frame_length = rate / 1000 * int(frame_ms);
  if (capture.call() && capture.rate() == rate && capture.frame_length() == frame_length)
    return true;
  std::unique_lock lock(guard);
  const int32_t status = capture.open(rate, frame_length, noise_seed, parameters.words(rate, frame_length).data());
  lock.unlock();
  if (status != QV_VOICE_OK)
    GST_ELEMENT_ERROR(element, RESOURCE, SETTINGS, ("%s", QV_VOICE_StatusText(status)),
                      ("rate %d Hz, frame %u ms, parameters for %d Hz", rate, frame_ms, parameters.rate()));
  return status == QV_VOICE_OK;
}

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

// Events, queries, states.

namespace {

GstFlowReturn chain(GstPad *, GstObject *parent, GstBuffer *buffer) { return voice_of(parent).chain(buffer); }

gboolean set_caps(Voice &voice, GstEvent *event) {
  GstCaps *caps = nullptr;
  int rate = 0;
  gst_event_parse_caps(event, &caps);
  gst_structure_get_int(gst_caps_get_structure(caps, 0), "rate", &rate);
  voice.capture.drain();
  return voice.open(rate);
}

gboolean sink_event(GstPad *pad, GstObject *parent, GstEvent *event) {
  Voice &voice = voice_of(parent);
  switch (GST_EVENT_TYPE(event)) {
  case GST_EVENT_CAPS:
    if (set_caps(voice, event))
      return gst_pad_push_event(voice.source, event);
    gst_event_unref(event);
    return FALSE;
  case GST_EVENT_SEGMENT: {
    const GstSegment *segment = nullptr;
    gst_event_parse_segment(event, &segment);
    if (segment->format != GST_FORMAT_TIME) {
      GST_ELEMENT_ERROR(voice.element, STREAM, FORMAT,
                        ("segment in %s, in time is needed", gst_format_get_name(segment->format)), (nullptr));
      gst_event_unref(event);
      return FALSE;
    }
    voice.capture.drain();
    voice.timeline.set_segment(*segment);
    voice.timeline.forget();
    break;
  }
  case GST_EVENT_GAP:
    voice.gap(event);
    break;
  case GST_EVENT_EOS:
    voice.capture.drain();
    voice.leave_step();
    break;
  case GST_EVENT_FLUSH_START:
    voice.stop(true);
    break;
  case GST_EVENT_FLUSH_STOP:
    voice.capture.forget();
    voice.timeline.forget();
    voice.discont = true;
    voice.forget_reference();
    voice.stop(false);
    break;
  default:
    break;
  }
  return gst_pad_event_default(pad, parent, event);
}

GstCaps *usable_caps(Voice &voice, GstPad *pad, GstPad *other, GstCaps *filter) {
  GstCaps *caps = gst_pad_get_pad_template_caps(pad);
  {
    const std::lock_guard lock(voice.guard);
    if (const int rate = voice.parameters.rate(); rate != 0) {
      caps = gst_caps_make_writable(caps);
      gst_caps_set_simple(caps, "rate", G_TYPE_INT, rate, nullptr);
    }
  }
  for (GstCaps *more : {gst_pad_peer_query_caps(other, caps), filter ? gst_caps_ref(filter) : nullptr}) {
    if (!more)
      continue;
    GstCaps *both = gst_caps_intersect_full(more, caps, GST_CAPS_INTERSECT_FIRST);
    gst_caps_unref(more);
    gst_caps_unref(caps);
    caps = both;
  }
  return caps;
}

gboolean query(GstPad *pad, GstObject *parent, GstQuery *query) {
  Voice &voice = voice_of(parent);
  if (GST_QUERY_TYPE(query) == GST_QUERY_CAPS) {
    GstCaps *filter = nullptr;
    gst_query_parse_caps(query, &filter);
    GstCaps *caps = usable_caps(voice, pad, pad == voice.sink ? voice.source : voice.sink, filter);
    gst_query_set_caps_result(query, caps);
    gst_caps_unref(caps);
    return TRUE;
  }
  const gboolean answered = gst_pad_query_default(pad, parent, query);
  if (answered && pad == voice.source && GST_QUERY_TYPE(query) == GST_QUERY_LATENCY)
    voice.add_latency(query);
  return answered;
}

} // namespace

/// A sample leaves when the frame is whole that the call needs for it.
void Voice::add_latency(GstQuery *query) const {
  const std::lock_guard lock(guard);
  if (!capture.call())
    return;
  gboolean is_live = FALSE;
  GstClockTime least = 0, most = 0;
  gst_query_parse_latency(query, &is_live, &least, &most);
  const GstClockTime own = to_time(capture.frame_length() + capture.latency(), capture.rate());
  gst_query_set_latency(query, is_live, least + own, GST_CLOCK_TIME_IS_VALID(most) ? most + own : most);
}

GstStructure *Voice::stats() {
  const std::lock_guard lock(guard);
  GstStructure *stats = gst_structure_new_empty("application/x-qvvoice-stats");
  if (!capture.call())
    return stats;
  QvVoiceTrace trace{};
  trace.size = sizeof trace;
  qv_call_trace(capture.call(), &trace);
  qv::tool::for_each_field(trace, [&](std::string name, auto value) {
    std::ranges::replace(name, '_', '-');
    if constexpr (std::is_floating_point_v<decltype(value)>)
      gst_structure_set(stats, name.c_str(), G_TYPE_DOUBLE, double(value), nullptr);
    else
      gst_structure_set(stats, name.c_str(), G_TYPE_INT, int(value), nullptr);
  });
  gst_structure_set(stats, "latency", G_TYPE_INT, capture.latency(), "reference-known", G_TYPE_UINT64,
                    capture.reference_known(), "reference-missing", G_TYPE_UINT64, capture.reference_missing(),
                    nullptr);
  return stats;
}

namespace {

GstStateChangeReturn change_state(GstElement *element, GstStateChange change) {
  Voice &voice = voice_of(element);
  if (change == GST_STATE_CHANGE_READY_TO_PAUSED) {
    if (!voice.problem.empty() || (voice.frame_ms != 16 && voice.frame_ms != 20)) {
      const std::string wrong =
          voice.problem.empty() ? fmt::format("frame-ms: found {}; 16 or 20 is needed", voice.frame_ms) : voice.problem;
      GST_ELEMENT_ERROR(element, RESOURCE, SETTINGS, ("%s", wrong.c_str()), (nullptr));
      return GST_STATE_CHANGE_FAILURE;
    }
    voice.told_missing = false;
    voice.live = voice.stopped = false;
    voice.discont = true;
    voice.timeline.forget();
    voice.find_reference();
  } else if (change == GST_STATE_CHANGE_PAUSED_TO_PLAYING) {
    voice.look_whether_live();
  } else if (change == GST_STATE_CHANGE_PAUSED_TO_READY) {
    voice.stop(true);
  }
  const auto result = GST_ELEMENT_CLASS(qv_voice_parent_class)->change_state(element, change);
  if (change == GST_STATE_CHANGE_PAUSED_TO_READY) {
    voice.leave_step();
    voice.forget_reference();
    const std::lock_guard lock(voice.guard);
    voice.capture.close();
  }
  return result;
}

void set_property(GObject *object, guint id, const GValue *value, GParamSpec *spec) {
  Voice &voice = voice_of(object);
  switch (id) {
  case property_preset:
    return voice.set(true, text_of(value));
  case property_parameters:
    return voice.set(false, text_of(value));
  case property_probe: {
    const std::lock_guard lock(voice.guard);
    voice.probe = text_of(value);
    return;
  }
  case property_frame_ms:
    voice.frame_ms = g_value_get_uint(value);
    return;
  case property_seed:
    voice.noise_seed = g_value_get_uint(value);
    return;
  default:
    G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
  }
}

void get_property(GObject *object, guint id, GValue *value, GParamSpec *spec) {
  Voice &voice = voice_of(object);
  if (id == property_stats)
    return g_value_take_boxed(value, voice.stats());
  const std::lock_guard lock(voice.guard);
  const auto give = [&](const std::string &text) { g_value_set_string(value, text.empty() ? nullptr : text.c_str()); };
  switch (id) {
  case property_preset:
    return give(voice.preset);
  case property_parameters:
    return give(voice.file);
  case property_probe:
    return give(voice.probe);
  case property_frame_ms:
    return g_value_set_uint(value, voice.frame_ms);
  case property_seed:
    return g_value_set_uint(value, voice.noise_seed);
  default:
    G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
  }
}

void finalize(GObject *object) {
  delete &voice_of(object);
  G_OBJECT_CLASS(qv_voice_parent_class)->finalize(object);
}

void install_properties(GObjectClass *type) {
  const auto running = GParamFlags(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_PLAYING);
  const auto ready = GParamFlags(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_READY);
  const auto text = [&](guint id, const char *name, const char *nick, const char *blurb) {
    g_object_class_install_property(type, id, g_param_spec_string(name, nick, blurb, nullptr, running));
  };
  text(property_preset, "preset", "Preset",
       "Name of a built-in preset, as `qvvoice presets` lists them; without one, and without parameters: balanced of "
       "the "
       "stream's rate. Taken up while playing, without a click");
  text(property_parameters, "parameters", "Parameters",
       "Parameter file, packed or as text, or its text itself; of preset and parameters what is set last counts. Taken "
       "up while playing");
  text(property_probe, "probe", "Probe",
       "Name of the qvvoiceprobe element that hears what is played, in any pipeline of the process; not set: the only "
       "one");
  g_object_class_install_property(
      type, property_frame_ms,
      g_param_spec_uint("frame-ms", "Frame", "Frame length in ms, 16 or 20", 16, 20, 20, ready));
  g_object_class_install_property(type, property_seed,
                                  g_param_spec_uint("noise-seed", "Noise seed",
                                                    "Of the comfort noise: calls that are mixed want different ones", 0,
                                                    G_MAXUINT32, 0, ready));
  g_object_class_install_property(
      type, property_stats,
      g_param_spec_boxed("stats", "Statistics",
                         "What the last frame did (the columns of `qvvoice process --trace`, with dashes), latency in "
                         "samples, and samples of the reference that were known and missing",
                         GST_TYPE_STRUCTURE, GParamFlags(G_PARAM_READABLE | G_PARAM_STATIC_STRINGS)));
}

} // namespace

static void qv_voice_class_init(QvVoiceClass *type) {
  GstElementClass *element = GST_ELEMENT_CLASS(type);
  GObjectClass *object = G_OBJECT_CLASS(type);
  object->set_property = set_property;
  object->get_property = get_property;
  object->finalize = finalize;
  element->change_state = change_state;
  install_properties(object);
  GstCaps *caps = gst_caps_from_string(caps_text);
  gst_element_class_add_pad_template(element, gst_pad_template_new("sink", GST_PAD_SINK, GST_PAD_ALWAYS, caps));
  gst_element_class_add_pad_template(element, gst_pad_template_new("src", GST_PAD_SRC, GST_PAD_ALWAYS, caps));
  gst_caps_unref(caps);
  gst_element_class_set_static_metadata(element, "QV Voice", "Filter/Effect/Audio",
                                        "Takes the echo of what a qvvoiceprobe hears, and the noise, out of a "
                                        "microphone's signal; sets its level and tone",
                                        "QV Voice developers");
}

static void qv_voice_init(QvVoice *self) {
  self->voice = new Voice(&self->element);
  const auto add_pad = [&](const char *name) {
    GstPad *pad =
        gst_pad_new_from_template(gst_element_class_get_pad_template(GST_ELEMENT_GET_CLASS(self), name), name);
    gst_pad_set_query_function(pad, query);
    gst_element_add_pad(&self->element, pad);
    return pad;
  };
  self->voice->sink = add_pad("sink");
  self->voice->source = add_pad("src");
  gst_pad_set_chain_function(self->voice->sink, chain);
  gst_pad_set_event_function(self->voice->sink, sink_event);
}

GType qv_voice_type() { return qv_voice_get_type(); }
