#include "recordings.h"

#include <filesystem>

#include <fmt/format.h>

#include "config/fields.h"

namespace qv::tool {

measure::Subject Recordings::read_one() const {
  return mic.empty() ? measure::read_folder(folder) : measure::read_pair(mic, ref);
}

CLI::Option_group *add_recordings(CLI::App &verb, Recordings &recordings) {
  CLI::Option_group *what = verb.add_option_group("What");
  what->add_option("folder", recordings.folder,
                   "Recording: mic.wav, ref.wav and, if known, near.wav, echo.wav, scene.toml")
      ->type_name("DIR");
  CLI::Option *mic = what->add_option("--mic", recordings.mic, "Microphone of a recording")->type_name("FILE");
  what->add_option("--set", recordings.set, "Folder of recordings, at any depth")->type_name("DIR");
  what->require_option(1);
  CLI::Option *ref = verb.add_option("--ref", recordings.ref, "Its echo reference")->type_name("FILE")->needs(mic);
  mic->needs(ref);
  return what;
}

Setup setup_for(const std::vector<std::string> &para, int rate, int frame_ms) {
  for (const std::string &name : para)
    if (read_image(name)[config::rate_word] == rate)
      return make_setup(name, rate, frame_ms);
  return make_setup(para.empty() ? std::nullopt : std::optional(para[0]), rate, frame_ms);
}

std::string output_path(const std::string &folder, const std::string &name) {
  const std::string file = fmt::format("{}/{}.wav", folder, name);
  return std::filesystem::exists(file) ? file : fmt::format("{}/{}/out.wav", folder, name);
}

} // namespace qv::tool
