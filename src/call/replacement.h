/// @file replacement.h  How one direction of a running call goes over to new parameters without a click.
///
/// Tuning is taken over at a frame's beginning; the stages' own averages and ramps make it smooth. A new equaliser, or
/// a gain control switched on or off, runs beside the old one until its history is filled, then one frame fades across.
/// Where a spectral stage comes or goes, and the path's delay with it, the output fades out for one frame, is silent
/// while the overlapping stages fill, and fades in.
#pragma once

#include "call/published.h"
#include "config/parameters.h"

namespace qv {

class Replacement {
public:
  /// Room for an equaliser of any length. @return whether memory was there
  bool init(const EqPara &eq);
  void destroy();

  /// Takes the parameters that were handed over last, unless a change is still under way or a writer is at work.
  /// @return whether there are new ones, in next()
  bool fetch(const Published<Parameters> &wanted);
  const Parameters &next() const { return next_; }

  /// Begins the way through silence.
  void pause() { phase_ = Phase::fade_out; }

  /// Goes over to another gain control and equaliser, at once where nothing can be heard of it.
  void cross_over(const AgcPara &agc_para, const EqPara &eq_para, AgcState &agc);

  /// The same in silence.
  void change(const AgcPara &agc_para, const EqPara &eq_para, AgcState &agc, EqState &eq);

  /// Gain control and equaliser of a frame, in place; across from the old to the new where that is under way.
  /// @param io  [N]
  void run_post(int16_t *io, AgcState &agc, EqState &eq);

  /// The fades and the silence of a pause, in place. @return whether the frame has faded out: now the stages change
  bool shape(int16_t *io, int32_t n);

private:
  enum class Phase { steady, crossing, fade_out, silent, fade_in };

  uint32_t seen_ = 0;
  Phase phase_ = Phase::steady;
  int32_t frames_left_ = 0; ///< of crossing or silence
  Parameters next_{};
  EqPara eq_para_{}; ///< of the equaliser that runs
  AgcState spare_agc_{};
  EqState spare_eq_{};
};

} // namespace qv
