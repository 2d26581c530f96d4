/// @file talk.h  Who is heard in the microphone, frame by frame of 10 ms.
#pragma once

#include <optional>
#include <vector>

#include "measure/subject.h"
#include "signal/activity.h"
#include "signal/correlation.h"

namespace qv::tool::measure {

/// `broken`: the microphone's stream is silent, or has an echo that the reference has not; nothing is measured there.
enum class Talk { silence, far, near, both, broken };

inline constexpr size_t talk_classes = 5;

/// One per whole frame of the recording; nothing when the truth does not say who talks when.
std::optional<std::vector<Talk>> talk_of(const Subject &subject);

/// Frames in which the far end is heard: from the truth, else the activity of the reference, moved by the delay of the
/// microphone. Nothing without either.
std::optional<std::vector<bool>> far_heard(const Subject &subject, const std::optional<DelaySummary> &delay);

/// Samples of the frames with this flag, joined.
Signal joined(SignalView signal, const std::vector<bool> &frames, int rate);
Signal joined(SampleView samples, const std::vector<bool> &frames, int rate);

/// The frames of one class.
std::vector<bool> frames_of(const std::vector<Talk> &talk, Talk which);

} // namespace qv::tool::measure
