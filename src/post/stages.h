/// @file stages.h  Gain control, equaliser and comfort noise over what a call hands down.
#pragma once

#include "dsp/services.h"
#include "qvvoice/post/agc.h"
#include "qvvoice/post/cng.h"
#include "qvvoice/post/eq.h"

namespace qv::post {

/// Takes over the level curve of a record; the gain goes on from where it is.
void retune(const AgcPara &para, AgcState &state);

inline constexpr int32_t longest_response = 2 * EQ_MAX_HALF_TAPS - 1; ///< taps of an equaliser

/// EQ_Init with room for `capacity` taps (at least what the record asks for), so that a state can be designed again.
/// @return whether memory was there
bool init(const EqPara &para, EqState &state, int32_t capacity);

/// Taps of a record's response: 2 H - 1, 0 when the frame passes.
int32_t tap_count(const EqPara &para);

/// Takes over the response of a record whose taps fit in; the history starts at zero.
void design(const EqPara &para, EqState &state);

/// @return whether memory was there
bool init(const CngPara &para, CngState &state);

/// Takes over switch and levels of a record; the followed level stays.
void retune(const CngPara &para, CngState &state);

/// Random integers 0 .. 2^31 - 1, evenly spread: rand(), which the process shares and which takes a lock, or a
/// generator of one's own (Park and Miller, "Random number generators: good ones are hard to find", 1988).
struct NoiseSource {
  uint32_t seed = 0; ///< of one's own, 1 .. 2^31 - 2, advanced; 0: rand(), never seeded here

  void draw(int32_t *out, int32_t count);
};

/// CNG_Process with the noise of `source`.
void process(const int16_t *in, int16_t *out, int32_t talk_state, const float *noise_band, const float *err_band,
             CngState &state, const Services &dsp, NoiseSource &source);

} // namespace qv::post
