#include "scene/echo_path.h"

#include <algorithm>
#include <cmath>

#include "scene/loudspeaker.h"

namespace qv::tool::scene {
namespace {

constexpr double fade_seconds = 0.005;

/// Reads a signal between its samples.
class FractionalReader {
public:
  explicit FractionalReader(SignalView signal) : signal_(signal) {}

  double operator()(double place) {
    const double whole = std::floor(place);
    const double fraction = place - whole;
    if (fraction != fraction_)
      prepare(fraction);
    double sum = 0;
    const auto first = std::ptrdiff_t(whole) - sinc_half_width;
    for (size_t k = 0; k < weights_.size(); ++k)
      if (const auto at = first + std::ptrdiff_t(k); at >= 0 && at < std::ptrdiff_t(signal_.size()))
        sum += weights_[k] * signal_[size_t(at)];
    return sum;
  }

private:
  void prepare(double fraction) {
    for (size_t k = 0; k < weights_.size(); ++k)
      weights_[k] = band_limited_impulse(double(k) - sinc_half_width - fraction);
    fraction_ = fraction;
  }

  SignalView signal_;
  double fraction_ = -1;
  std::array<double, 2 * sinc_half_width + 2> weights_{};
};

/// The echo path between two changes.
struct Stretch {
  double begin; ///< s
  double delay; ///< s, bulk
  double gain;
  Point loudspeaker;
};

std::vector<Stretch> stretches(const Scene &scene) {
  std::vector<Stretch> all = {{0, scene.echo.delay, 1, scene.loudspeaker}};
  for (const Change &change : scene.echo.changes) {
    const Stretch &last = all.back();
    all.push_back({change.time, change.delay.value_or(last.delay), change.gain ? gain_from_db(*change.gain) : last.gain,
                   change.loudspeaker.value_or(last.loudspeaker)});
  }
  return all;
}

/// Seconds by which the reading of the reference falls back per second of the capture clock.
double drift_slope(const Scene &scene) { return 1 - 1 / (1 + scene.echo.drift * 1e-6); }

/// Echo samples begin .. end - 1 as if the path had always been this one.
Signal stretch_echo(const Scene &scene, const Stretch &stretch, SignalView played, int rate, size_t begin, size_t end) {
  Response response = impulse_response(scene.room, stretch.loudspeaker, scene.microphone, rate);
  scale(response.taps, stretch.gain);
  const size_t before = std::min(begin, response.taps.size());
  Signal arriving(end - begin + before + response.lead);
  FractionalReader read(played);
  const double speed = 1 - drift_slope(scene);
  for (size_t i = 0; i < arriving.size(); ++i)
    arriving[i] = read(double(begin - before + i) * speed - stretch.delay * rate);
  return excerpt(convolve(arriving, response), std::ptrdiff_t(before), end - begin);
}

/// What the loudspeaker makes of the reference.
void play(const Echo &echo, Signal &signal, int rate, Truth &truth) {
  const Signal clean = echo.driver ? signal : Signal();
  if (echo.saturation)
    clip(signal, *echo.saturation, echo.clipping);
  if (!echo.driver)
    return;
  Driver ideal = *echo.driver;
  ideal.limit = 200; // dBFS, far from any signal
  ideal.heating = 0;
  signal = driven(signal, *echo.driver, rate);
  truth.distortion = distortion_db(driven(clean, ideal, rate), signal);
}

} // namespace

Signal convolve(SignalView x, const Response &response) {
  constexpr size_t block = 512;
  const size_t taps = response.taps.size();
  Signal y(x.size());
  for (size_t begin = 0; begin < y.size(); begin += block) {
    const Signal part = excerpt(x, std::ptrdiff_t(begin + response.lead) - std::ptrdiff_t(taps) + 1, block + taps - 1);
    if (std::ranges::all_of(part, [](double value) { return value == 0; }))
      continue;
    double sums[block] = {};
    for (size_t k = 0; k < taps; ++k)
      for (size_t j = 0; j < block; ++j)
        sums[j] += response.taps[k] * part[taps - 1 - k + j];
    std::copy_n(sums, std::min(block, y.size() - begin), y.begin() + std::ptrdiff_t(begin));
  }
  return y;
}

Signal echo_of(const Scene &scene, Signal reference, int rate, Truth &truth) {
  play(scene.echo, reference, rate, truth);
  const std::vector<Stretch> path = stretches(scene);
  const auto fade = size_t(fade_seconds * rate);
  Signal echo(reference.size());
  for (size_t s = 0; s < path.size(); ++s) {
    const auto begin = std::min(size_t(path[s].begin * rate), echo.size());
    const size_t next = s + 1 < path.size() ? size_t(path[s + 1].begin * rate) : echo.size();
    const size_t end = std::min(next + fade, echo.size());
    const Signal part = stretch_echo(scene, path[s], reference, rate, begin, end);
    for (size_t i = begin; i < end; ++i) {
      const double rise = s == 0 ? 1 : std::min(1.0, double(i - begin + 1) / double(fade));
      const double fall = i < next ? 0 : double(i - next + 1) / double(fade);
      echo[i] += part[i - begin] * (rise - fall);
    }
    const double air = distance(path[s].loudspeaker, scene.microphone) / speed_of_sound;
    truth.delay.push_back(
        {path[s].begin, path[s].delay + air + path[s].begin * drift_slope(scene), drift_slope(scene)});
    if (s > 0)
      truth.events.push_back({path[s].begin, path[s].delay != path[s - 1].delay,
                              path[s].gain != path[s - 1].gain || path[s].loudspeaker != path[s - 1].loudspeaker});
  }
  return echo;
}

} // namespace qv::tool::scene
