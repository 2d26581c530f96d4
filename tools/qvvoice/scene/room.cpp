#include "scene/room.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace qv::tool::scene {
namespace {

using std::numbers::pi;

double reflection_coefficient(const Room &room) {
  if (room.reverberation_time == 0)
    return 0;
  const auto [x, y, z] = room.size;
  const double surface = 2 * (x * y + y * z + z * x);
  // Eyring: T = 24 ln(10) V / (-c S ln(1 - a)), and the reflected amplitude is sqrt(1 - a).
  return std::exp(-12 * std::log(10.0) * x * y * z / (speed_of_sound * surface * room.reverberation_time));
}

/// Images along one axis: how far from the receiver, and how often reflected.
struct Image {
  double offset;
  int reflections;
};

std::vector<Image> images(double size, double source, double receiver, double reach) {
  std::vector<Image> found;
  const int count = int(reach / (2 * size)) + 1; // source and receiver are at most `size` apart
  for (int n = -count; n <= count; ++n) {
    found.push_back({2 * n * size + source - receiver, std::abs(2 * n)});
    found.push_back({2 * n * size - source - receiver, std::abs(2 * n - 1)});
  }
  return found;
}

/// Adds an impulse of this height `delay` samples after the first `lead` taps.
void add_impulse(Response &response, double delay, double height) {
  const double place = delay + double(response.lead);
  const auto first = std::ptrdiff_t(std::ceil(place - sinc_half_width));
  const auto last =
      std::min(std::ptrdiff_t(std::floor(place + sinc_half_width)), std::ptrdiff_t(response.taps.size()) - 1);
  for (auto k = std::max(first, std::ptrdiff_t(0)); k <= last; ++k)
    response.taps[size_t(k)] += height * band_limited_impulse(double(k) - place);
}

/// Allen and Berkley's filter against the images' all-positive pressure at low frequencies.
void high_pass(Signal &taps) {
  const double w = 2 * pi * 0.01, r = std::exp(-w);
  const double b1 = 2 * r * std::cos(w), b2 = -r * r, a1 = -(1 + r), a2 = r;
  double before = 0, before_that = 0;
  for (double &tap : taps) {
    const double now = b1 * before + b2 * before_that + tap;
    tap = now + a1 * before + a2 * before_that;
    before_that = before;
    before = now;
  }
}

} // namespace

double distance(Point a, Point b) { return std::hypot(a.x - b.x, a.y - b.y, a.z - b.z); }

double band_limited_impulse(double offset) {
  if (offset == 0)
    return 1;
  const double x = pi * offset;
  return std::abs(offset) >= sinc_half_width ? 0 : std::sin(x) / x * (0.5 + 0.5 * std::cos(x / sinc_half_width));
}

Response impulse_response(const Room &room, Point source, Point receiver, int rate) {
  const double beta = reflection_coefficient(room);
  const double reach = distance(source, receiver) + room.reverberation_time * speed_of_sound;
  const double samples_per_metre = rate / speed_of_sound;
  Response response{Signal(size_t(reach * samples_per_metre) + 2 * sinc_half_width + 1), sinc_half_width};
  const auto along_x = images(room.size.x, source.x, receiver.x, reach);
  const auto along_y = images(room.size.y, source.y, receiver.y, reach);
  const auto along_z = images(room.size.z, source.z, receiver.z, reach);
  for (const Image &x : along_x)
    for (const Image &y : along_y)
      for (const Image &z : along_z) {
        const double metres = std::hypot(x.offset, y.offset, z.offset);
        const int reflections = x.reflections + y.reflections + z.reflections;
        if (metres <= reach && (reflections == 0 || beta > 0))
          add_impulse(response, metres * samples_per_metre, std::pow(beta, reflections) / metres);
      }
  high_pass(response.taps);
  return response;
}

} // namespace qv::tool::scene
