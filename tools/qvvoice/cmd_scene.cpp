// The verb `scene`: makes a call from speech files.

#include <algorithm>
#include <map>
#include <memory>

#include "dsp/layout.h"
#include "scene/draw.h"
#include "scene/render.h"
#include "sets/entry.h"
#include "support/error.h"
#include "support/output_file.h"
#include "support/progress.h"
#include "verbs.h"

namespace qv::tool {
namespace {

constexpr const char *examples = R"(
The whole set at both rates, one folder per scene and rate: calls/far-end-8k and so on
  qvvoice scene --set all --out calls
One scene of the set
  qvvoice scene --set double-talk --rate 16000 --out calls
A scene of one's own; docs/scenes.md has the keys
  qvvoice scene office.toml --rate 16000 --out office
Sixteen calls drawn at random to tune on, and sixteen with other talkers and rooms to judge by
  qvvoice scene --draw 16 --part tune --out tune
  qvvoice scene --draw 16 --part check --out check
Calls in which devices do everything wrong: distortion, lost frames, late buffers, music, two changes
  qvvoice scene --draw 32 --family hard --part check --out hard
Ten thousand of them, named in a file and each made where it is measured: qvvoice measure --set hard.jsonl
  qvvoice scene --draw 10000 --family hard --part check --rate 16000 --manifest hard.jsonl)";

struct Options {
  std::string file;
  std::vector<std::string> set;
  size_t draw = 0;
  uint64_t seed = 1;
  scene::Part part = scene::Part::tune;
  scene::Family family = scene::Family::usual;
  std::string out, manifest;
  std::vector<int> rates{std::begin(served_rates), std::end(served_rates)};
};

struct Job {
  scene::Scene scene;
  int rate;
  std::string folder;
};

std::vector<Job> jobs(const Options &options) {
  std::vector<Job> jobs;
  if (!options.file.empty()) {
    if (options.rates.size() != 1)
      throw InputError("{}: give its --rate: 8000 or 16000", options.file);
    return {{scene::read_scene(options.file), options.rates[0], options.out}};
  }
  std::vector<std::pair<std::string, scene::Scene>> scenes;
  for (size_t i = 0; i < options.draw; ++i)
    scenes.emplace_back(
        fmt::format("{}-{:02}", options.family == scene::Family::hard ? "hard" : "drawn", i + 1),
        scene::parse_scene(scene::draw_scene(options.seed, options.part, i, options.family), "drawn scene"));
  const bool all = std::ranges::find(options.set, "all") != options.set.end();
  for (const scene::BuiltIn &one : scene::built_in())
    if (all || std::ranges::find(options.set, one.name) != options.set.end())
      scenes.emplace_back(one.name, scene::parse_scene(one.text, fmt::format("scenes/{}.toml", one.name)));
  for (const auto &[name, scene] : scenes)
    for (const int rate : options.rates)
      jobs.push_back({scene, rate, fmt::format("{}/{}-{}k", options.out, name, rate / 1000)});
  return jobs;
}

void make_scenes(const Options &options) {
  std::map<int, scene::SpeechReader> speech;
  const std::vector<Job> all = jobs(options);
  Progress bar("scenes");
  for (size_t i = 0; i < all.size(); ++i) {
    const auto [reader, fresh] = speech.try_emplace(all[i].rate, all[i].rate);
    scene::write_call(scene::render(all[i].scene, reader->second, all[i].rate), all[i].scene, all[i].folder);
    bar(i + 1, all.size());
  }
  for (const Job &job : all)
    fmt::print("{}\n", job.folder);
}

/// Scenes that are made where they are used, not stored.
void write_manifest(const Options &options) {
  OutputFile file(options.manifest);
  for (size_t i = 0; i < options.draw; ++i)
    for (const int rate : options.rates)
      file.write(sets::line_of(sets::drawn_entry({options.family, options.part, options.seed, i}, rate)).dump() + "\n");
  file.commit();
  fmt::print("{}\n", options.manifest);
}

} // namespace

void add_scene(CLI::App &app) {
  const auto options = std::make_shared<Options>();
  std::vector<std::string> names = {"all"};
  for (const scene::BuiltIn &one : scene::built_in())
    names.emplace_back(one.name);
  CLI::App *verb = app.add_subcommand("scene", "Makes a call from speech files: microphone, reference and the truth");
  verb->footer(examples);
  CLI::Option_group *what = verb->add_option_group("What");
  what->add_option("file", options->file, "Scene file")->type_name("FILE");
  what->add_option("--set", options->set, "Scenes that are built in")->check(CLI::IsMember(names));
  CLI::Option *draw =
      what->add_option("--draw", options->draw, "So many calls drawn at random")->check(CLI::Range(1, 1000000));
  what->require_option(1);
  verb->add_option("--seed", options->seed, "Of what is drawn (1)")->needs(draw);
  verb->add_option("--part", options->part, "Talkers and rooms of what is drawn: tune (default) or check")
      ->needs(draw)
      ->transform(CLI::CheckedTransformer(scene::parts()));
  verb->add_option("--family", options->family, "What is drawn: usual (default) or hard")
      ->needs(draw)
      ->transform(CLI::CheckedTransformer(scene::families()));
  CLI::Option_group *where = verb->add_option_group("Where");
  where->add_option("-o,--out", options->out, "Folder of the results, made when missing")->type_name("DIR");
  where
      ->add_option("--manifest", options->manifest,
                   "Instead, name what is drawn in a file, a line per call (docs/sets.md)")
      ->type_name("FILE")
      ->needs(draw);
  where->require_option(1);
  verb->add_option("--rate", options->rates, "Hz (8000 and 16000)")->check(CLI::IsMember(served_rates));
  verb->callback([options] { options->manifest.empty() ? make_scenes(*options) : write_manifest(*options); });
}

} // namespace qv::tool
