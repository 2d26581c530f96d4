// qvvoiceprobe: passes on what is played, and keeps it for the qvvoice elements of the process.

#include "probe.h"

#include "reference.h"
#include "timeline.h"

using namespace qv::gst;

struct QvVoiceProbe {
  GstElement element;
  GstPad *sink, *source;
  struct State *state;
};

struct State {
  std::shared_ptr<Reference> reference; ///< from READY to PAUSED and back
  Timeline timeline;
  int rate = 0;
  GstClockTime latency = 0;
  GstBufferList *first = nullptr; ///< held back until a reader has what it needs for a frame, see pass_on()
  int64_t first_samples = 0;      ///< of it; -1 once it has gone
};

struct QvVoiceProbeClass {
  GstElementClass parent;
};

G_DEFINE_TYPE(QvVoiceProbe, qv_voice_probe, GST_TYPE_ELEMENT)

namespace {

/// A sink that waits for the pipeline to play holds up the first buffer. A reader in the same pipeline that waits for
/// more than that buffer would keep it from playing ever: the stream begins with 60 ms at once, in a list of buffers.
constexpr int begin_ms = 60;

QvVoiceProbe *probe_of(GstObject *object) { return reinterpret_cast<QvVoiceProbe *>(object); }

void let_go(State &state) {
  gst_clear_buffer_list(&state.first);
  state.first_samples = -1;
}

GstFlowReturn push_first(QvVoiceProbe &probe) {
  State &state = *probe.state;
  if (!state.first)
    return GST_FLOW_OK;
  state.first_samples = -1;
  return gst_pad_push_list(probe.source, g_steal_pointer(&state.first));
}

GstFlowReturn pass_on(QvVoiceProbe &probe, GstBuffer *buffer, int64_t samples) {
  State &state = *probe.state;
  if (state.first_samples < 0)
    return gst_pad_push(probe.source, buffer);
  if (!state.first)
    state.first = gst_buffer_list_new();
  gst_buffer_list_add(state.first, buffer);
  state.first_samples += samples;
  return state.first_samples * 1000 < int64_t(begin_ms) * state.rate ? GST_FLOW_OK : push_first(probe);
}

GstFlowReturn chain(GstPad *, GstObject *parent, GstBuffer *buffer) {
  QvVoiceProbe &probe = *probe_of(parent);
  State &state = *probe.state;
  if (state.rate == 0) {
    gst_buffer_unref(buffer);
    return GST_FLOW_NOT_NEGOTIATED;
  }
  buffer = state.timeline.clip(buffer);
  if (!buffer)
    return GST_FLOW_OK;
  const auto samples = int64_t(gst_buffer_get_size(buffer) / sizeof(int16_t));
  const int64_t at = state.timeline.place(GST_BUFFER_PTS(buffer));
  GstMapInfo map;
  if (gst_buffer_map(buffer, &map, GST_MAP_READ)) {
    state.reference->write(at, {reinterpret_cast<const int16_t *>(map.data), size_t(samples)});
    gst_buffer_unmap(buffer, &map);
  }
  state.timeline.pass(at + samples);
  return pass_on(probe, buffer, samples);
}

void take_gap(State &state, GstEvent *event) {
  GstClockTime start = 0, duration = 0;
  gst_event_parse_gap(event, &start, &duration);
  if (!GST_CLOCK_TIME_IS_VALID(duration) || state.rate == 0)
    return;
  const int64_t end = state.timeline.place(start) + to_samples(GstClockTimeDiff(duration), state.rate);
  state.reference->silence_until(end);
  state.timeline.pass(end);
}

gboolean sink_event(GstPad *pad, GstObject *parent, GstEvent *event) {
  QvVoiceProbe &probe = *probe_of(parent);
  State &state = *probe.state;
  switch (GST_EVENT_TYPE(event)) {
  case GST_EVENT_CAPS: {
    GstCaps *caps = nullptr;
    gst_event_parse_caps(event, &caps);
    gst_structure_get_int(gst_caps_get_structure(caps, 0), "rate", &state.rate);
    state.timeline.set_rate(state.rate);
    state.reference->begin(state.rate);
    break;
  }
  case GST_EVENT_SEGMENT: {
    const GstSegment *segment = nullptr;
    gst_event_parse_segment(event, &segment);
    push_first(probe);
    state.timeline.set_segment(*segment);
    state.timeline.forget();
    break;
  }
  case GST_EVENT_GAP:
    push_first(probe);
    take_gap(state, event);
    break;
  case GST_EVENT_EOS:
    state.reference->end();
    push_first(probe);
    break;
  case GST_EVENT_FLUSH_START:
    state.reference->flush(true);
    break;
  case GST_EVENT_FLUSH_STOP:
    let_go(state);
    state.first_samples = 0;
    state.timeline.forget();
    state.reference->flush(false);
    break;
  default:
    break;
  }
  return gst_pad_event_default(pad, parent, event);
}

gboolean source_event(GstPad *pad, GstObject *parent, GstEvent *event) {
  if (GST_EVENT_TYPE(event) == GST_EVENT_LATENCY) {
    QvVoiceProbe &probe = *probe_of(parent);
    gst_event_parse_latency(event, &probe.state->latency);
    if (const auto &reference = probe.state->reference)
      reference->set_times(gst_element_get_base_time(&probe.element), probe.state->latency);
  }
  return gst_pad_event_default(pad, parent, event);
}

GstStateChangeReturn change_state(GstElement *element, GstStateChange change) {
  State &state = *probe_of(GST_OBJECT(element))->state;
  if (change == GST_STATE_CHANGE_READY_TO_PAUSED) {
    gchar *name = gst_object_get_name(GST_OBJECT(element));
    state = {};
    state.reference = std::make_shared<Reference>(name, top_of(element));
    g_free(name);
    add_probe(state.reference);
  } else if (change == GST_STATE_CHANGE_PAUSED_TO_PLAYING) {
    state.reference->set_times(gst_element_get_base_time(element), state.latency);
  } else if (change == GST_STATE_CHANGE_PAUSED_TO_READY) {
    state.reference->flush(true); // nobody waits any more, and nobody for this one
    remove_probe(state.reference);
  }
  const auto result = GST_ELEMENT_CLASS(qv_voice_probe_parent_class)->change_state(element, change);
  if (change == GST_STATE_CHANGE_PAUSED_TO_READY)
    let_go(state);
  return result;
}

void finalize(GObject *object) {
  delete reinterpret_cast<QvVoiceProbe *>(object)->state;
  G_OBJECT_CLASS(qv_voice_probe_parent_class)->finalize(object);
}

} // namespace

