#include <algorithm>
#include <set>

#include "audio/reader.h"
#include "dsp/layout.h"
#include "scene/scene.h"
#include "sets/set.h"
#include "support/error.h"

namespace qv::tool::sets {
namespace {

constexpr double least_seconds = 1; ///< of a recording; measures begin to know something

struct Header {
  int rate;
  double seconds;
};

Header header_of(const std::string &path) {
  Source source;
  source.path = path;
  AudioReader reader(source);
  reader.take(source);
  const size_t stated = reader.stated() > 0 ? reader.stated() : read_audio(source).audio.samples.size();
  return {reader.rate(), double(stated) / reader.rate()};
}

class Checker {
public:
  explicit Checker(Faults &faults) : faults_(faults) {}

  void check(Entry &entry) {
    if (const auto [first, fresh] = names_.try_emplace(entry.name, entry.place); !fresh)
      fault(entry,
            fmt::format("name: {} is that of {} too; every recording needs one of its own", entry.name, first->second));
    if (auto *drawn = std::get_if<Drawn>(&entry.source))
      check_drawn(entry, *drawn);
    else
      check_files(entry, std::get<measure::RecordingFiles>(entry.source));
  }

private:
  void fault(const Entry &entry, const std::string &message) {
    faults_.push_back(fmt::format("{}: {}", entry.place, message));
  }

  template <class Doing> void noting(const Entry &entry, const Doing &doing) {
    try {
      doing();
    } catch (const InputError &error) {
      fault(entry, error.what());
    }
  }

  void check_files(Entry &entry, const measure::RecordingFiles &files) {
    noting(entry, [&] {
      const Header mic = header_of(files.mic);
      if (!rate_served(mic.rate))
        throw InputError("{}: has {} Hz; 8000 or 16000 Hz is needed", files.mic, mic.rate);
      if (mic.seconds < least_seconds)
        throw InputError("{}: has {:.2f} s; {} s at least are needed", files.mic, mic.seconds, least_seconds);
      entry.rate = mic.rate;
      entry.seconds = mic.seconds;
    });
    noting(entry, [&] {
      const Header ref = header_of(files.ref);
      require_rate(entry, files.ref, ref);
      if (ref.seconds < entry.seconds / 2)
        throw InputError("{}: has {:.2f} s, the microphone has {:.2f} s; what was played meanwhile is needed",
                         files.ref, ref.seconds, entry.seconds);
    });
    for (const std::string &part : {files.near, files.echo, files.noise})
      if (!part.empty())
        noting(entry, [&] { require_rate(entry, part, header_of(part)); });
    if (!files.scene.empty())
      noting(entry, [&] { scene::read_truth(files.scene); });
  }

  void require_rate(const Entry &entry, const std::string &path, const Header &header) {
    if (entry.rate > 0 && header.rate != entry.rate)
      throw InputError("{}: has {} Hz; the microphone has {} Hz, and both must have the same", path, header.rate,
                       entry.rate);
  }

  /// Voices once for each part and rate.
  void check_drawn(Entry &entry, const Drawn &drawn) {
    entry.seconds = scene::seconds_of(drawn.family);
    if (!drawn_.emplace(drawn.part, entry.rate).second)
      return;
    const scene::Scene scene =
        scene::parse_scene(scene::draw_scene(drawn.seed, drawn.part, drawn.index, drawn.family), entry.place);
    const scene::SpeechReader speech(entry.rate);
    for (const scene::Talker &talker : {scene.far, scene.near})
      noting(entry, [&] { speech.paths(talker.speech); });
  }

  Faults &faults_;
  std::map<std::string, std::string> names_; ///< and their places
  std::set<std::pair<scene::Part, int>> drawn_;
};

} // namespace

void check(std::vector<Entry> &entries, Faults &faults) {
  Checker checker(faults);
  for (Entry &entry : entries)
    checker.check(entry);
}

} // namespace qv::tool::sets
