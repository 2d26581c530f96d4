/// @file filter.h  The echo path as a state that is estimated: a partitioned-block frequency-domain Kalman filter.
///
/// Per bin and partition the path W and its variance P, both diagonal (Enzner and Vary, "Frequency-domain adaptive
/// Kalman filter for acoustic echo control in hands-free telephones", Signal Processing 86, 2006; partitioned: Kuech,
/// Mabande and Enzner, "State-space architecture of the partitioned-block-based acoustic echo controller", ICASSP
/// 2014). The variance says how much echo the filter itself expects to leave.
#pragma once

#include "state_space/reference.h"

namespace qv::state_space {

struct Filter {
  int32_t n = 0;
  int32_t partitions = 0; ///< of the reference itself
  int32_t all = 0;        ///< with those of what exceeds
  float retention = 0;    ///< squared factor A of the path's first-order model, per frame: 1 is a path that never moves
  float path_keep = 0;    ///< of the path itself, per frame
  float noise_scale = 0;  ///< below 1: trusts the error more than the model says
  float noise_keep = 0;   ///< of the noise's average, per frame
  float energy_keep = 0;
  Spectra path;                 ///< [all]
  float *variance = nullptr;    ///< [all * stride], of the path's estimate
  Spectra echo;                 ///< [1], estimated echo of the current block
  float *uncertainty = nullptr; ///< [stride] power of the echo's error that the variance makes expect, of 2N samples
  float *noise = nullptr;       ///< [stride] observation noise: near end, background, what the model does not hold
  float energy = 0;             ///< of the error, averaged
  int32_t turn = 0;             ///< partition whose response is held to N taps next
  float height[most_partitions] = {}; ///< highest tap of each partition of its own, when it was last held
  int32_t tap[most_partitions] = {};  ///< and its place
};

/// How a filter behaves: what tells a steady from a quick one.
struct FilterKind {
  int32_t over_partitions;
  double retention; ///< A, per 20 ms
  float noise_scale;
};

bool init(const Shape &shape, const FilterKind &kind, Filter &f);
void destroy(Filter &f);

/// The path is unknown again.
void reset(Filter &f);

/// Echo and its uncertainty from the last spectra of the reference.
void predict(const Reference &reference, Filter &f);

/// The error has come: path and variance move. @param error  spectrum of N zeros and the N samples of the error
/// @param far_heard  whether the reference says something from which the path can be learnt
void adapt(const Reference &reference, const SplitSpectrum &error, bool far_heard, Filter &f);

/// Holds two partitions of each filter to N taps; all get their turn. None at all loses 4 dB, all in every frame gain
/// nothing that can be measured.
void constrain(Filter &a, Filter &b, BatchTransform &transform);

/// Sample behind the bulk delay at which the path has its highest tap.
int32_t highest_tap(const Filter &f);

/// Multiplies every partition by a phase per bin. @param turn  [stride]
void rotate(const SplitSpectrum &turn, Filter &f);

/// The bulk delay has grown by `frames`: what was partition p + frames is partition p.
void shift(int32_t frames, Filter &f);

/// The path has changed: both expect it anywhere near where the first has it, and anywhere else with half the weight.
void open(Filter &f, Filter &other);

/// Takes over the other's path (its own partitions); how far it was away is added to the variance.
void follow(const Filter &other, Filter &f);

/// Takes over the other's path as far as its own partitions go, and nothing else.
void copy_path(const Filter &other, Filter &f);

} // namespace qv::state_space
