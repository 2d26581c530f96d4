/// @file reducer.h  A noise reducer for a test, with the services that it rests on.
#pragma once

#include "qvvoice/anr/anr.h"
#include "qvvoice/dsp/fft.h"
#include "qvvoice/dsp/filter_bank.h"
#include "support.h"

namespace qv::test {

struct Reducer {
  AnrState state{};
  AnrNoiseEst &est = state.stNoiseEst;
  AnrEnhance &enh = state.stEnhance;
  int32_t bands;

  explicit Reducer(const Layout &layout, int32_t enable = 1) : bands(layout.bands) {
    const AnrPara para{enable, layout.rate, layout.frame_len, bands, 0.75f, 2, 0.05f, 0.516f, 0.1f};
    ANR_Init(&para, &state);
  }
  ~Reducer() { ANR_Destroy(&state); }
  Reducer(const Reducer &) = delete;

  void seed(const std::vector<float> &x) { ANR_First_Frm(x.data(), bands, &state); }
  void track(const std::vector<float> &x) { ANR_Noise_Est(x.data(), bands, &est); }
  void enhance(const std::vector<float> &x) { ANR_Enhance(x.data(), bands, &enh); }

  std::span<float> band(float *array) const { return {array, size_t(bands)}; }
  bool all_are(float value, float *array) const { return std::ranges::count(band(array), value) == bands; }

  /// The signal, frame by frame, in place.
  Samples reduced(Samples signal) {
    for (size_t at = 0; at < signal.size(); at += size_t(state.swFrameLen))
      ANR_Process(&signal[at], &signal[at], &state);
    return signal;
  }
};

} // namespace qv::test
