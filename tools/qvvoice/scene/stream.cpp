#include "scene/stream.h"

#include <algorithm>
#include <cmath>

namespace qv::tool::scene {
namespace {

std::vector<Fault> of_side(const std::vector<Fault> &faults, Side side) {
  std::vector<Fault> found;
  std::ranges::copy_if(faults, std::back_inserter(found), [&](const Fault &fault) { return fault.side == side; });
  return found;
}

/// Seconds by which the sound runs ahead of the stream after a fault.
double ahead_by(const Fault &fault) {
  return fault.kind == FaultKind::lost ? fault.seconds : fault.kind == FaultKind::repeated ? -fault.seconds : 0;
}

/// Sum over the faults up to a time of the stream.
double ahead_at(const std::vector<Fault> &faults, double time) {
  double ahead = 0;
  for (const Fault &fault : faults)
    ahead += fault.time <= time ? ahead_by(fault) : 0;
  return ahead;
}

/// Time of the stream at which a time of the sound is carried, or would be had it not been lost.
double carried_at(const std::vector<Fault> &faults, double sound) {
  double ahead = 0;
  for (const Fault &fault : faults) {
    if (sound < fault.time + ahead)
      break;
    ahead += ahead_by(fault);
    if (sound < fault.time + ahead)
      return fault.time;
  }
  return sound - ahead;
}

/// The two streams against each other.
class Clocks {
public:
  Clocks(const std::vector<Fault> &faults, const Truth &sound)
      : mic_(of_side(faults, Side::microphone)), ref_(of_side(faults, Side::reference)), sound_(sound) {}

  double heard(double sound) const { return carried_at(mic_, sound); }

  /// When the microphone's stream has what the reference's stream carries from a time on: the first sound after it.
  double heard_of_reference(double time) const {
    double before = 0;
    for (const Fault &fault : ref_)
      before += fault.time < time ? ahead_by(fault) : 0;
    const double played = time + std::max(before, ahead_at(ref_, time));
    const double first = played + delay_at(sound_, played).value_or(0);
    return heard(played + delay_at(sound_, first).value_or(0));
  }

  double delay(double time) const {
    constexpr double just = 1e-9; // s, a piece holds from its beginning on
    double behind = 0;
    for (const Fault &fault : ref_)
      behind += heard_of_reference(fault.time) <= time + just ? ahead_by(fault) : 0;
    const double ahead = ahead_at(mic_, time + just);
    return delay_at(sound_, time + ahead + just).value_or(0) - ahead + behind;
  }

  /// When a fault shows in the microphone's stream: a shift from its beginning on, a silence at its end.
  double shows(const Fault &fault) const {
    const double time = fault.time + (fault.kind == FaultKind::silent ? fault.seconds : 0);
    return fault.side == Side::microphone ? time : heard_of_reference(time);
  }

private:
  std::vector<Fault> mic_, ref_;
  const Truth &sound_;
};

void add_event(std::vector<EchoEvent> &events, const EchoEvent &event) {
  constexpr double same = 1e-3; // s
  for (EchoEvent &known : events)
    if (std::abs(known.time - event.time) < same) {
      known.new_delay |= event.new_delay;
      known.new_path |= event.new_path;
      return;
    }
  events.push_back(event);
}

} // namespace

Carried carried(const std::vector<Fault> &faults, Side side, size_t count, int rate) {
  Carried carried;
  std::ptrdiff_t next = 0;
  const auto run_to = [&](size_t end) {
    while (carried.size() < end)
      carried.push_back(next++);
  };
  const std::vector<Fault> own = of_side(faults, side);
  for (const Fault &fault : own) {
    run_to(std::min(size_t(std::lround(fault.time * rate)), count));
    const auto length = std::ptrdiff_t(std::lround(fault.seconds * rate));
    const auto frame = std::ptrdiff_t(std::lround(fault.frame * rate));
    if (fault.kind == FaultKind::lost)
      next += length;
    for (std::ptrdiff_t i = 0; fault.kind == FaultKind::repeated && i < length; ++i)
      carried.push_back(next - frame + i % frame);
  }
  run_to(count);
  carried.resize(count);
  for (const Fault &fault : own)
    if (fault.kind == FaultKind::silent) {
      const auto begin = std::min(size_t(std::lround(fault.time * rate)), count);
      std::fill_n(carried.begin() + std::ptrdiff_t(begin),
                  std::min(size_t(std::lround(fault.seconds * rate)), count - begin), -1);
    }
  return carried;
}

Signal delivered(SignalView sound, const Carried &carried) {
  Signal stream(carried.size());
  for (size_t i = 0; i < stream.size(); ++i)
    if (carried[i] >= 0 && carried[i] < std::ptrdiff_t(sound.size()))
      stream[i] = sound[size_t(carried[i])];
  return stream;
}

double lost_seconds(const std::vector<Fault> &faults) {
  double lost = 0;
  for (const Fault &fault : faults)
    lost += std::max(0.0, ahead_by(fault));
  return lost;
}

void apply_faults(const std::vector<Fault> &faults, double duration, Truth &truth) {
  if (faults.empty())
    return;
  const Truth sound = truth;
  const Clocks clocks(faults, sound);
  std::vector<double> breaks;
  for (const DelayPiece &piece : sound.delay)
    breaks.push_back(clocks.heard(piece.from));
  truth.events.clear();
  for (const EchoEvent &event : sound.events)
    add_event(truth.events, {clocks.heard(event.time), event.new_delay, event.new_path});
  for (const Fault &fault : faults) {
    constexpr double before = 2e-3, least = 1e-4; // s: a look back, and a jump that counts
    const double time = clocks.shows(fault);
    breaks.push_back(time);
    add_event(truth.events, {time, std::abs(clocks.delay(time) - clocks.delay(time - before)) > least, false});
    if (fault.kind == FaultKind::silent)
      (fault.side == Side::microphone ? truth.muted : truth.no_reference)
          .push_back({fault.side == Side::microphone ? fault.time : clocks.heard_of_reference(fault.time), time});
  }
  std::erase_if(truth.events, [&](const EchoEvent &event) { return event.time >= duration; });
  std::ranges::sort(truth.events, {}, &EchoEvent::time);
  std::ranges::sort(breaks);
  breaks.erase(std::ranges::unique(breaks).begin(), breaks.end());
  truth.delay.clear();
  for (const double time : breaks)
    truth.delay.push_back({time, clocks.delay(time), sound.delay.front().slope});
}

} // namespace qv::tool::scene
