/// @file process_call.h  The one call behind the entry points of qvvoice.h: its records are exported, its noise is
/// rand().
#pragma once

#include "call/call.h"

namespace qv::api {

extern Call process_call;

} // namespace qv::api
