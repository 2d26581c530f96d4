#include "scene/loudspeaker.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>

namespace qv::tool::scene {
namespace {

/// Second-order filter that gives low-pass and high-pass at once, trapezoidal integrators (Zavalishin 2012).
class Resonance {
public:
  Resonance(double frequency, double quality, int rate)
      : g_(std::tan(std::numbers::pi * frequency / rate)), damping_(1 / quality) {}

  void operator()(double input) {
    high = (input - (damping_ + g_) * band_state_ - low_state_) / (1 + g_ * (g_ + damping_));
    const double band = g_ * high + band_state_;
    low = g_ * band + low_state_;
    band_state_ = 2 * band - band_state_;
    low_state_ = 2 * low - low_state_;
  }

  double low = 0;  ///< of a driver: the excursion of the cone
  double high = 0; ///< its acceleration, and with it the sound pressure

private:
  double g_, damping_;
  double band_state_ = 0, low_state_ = 0;
};

/// Gain of a coil that warms up with the mean power and then takes less: `heating` dB at the power of the signal.
class Coil {
public:
  Coil(const Driver &driver, double usual_power, int rate)
      : keep_(std::exp(-1 / (driver.heating_time * rate))),
        resistance_(usual_power > 0 ? (from_db(driver.heating) - 1) / usual_power : 0) {}

  double gain(double input) {
    warmth_ = keep_ * warmth_ + (1 - keep_) * input * input;
    return 1 / std::sqrt(1 + resistance_ * warmth_);
  }

private:
  double keep_, resistance_;
  double warmth_ = 0;
};

/// Power while there is a signal: digital silence between talks does not count.
double power_when_on(SignalView signal) {
  const auto on = std::ranges::count_if(signal, [](double value) { return value != 0; });
  return on > 0 ? energy(signal) / double(on) : 0;
}

} // namespace

void clip(Signal &signal, double saturation, Clipping shape) {
  double peak = 0;
  for (const double value : signal)
    peak = std::max(peak, std::abs(value));
  const double limit = peak / gain_from_db(saturation);
  for (double &value : signal)
    if (shape == Clipping::hard)
      value = std::clamp(value, -limit, limit);
    else if (limit > 0)
      value /= std::sqrt(1 + value / limit * (value / limit));
}

Signal driven(SignalView signal, const Driver &driver, int rate) {
  constexpr double rest_position = 0.15; ///< of the limit, off the middle of the magnet: even harmonics
  const double limit = gain_from_db(driver.limit);
  Coil coil(driver, power_when_on(signal), rate);
  Resonance cone(driver.resonance, driver.quality, rate);
  Signal pressure(signal.size());
  for (size_t i = 0; i < signal.size(); ++i) {
    const double excursion = cone.low / limit + rest_position;
    cone(coil.gain(signal[i]) * signal[i] / (1 + excursion * excursion));
    pressure[i] = cone.high;
  }
  return pressure;
}

std::optional<double> distortion_db(SignalView linear, SignalView signal) {
  const double cross = std::inner_product(linear.begin(), linear.end(), signal.begin(), 0.0);
  const double whole = energy(linear) * energy(signal);
  return whole > 0 ? to_db(1 - cross * cross / whole) : std::nullopt;
}

} // namespace qv::tool::scene
