#include "diagnose/evidence.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace qv::tool::diagnose {
namespace {

Signal of_length(const Samples &samples, size_t length) {
  Signal signal = to_signal(samples);
  signal.resize(length);
  return signal;
}

double active_seconds(const Samples &ref, const Setup &setup, EchoCanceller canceller) {
  const auto length = size_t(setup.frame_len);
  const double threshold = parameter(setup, "aec.double_talk", "far_active_peak");
  const auto sounds = [&](SampleView frame) {
    if (canceller == EchoCanceller::state_space)
      return power(to_signal(frame)) > from_db(state_space_sound_db);
    return std::ranges::any_of(frame, [&](int x) { return std::abs(x) >= threshold; });
  };
  size_t frames = 0;
  for (size_t begin = 0; begin + length <= ref.size(); begin += length)
    frames += sounds(SampleView(ref).subspan(begin, length));
  return double(frames * length) / setup.rate;
}

} // namespace

double parameter(const Setup &setup, std::string_view section, std::string_view key) {
  for (const config::Field &field : config::fields)
    if (field.section == section && field.key == key)
      return config::value_of(field, setup.para);
  throw std::logic_error("no such parameter");
}

Evidence::Evidence(const Setup &with, const Samples &mic_in, const Samples &ref_in, const Samples &sent,
                   const Trace &traced)
    : setup(with), canceller(echo_canceller(with)), mic_samples(mic_in), ref_samples(ref_in), trace(traced),
      mic(of_length(mic_in, std::max(mic_in.size(), ref_in.size()))), ref(of_length(ref_in, mic.size())),
      out(of_length(sent, mic.size())), ref_active_seconds(active_seconds(ref_in, with, canceller)),
      alignment(align(mic, ref, with.rate)), delay(delay_history(alignment.points)),
      echo(model_echo(mic, alignment.ref, with.rate, delay.points)),
      out_blocks(block_powers(out, with.rate, echo.blocks.size())), floor(0) {
  std::vector<double> powers;
  for (const EchoBlock &block : echo.blocks)
    if (block.mic > 0)
      powers.push_back(block.mic);
  if (!powers.empty())
    floor = quantile(powers, 0.05);
}

const QvVoiceTrace &Evidence::frame_at(double time) const {
  return trace[std::min(size_t(time / frame_seconds()), trace.size() - 1)];
}

} // namespace qv::tool::diagnose
