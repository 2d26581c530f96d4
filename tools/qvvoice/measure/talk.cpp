#include "measure/talk.h"

#include <algorithm>

namespace qv::tool::measure {
namespace {

template <class View> Signal join(View samples, const std::vector<bool> &frames, int rate) {
  const size_t length = frame_length(rate);
  Signal part;
  for (size_t i = 0; i < frames.size(); ++i)
    if (frames[i]) {
      const Signal frame = excerpt(samples, std::ptrdiff_t(i * length), length);
      part.insert(part.end(), frame.begin(), frame.end());
    }
  return part;
}

} // namespace

std::optional<std::vector<Talk>> talk_of(const Subject &subject) {
  if (!subject.truth || !subject.truth->far || !subject.truth->near)
    return std::nullopt;
  const size_t count = subject.mic.size() / frame_length(subject.rate);
  const std::vector<bool> far = flags(*subject.truth->far, count), near = flags(*subject.truth->near, count);
  const std::vector<bool> muted = flags(subject.truth->muted, count);
  const std::vector<bool> no_reference = flags(subject.truth->no_reference, count);
  std::vector<Talk> talk(count);
  for (size_t i = 0; i < count; ++i)
    talk[i] = muted[i] || (no_reference[i] && far[i]) ? Talk::broken
              : far[i]                                ? near[i] ? Talk::both : Talk::far
              : near[i]                               ? Talk::near
                                                      : Talk::silence;
  return talk;
}

std::optional<std::vector<bool>> far_heard(const Subject &subject, const std::optional<DelaySummary> &delay) {
  const size_t count = subject.mic.size() / frame_length(subject.rate);
  if (subject.truth && subject.truth->far)
    return flags(*subject.truth->far, count);
  if (!delay)
    return std::nullopt;
  const auto lag = std::ptrdiff_t(delay->delay * subject.rate), length = std::ptrdiff_t(subject.ref.size());
  std::vector<int16_t> moved(subject.ref.size());
  for (std::ptrdiff_t i = std::max<std::ptrdiff_t>(lag, 0); i < std::min(length, length + lag); ++i)
    moved[size_t(i)] = subject.ref[size_t(i - lag)];
  return activity(SampleView(moved), subject.rate);
}

Signal joined(SignalView signal, const std::vector<bool> &frames, int rate) { return join(signal, frames, rate); }
Signal joined(SampleView samples, const std::vector<bool> &frames, int rate) { return join(samples, frames, rate); }

std::vector<bool> frames_of(const std::vector<Talk> &talk, Talk which) {
  std::vector<bool> frames(talk.size());
  std::transform(talk.begin(), talk.end(), frames.begin(), [&](Talk one) { return one == which; });
  return frames;
}

} // namespace qv::tool::measure
