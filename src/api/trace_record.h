/// @file trace_record.h  Traces into records of the size that the application knows.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "qvvoice/qvvoice.h"

namespace qv::api {

/// Whether there is a record that holds at least its size and the frame counters.
inline bool has_size(const QvVoiceTrace *trace) { return trace && trace->size >= offsetof(QvVoiceTrace, echo_delay); }

/// As much of the whole trace as the record's size has room for.
inline void fill(QvVoiceTrace whole, QvVoiceTrace &record) {
  whole.size = record.size;
  std::memcpy(&record, &whole, std::min<size_t>(whole.size, sizeof whole));
}

} // namespace qv::api
