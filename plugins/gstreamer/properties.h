/// @file properties.h  The properties of a qvvoice element.
#pragma once

#include <glib-object.h>

namespace qv::gst {

struct Voice;

/// The one of an element.
Voice &voice_of(gpointer element);

void install_properties(GObjectClass *type);

} // namespace qv::gst
