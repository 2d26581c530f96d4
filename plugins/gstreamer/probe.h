/// @file probe.h  The element qvvoiceprobe.
#pragma once

#include <gst/gst.h>

GType qv_voice_probe_type();
