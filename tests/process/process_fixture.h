/// @file process_fixture.h  Recordings and parameters in a folder, and `qvvoice process` run there.
#pragma once

#include "audio/audio.h"
#include "files.h"
#include "images.h"
#include "para/para_file.h"
#include "para/words.h"

namespace qv::tool {

using test::Samples;

class Process : public InFolder {
protected:
  Process() {
    for (const char *file : {"mic.wav", "ref.wav"})
      put_wav(file, 8000, test::noise_samples(1, 8000, 9000));
    for (const int32_t rate : {8000, 16000})
      put(std::to_string(rate) + ".para", para::packed_bytes(test::busy_image(rate)));
  }
  CommandResult process(const std::string &words) const { return run_command(folder, "process " + words); }
  static std::string options(const test::Layout &layout) {
    const std::string rate = std::to_string(layout.rate), ms = std::to_string(1000 * layout.frame_len / layout.rate);
    return " --para " + rate + ".para --frame-ms " + ms;
  }
  Samples samples(const char *name) const { return read_audio({.path = at(name)}).audio.samples; }
};

} // namespace qv::tool
