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

double active_seconds(const Samples &ref, const Setup &setup) {
  const auto length = size_t(setup.frame_len);
  const double threshold = parameter(setup, "aec.double_talk", "far_active_peak");
  size_t frames = 0;
  for (size_t begin = 0; begin + length <= ref.size(); begin += length)
    frames += std::any_of(&ref[begin], &ref[begin] + length, [&](int x) { return std::abs(x) >= threshold; });
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
    : setup(with), mic_samples(mic_in), ref_samples(ref_in), trace(traced),
      mic(of_length(mic_in, std::max(mic_in.size(), ref_in.size()))), ref(of_length(ref_in, mic.size())),
      out(of_length(sent, mic.size())), ref_active_seconds(active_seconds(ref_in, with)),
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

} // namespace qv::tool::diagnose
