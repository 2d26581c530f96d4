#include "diagnose/echo_model.h"

#include <algorithm>
#include <cmath>

#include "diagnose/blocks.h"

namespace qv::tool::diagnose {
namespace {

constexpr size_t blocks_per_window = 31; // about a second
constexpr double clear_coherence = 0.5;  // of a bin; chance gives about 0.06 over these blocks
constexpr size_t fewest_clear_bins = 12;

using Powers = std::vector<double>; ///< [bins]

/// Averages over one window.
struct Averages {
  Powers ref, mic;
  std::vector<std::complex<double>> cross;

  explicit Averages(size_t bins) : ref(bins), mic(bins), cross(bins) {}

  void add(const Spectrum &x, const Spectrum &y) {
    for (size_t k = 0; k < ref.size(); ++k) {
      ref[k] += double(std::norm(x[k]));
      mic[k] += double(std::norm(y[k]));
      cross[k] += std::complex<double>(y[k]) * std::conj(std::complex<double>(x[k]));
    }
  }
  double coherent_power(size_t k) const { return ref[k] > 0 ? std::norm(cross[k]) / ref[k] : 0; }
  bool clear(size_t k) const { return mic[k] > 0 && coherent_power(k) / mic[k] > clear_coherence; }
};

/// Squared transfer of the echo path per bin, over the windows that show it; 0 where none does.
Powers typical_transfer(const std::vector<Averages> &windows) {
  Powers transfer(windows.front().ref.size());
  for (size_t k = 0; k < transfer.size(); ++k) {
    double coherent = 0, ref = 0;
    for (const Averages &window : windows)
      if (window.clear(k)) {
        coherent += window.coherent_power(k);
        ref += window.ref[k];
      }
    transfer[k] = ref > 0 ? coherent / ref : 0;
  }
  return transfer;
}

EchoWindow describe(const Averages &window, const Powers &typical_transfer, double time) {
  EchoWindow result{time, 0, std::nullopt, Powers(typical_transfer.size())};
  double coherent = 0, mic = 0, echo = 0, typical = 0;
  size_t clear_bins = 0;
  for (size_t k = 0; k < typical_transfer.size(); ++k) {
    mic += window.mic[k];
    coherent += std::max(window.coherent_power(k) - window.mic[k] / double(blocks_per_window), 0.0);
    if (!window.clear(k))
      continue;
    ++clear_bins;
    echo += window.coherent_power(k);
    typical += typical_transfer[k] * window.ref[k];
    result.transfer[k] = window.coherent_power(k) / window.ref[k];
  }
  if (mic > 0)
    result.coherent = std::min(coherent / mic, 1.0);
  if (clear_bins >= fewest_clear_bins)
    result.gain_db = 10 * std::log10(echo / typical);
  return result;
}

double predict(const Powers &ref, const Powers &transfer, double gain_db) {
  double power = 0;
  for (size_t k = 0; k < ref.size(); ++k)
    power += 2 * transfer[k] * ref[k];
  return power * from_db(gain_db);
}

} // namespace

EchoModel model_echo(SignalView mic, SignalView ref, int rate, const std::vector<DelayPoint> &points) {
  const BlockAnalyser analyser(rate);
  const size_t length = block_length(rate), hop = length / 2, bins = length / 2 + 1;
  const size_t count = mic.size() < length ? 0 : (mic.size() - length) / hop + 1;
  std::vector<Averages> windows(count / blocks_per_window + 1, Averages(bins));
  std::vector<Powers> ref_powers;
  EchoModel model{};
  for (size_t b = 0; b < count; ++b) {
    const double time = (double(b * hop) + double(length) / 2) / rate;
    const auto behind = std::ptrdiff_t(std::lround(nearest_delay(points, time) * rate));
    const Spectrum x = analyser.spectrum(ref, std::ptrdiff_t(b * hop) - behind);
    const Spectrum y = analyser.spectrum(mic, std::ptrdiff_t(b * hop));
    windows[b / blocks_per_window].add(x, y);
    model.blocks.push_back({time, total(x), total(y), 0});
    ref_powers.emplace_back(bins);
    std::ranges::transform(x, ref_powers.back().begin(), [](auto bin) { return double(std::norm(bin)); });
  }
  const Powers transfer = typical_transfer(windows);
  for (size_t w = 0; w < count / blocks_per_window; ++w)
    model.windows.push_back(describe(windows[w], transfer, (double(w) + 0.5) * double(blocks_per_window) * block_hop));
  model.found = std::ranges::any_of(model.windows, [](const EchoWindow &window) { return window.gain_db.has_value(); });
  for (size_t b = 0; b < count; ++b) {
    const size_t w = std::min(b / blocks_per_window, model.windows.size() - 1);
    const auto gain = model.windows.empty() ? std::nullopt : model.windows[w].gain_db;
    model.blocks[b].predicted = predict(ref_powers[b], transfer, gain.value_or(0));
  }
  return model;
}

std::vector<double> block_powers(SignalView signal, int rate, size_t blocks) {
  const BlockAnalyser analyser(rate);
  const size_t hop = block_length(rate) / 2;
  std::vector<double> powers(blocks);
  for (size_t b = 0; b < blocks; ++b)
    powers[b] = total(analyser.spectrum(signal, std::ptrdiff_t(b * hop)));
  return powers;
}

} // namespace qv::tool::diagnose
