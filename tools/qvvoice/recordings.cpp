#include "recordings.h"

#include <filesystem>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "process/inputs.h"
#include "support/error.h"
#include "support/progress.h"

namespace qv::tool {

namespace fs = std::filesystem;

void Recordings::check() const {
  constexpr const char *ways =
      "name a recording by its folder, which holds mic.wav and ref.wav, by --mic and --ref, or "
      "by --stereo; many by --set; parameters by --para";
  std::vector<std::string> given;
  for (const auto &[value, option] :
       {std::pair(&folder, ""), {&mic, "--mic "}, {&stereo, "--stereo "}, {&set, "--set "}})
    if (!value->empty())
      given.push_back(option + *value);
  if (given.empty())
    throw InputError("no recording: {}", ways);
  if (given.size() > 1)
    throw InputError("found {}: one too many; {}", fmt::join(given, " and "), ways);
  if (!mic.empty() && ref.empty())
    throw InputError("--mic needs --ref, what the loudspeaker played");
  if (!folder.empty() && fs::exists(folder) && !fs::is_directory(folder))
    throw InputError("{}: is a file, not the folder of a recording; {}", folder, ways);
}

measure::Subject Recordings::read_one() const {
  const Progress bar("reading");
  if (!folder.empty())
    return measure::read_folder(folder);
  process::Options options;
  if (stereo.empty()) {
    options.mic = mic;
    options.ref = ref;
  } else {
    options.stereo = stereo;
  }
  process::Inputs inputs = open_inputs(options);
  measure::Subject subject{fs::path(stereo.empty() ? mic : stereo).filename().string(),
                           inputs.rate,
                           inputs.mic->read_all(),
                           inputs.ref->read_all(),
                           {},
                           {},
                           {}};
  subject.ref.resize(subject.mic.size());
  return subject;
}

void add_recordings(CLI::App &verb, Recordings &recordings, bool sets) {
  recordings.sets = sets;
  verb.add_option("folder", recordings.folder,
                  "Recording: mic.wav, ref.wav and, if known, near.wav, echo.wav, scene.toml")
      ->type_name("DIR");
  CLI::Option *mic = verb.add_option("--mic", recordings.mic, "Microphone of a recording")->type_name("FILE");
  verb.add_option("--ref", recordings.ref, "Its echo reference: what the loudspeaker played")
      ->type_name("FILE")
      ->needs(mic);
  verb.add_option("--stereo", recordings.stereo, "Both in one file: microphone in channel 1, reference in channel 2")
      ->type_name("FILE");
  if (sets)
    verb.add_option("--set", recordings.set,
                    "Folder of recordings, at any depth, or a manifest: CSV or JSON lines (docs/sets.md)")
        ->type_name("PATH");
}

std::string output_path(const std::string &folder, const std::string &name) {
  const std::string file = fmt::format("{}/{}.wav", folder, name);
  return fs::exists(file) ? file : fmt::format("{}/{}/out.wav", folder, name);
}

} // namespace qv::tool
