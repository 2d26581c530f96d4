#include "properties.h"

#include "voice.h"

namespace qv::gst {
namespace {

enum Property {
  property_preset = 1,
  property_parameters,
  property_probe,
  property_frame_ms,
  property_seed,
  property_stats
};

std::string text_of(const GValue *value) {
  const gchar *text = g_value_get_string(value);
  return text ? text : "";
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

} // namespace

void install_properties(GObjectClass *type) {
  type->set_property = set_property;
  type->get_property = get_property;
  const auto running = GParamFlags(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_PLAYING);
  const auto ready = GParamFlags(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_READY);
  const auto text = [&](guint id, const char *name, const char *nick, const char *blurb) {
    g_object_class_install_property(type, id, g_param_spec_string(name, nick, blurb, nullptr, running));
  };
  text(property_preset, "preset", "Preset",
       "Name of a built-in preset, as `qvvoice presets` lists them; without one, and without parameters: clear of the "
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

} // namespace qv::gst
