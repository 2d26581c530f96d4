#include "diagnose/talk.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace qv::tool::diagnose {
namespace {

constexpr double echo_alone = 0.8; // share of a second's microphone that follows the reference
constexpr double active_level_db = -50;
constexpr double decay_seconds = 0.8; // in which an echo has decayed by 60 dB; what stays above is something else

double heard_power(const Evidence &evidence) { return from_db(15) * evidence.floor; }

} // namespace

double active_for(const Evidence &evidence, double seconds) {
  double active = 0;
  for (const EchoBlock &block : evidence.echo.blocks)
    if (block.ref > from_db(active_level_db) && (active += block_hop) >= seconds)
      return block.time;
  return evidence.seconds();
}

bool in_echo_alone(const Evidence &evidence, const EchoBlock &block) {
  constexpr double around = 1.5; // s: the block's second and its neighbours
  const bool alone = std::ranges::all_of(evidence.echo.windows, [&](const EchoWindow &window) {
    return std::abs(window.time - block.time) > around || window.coherent >= echo_alone;
  });
  return alone && block.mic >= heard_power(evidence) && block.predicted > 0.5 * block.mic;
}

void Judged::add(double mic_power, double out_power) {
  ++count;
  lost += out_power < from_db(-20) * mic_power;
  mic += mic_power;
  out += out_power;
}

double Judged::reduction_db() const { return 10 * std::log10(mic / std::max(out, 1e-12 * mic)); }

Talk judge_talk(const Evidence &evidence) {
  const double decay = std::pow(10, -6 * block_hop / decay_seconds);
  const double settled = active_for(evidence, settle_seconds), heard = heard_power(evidence);
  Talk talk;
  std::map<int, double> left; // of the echo, by second
  double tail = 0;
  for (size_t b = 0; b < evidence.echo.blocks.size(); ++b) {
    const EchoBlock &block = evidence.echo.blocks[b];
    const double out = evidence.out_blocks[b];
    tail = std::max(block.predicted, decay * tail);
    if (block.mic < heard)
      continue;
    if (in_echo_alone(evidence, block)) {
      if (block.time < settled)
        continue;
      talk.echo.add(block.mic, out);
      left[int(block.time)] += out;
    } else if (block.mic > from_db(15) * tail) {
      talk.near.add(block.mic, out);
    } else if (block.predicted > heard && block.mic > from_db(3) * tail) {
      talk.both.add(block.mic, out);
    }
  }
  if (!left.empty())
    talk.worst_echo_second = std::ranges::max_element(left, {}, [](const auto &entry) { return entry.second; })->first;
  return talk;
}

bool echo_is_left(const Evidence &evidence, const Judged &echo) {
  const double noise_limit = from_db(gone_above_noise_db) * evidence.floor * double(echo.count);
  return evidence.echo.found && echo.seconds() >= least_judged_seconds && echo.reduction_db() < gone_db &&
         echo.out > noise_limit;
}

State state_of_change(const Evidence &evidence) {
  return evidence.state_space() && !echo_is_left(evidence, judge_talk(evidence).echo) ? State::note : State::wrong;
}

} // namespace qv::tool::diagnose
