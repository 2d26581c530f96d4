/// @file render.h  From the description of a call to its signals.
#pragma once

#include <string>

#include "scene/scene.h"
#include "scene/truth.h"
#include "support/progress_fn.h"

namespace qv::tool::scene {

/// What is heard, each part by itself; all of the same length.
struct Call {
  int rate;                   ///< Hz
  std::vector<int16_t> ref;   ///< what the loudspeaker is given
  std::vector<int16_t> near;  ///< the near end at the microphone, with its room
  std::vector<int16_t> echo;  ///< the far end at the microphone
  std::vector<int16_t> noise; ///< at the microphone
  std::vector<int16_t> mic;   ///< their sum, saturated
  Truth truth;
};

/// The same samples from the same scene and speech on every machine.
/// @param speech  at the rate of the call
/// @throws InputError when a recording is missing or silent
Call render(const Scene &scene, SpeechReader &speech, int rate);

/// Writes ref.wav, near.wav, echo.wav, noise.wav, mic.wav and scene.toml (the scene and its truth).
/// @param folder  made when missing
void write_call(const Call &call, const Scene &scene, const std::string &folder);

} // namespace qv::tool::scene
