/// @file services.h  What the stages of one direction share: transforms and the filter bank.
///
/// Whoever runs the frames owns them and hands them down. The bank is only read; a transform writes the scratch memory
/// of its configuration, so two directions that run at the same time need two sets.
#pragma once

#include <initializer_list>

#include "dsp/banks.h"
#include "qvvoice/dsp/fft.h"

namespace qv {

/// Takes the configurations of the wanted lengths, each one of the six that are served.
/// @return whether all could be had; what could is in its slot either way
bool take_transforms(FftState &fft, std::initializer_list<int32_t> wanted);

/// Whether every slot is filled.
bool has_all_transforms(const FftState &fft);

/// Returns every configuration and leaves null slots.
void give_back_transforms(FftState &fft);

/// VOICE_Fft and VOICE_Ifft with configurations of one's own.
void forward_transform(const FftState &fft, const float *in, float *out, int32_t n);
void inverse_transform(const FftState &fft, const float *in, float *out, int32_t n);

struct Services {
  const FftState &fft;
  const FilterBank &bank;

  void forward(const float *in, float *out, int32_t n) const { forward_transform(fft, in, out, n); }
  void inverse(const float *in, float *out, int32_t n) const { inverse_transform(fft, in, out, n); }
};

/// Those behind g_stFft and g_stFilterBand, for the exported functions of the modules.
inline constexpr Services process_services{g_stFft, process_bank};

} // namespace qv