static void qv_voice_probe_class_init(QvVoiceProbeClass *type) {
  GstElementClass *element = GST_ELEMENT_CLASS(type);
  G_OBJECT_CLASS(type)->finalize = finalize;
  element->change_state = change_state;
  GstCaps *caps = gst_caps_from_string(caps_text);
  gst_element_class_add_pad_template(element, gst_pad_template_new("sink", GST_PAD_SINK, GST_PAD_ALWAYS, caps));
  gst_element_class_add_pad_template(element, gst_pad_template_new("src", GST_PAD_SRC, GST_PAD_ALWAYS, caps));
  gst_caps_unref(caps);
  gst_element_class_set_static_metadata(
      element, "QV Voice reference probe", "Filter/Audio",
      "Passes on what is played, as the echo reference of the qvvoice element: put it last before the sink, behind "
      "volume and mixing, and give its name to the other's property probe",
      "QV Voice developers");
}

static void qv_voice_probe_init(QvVoiceProbe *probe) {
  probe->state = new State;
  const auto add_pad = [&](const char *name) {
    GstPadTemplate *pad_template = gst_element_class_get_pad_template(GST_ELEMENT_GET_CLASS(probe), name);
    GstPad *pad = gst_pad_new_from_template(pad_template, name);
    GST_PAD_SET_PROXY_CAPS(pad);
    GST_PAD_SET_PROXY_ALLOCATION(pad);
    gst_element_add_pad(&probe->element, pad);
    return pad;
  };
  probe->sink = add_pad("sink");
  probe->source = add_pad("src");
  gst_pad_set_chain_function(probe->sink, chain);
  gst_pad_set_event_function(probe->sink, sink_event);
  gst_pad_set_event_function(probe->source, source_event);
}

GType qv_voice_probe_type() { return qv_voice_probe_get_type(); }
