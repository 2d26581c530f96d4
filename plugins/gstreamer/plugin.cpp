// The plugin: two elements, qvvoice and qvvoiceprobe.

#include "element.h"
#include "probe.h"

namespace {

gboolean start(GstPlugin *plugin) {
  return gst_element_register(plugin, "qvvoice", GST_RANK_NONE, qv_voice_type()) &&
         gst_element_register(plugin, "qvvoiceprobe", GST_RANK_NONE, qv_voice_probe_type());
}

} // namespace

#define PACKAGE "qvvoice"
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, qvvoice,
                  "Echo cancellation and noise reduction for voice calls", start, QVVOICE_VERSION, "MIT/X11",
                  "QV Voice", "QV Voice")
