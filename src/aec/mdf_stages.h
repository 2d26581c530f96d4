/// @file mdf_stages.h  Stages of the adaptive echo filter, in the order of a frame.
///
/// Overlap-save with blocks of N samples in transforms of F = 2N points: the second half of an inverse
/// transform holds the N valid samples.
#pragma once

#include <cstdint>

#include "aec/frame_report.h"
#include "dsp/services.h"
#include "qvvoice/aec/mdf.h"

namespace qv::aec {

/// Energies of a frame, pre-emphasised, on the 16-bit scale.
struct Energies {
  float near;        ///< Sdd, microphone
  float far;         ///< Sxx, reference
  float foreground;  ///< Sff, error of the foreground
  float background;  ///< See, error of the background
  float paths;       ///< Dbf, difference of the two echo estimates
  float echo;        ///< Syy, echo estimate of the background
  float correlation; ///< Sey, of the background's error with its echo estimate
};

// The block filter (mdf_filter.cpp).

/// Takes the frame in, pre-emphasised; the spectra of the last M + 1 reference blocks are kept.
void take_frame(const int16_t *mic, const int16_t *ref, AecMdfState &st, const Services &dsp);

/// Echo estimate of the foreground into the second half of pfErrTime.
void filter_foreground(AecMdfState &st, const Services &dsp);

/// Shares of the step per partition: falling from the first partition on until the filter is trained, then by
/// the partitions' weights.
void design_shares(AecMdfState &st);
void renew_shares(AecMdfState &st);

/// Adapts the background by the previous frame's error, and keeps its partitions to N taps each.
void adapt_background(AecMdfState &st);
void constrain_background(AecMdfState &st, const Services &dsp);

/// Error of the background into the first half of pfErrTime, its echo estimate into the second half of
/// pfEchoTime; the energies of the frame and of what either filter leaves of it.
void filter_background(Energies &frame, AecMdfState &st, const Services &dsp);

/// Spectra and powers of the background's error and echo estimate, zero-padded in front.
void analyse_error(AecMdfState &st, const Services &dsp);

// Two-path control (mdf_paths.cpp).

/// Lets the foreground take over a better background, or throws a worse one back to the foreground.
void compare_paths(Energies &frame, AecMdfState &st, FrameReport &report);
void clear_path_averages(AecMdfState &st);

/// Output of the foreground, de-emphasised, and the energies of what it leaves.
void make_output(const int16_t *mic, int16_t *out, Energies &frame, AecMdfState &st);

/// Whether the filter has to start again: for energies that no signal has (the frame is muted), or for
/// a foreground that adds echo frame after frame.
bool diverged(const Energies &frame, int16_t *out, AecMdfState &st);

// Step size (mdf_step.cpp).

void follow_far_power(AecMdfState &st);
void estimate_leakage(const Energies &frame, AecMdfState &st);
void set_steps(const Energies &frame, AecMdfState &st);

} // namespace qv::aec
