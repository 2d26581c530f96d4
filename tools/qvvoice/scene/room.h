/// @file room.h  Impulse responses of a box-shaped room.
#pragma once

#include "signal/signal.h"

namespace qv::tool::scene {

struct Point {
  double x, y, z; ///< m, from one corner
  bool operator==(const Point &) const = default;
};

double distance(Point a, Point b); ///< m

inline constexpr double speed_of_sound = 343; ///< m/s, air at 20 degrees Celsius

struct Room {
  Point size;                ///< m
  double reverberation_time; ///< s to -60 dB; 0: no reflections
};

/// A response whose tap k acts with a delay of k - lead samples.
struct Response {
  Signal taps;
  size_t lead;
};

/// Image method (Allen and Berkley 1979) with their high-pass at 1/100 of the rate. Every image is a band-limited
/// impulse at its exact place between the samples (Peterson 1986), 1 / distance high. The walls are alike;
/// their absorption comes from the reverberation time (Eyring 1930).
/// @param source,receiver  inside the room
Response impulse_response(const Room &room, Point source, Point receiver, int rate);

/// Band-limited impulse `offset` samples away, |offset| <= sinc_half_width: a Hann-windowed sinc.
inline constexpr int sinc_half_width = 32; ///< samples
double band_limited_impulse(double offset);

} // namespace qv::tool::scene
