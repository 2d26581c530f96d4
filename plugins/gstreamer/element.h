/// @file element.h  The element qvvoice.
#pragma once

#include <gst/gst.h>

GType qv_voice_type();
