#include "para/fir_design.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace qv::tool::para {

namespace {

using std::numbers::pi;

constexpr int grid = 1024; // intervals of 0 .. rate / 2: the response repeats after 2048 samples, far beyond 257 taps

double wanted_db(std::span<const ResponsePoint> points, double hz) {
  const auto right = std::find_if(points.begin(), points.end(), [&](const ResponsePoint &p) { return p.hz >= hz; });
  if (right == points.begin())
    return points.front().db;
  if (right == points.end())
    return points.back().db;
  const ResponsePoint &left = *(right - 1);
  return std::lerp(left.db, right->db, (hz - left.hz) / (right->hz - left.hz));
}

std::vector<double> sample_magnitude(std::span<const ResponsePoint> points, int rate) {
  std::vector<double> magnitude(grid + 1);
  for (int k = 0; k <= grid; ++k)
    magnitude[size_t(k)] = std::pow(10.0, wanted_db(points, 0.5 * rate * k / grid) / 20);
  return magnitude;
}

/// The impulse response `n` samples from its centre: the inverse transform of a real, even spectrum.
double impulse_response(const std::vector<double> &magnitude, int n) {
  double sum = (magnitude.front() + magnitude.back() * (n % 2 == 0 ? 1 : -1)) / 2;
  for (int k = 1; k < grid; ++k)
    sum += magnitude[size_t(k)] * std::cos(pi * k * n / grid);
  return sum / grid;
}

double hamming(int n, int half) { return half == 1 ? 1 : 0.54 + 0.46 * std::cos(pi * n / (half - 1)); }

} // namespace

std::vector<double> design_fir(std::span<const ResponsePoint> points, int taps, int rate) {
  const int half = (taps + 1) / 2;
  const std::vector<double> magnitude = sample_magnitude(points, rate);
  std::vector<double> response(size_t(half), 0.0);
  for (int n = 0; n < half; ++n)
    response[size_t(half - 1 - n)] = impulse_response(magnitude, n) * hamming(n, half);
  return response;
}

double response_db(std::span<const double> half, double hz, int rate) {
  double sum = 0;
  const int centre = int(half.size()) - 1;
  for (int i = 0; i <= centre; ++i)
    sum += (i == centre ? 1 : 2) * half[size_t(i)] * std::cos(2 * pi * hz / rate * (centre - i));
  return 20 * std::log10(std::max(std::abs(sum), 1e-10));
}

ResponsePoint response_peak(std::span<const double> half, int rate) {
  ResponsePoint peak{0, response_db(half, 0, rate)};
  for (int k = 1; k <= grid; ++k) {
    const double hz = 0.5 * rate * k / grid;
    if (const double db = response_db(half, hz, rate); db > peak.db)
      peak = {hz, db};
  }
  return peak;
}

} // namespace qv::tool::para
