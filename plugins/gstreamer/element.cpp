// qvvoice: the capture path of a call, between the microphone and what encodes or sends.

#include "element.h"

#include <fmt/format.h>

#include "properties.h"
#include "voice.h"

using namespace qv::gst;

struct QvVoice {
  GstElement element;
  Voice *voice;
};

struct QvVoiceClass {
  GstElementClass parent;
};

G_DEFINE_TYPE(QvVoice, qv_voice, GST_TYPE_ELEMENT)

Voice &qv::gst::voice_of(gpointer element) { return *static_cast<QvVoice *>(element)->voice; }

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

void finalize(GObject *object) {
  delete &voice_of(object);
  G_OBJECT_CLASS(qv_voice_parent_class)->finalize(object);
}

} // namespace

static void qv_voice_class_init(QvVoiceClass *type) {
  GstElementClass *element = GST_ELEMENT_CLASS(type);
  GObjectClass *object = G_OBJECT_CLASS(type);
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
