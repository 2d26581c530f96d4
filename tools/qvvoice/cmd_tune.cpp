// The verb `tune`: from recordings to a parameter file.

#include <filesystem>
#include <memory>

#include "fleet/behaviour.h"
#include "para/presets.h"
#include "parameters.h"
#include "support/child.h"
#include "support/error.h"
#include "support/output_file.h"
#include "support/progress.h"
#include "tune/device.h"
#include "tune/result_text.h"
#include "verbs.h"
#include "workers.h"

namespace qv::tool {
namespace {

using tune::Evaluator;

constexpr const char *examples = R"(
On a set of calls whose truth is known, judged on another
  qvvoice scene --draw 16 --part tune --rate 16000 --out tune
  qvvoice scene --draw 16 --part check --rate 16000 --out check
  qvvoice tune --set tune --check check --out mine.toml --pages pages
For a device, from two recordings: it plays and nobody talks; somebody talks and it plays nothing
  qvvoice tune --echo mic.wav ref.wav --near near.wav --calls calls --out device.toml
Many parameters at once, in shards, on this machine or on a cluster
  qvvoice scene --draw 500 --part tune --rate 16000 --manifest many.jsonl
  qvvoice tune --set many.jsonl --search population --run night --out mine.toml
  qvvoice tune --set many.jsonl --search population --run night --out mine.toml --on slurm --partition night
After an interrupt the same command goes on from its log. docs/tuning.md tells more.)";

struct Options {
  std::string set, check;
  std::vector<std::string> echo;
  std::string near, calls;
  std::string plan{para::default_family};
  std::optional<std::string> para; ///< where to start
  int rate = 16000, frame_ms = 20;
  std::string out, log, name, pages;
  tune::SearchOptions search;
  std::string run; ///< folder for shards; empty: everything in memory
  fleet::Workers workers;
  bool json = false;
};

void write_text(const std::string &path, const std::string &text) {
  OutputFile file(path);
  file.write(text);
  file.commit();
}

/// What the search is: its log belongs to no other, and to no other library.
tune::Json identity(const Options &options, const Evaluator &evaluator, const Setup &before) {
  tune::Json search = {{"version", QV_VOICE_Version()},
                       {"behaviour", fleet::behaviour({before})},
                       {"before", before.para},
                       {"frame_ms", options.frame_ms}};
  search.update(evaluator.identity());
  return search;
}

/// @param part  "tune" or "check"
std::unique_ptr<Evaluator> evaluator_of(const Options &options, const std::string &set, const std::string &part) {
  return options.run.empty()
             ? tune::in_memory(set, options.rate, options.frame_ms, options.workers.parallel)
             : tune::on_fleet(set, options.rate, options.frame_ms, options.run + "/" + part, options.workers);
}

tune::Judged judge(Evaluator &evaluator, const tune::Result &result, const char *part) {
  tune::Judged judged{part, evaluator.names(), {}, {}};
  evaluator.evaluate({result.before.image, result.after.image}, [&](size_t i, tune::Evaluation found) {
    if (!found.failed.empty())
      throw InputError("{}, {}: {}", part, i == 0 ? "before" : "after", found.failed);
    (i == 0 ? judged.before : judged.after) = std::move(found.by_recording);
  });
  return judged;
}

/// Without each field, on recordings that were held back: what it buys there is what it is worth.
void judge_effects(Evaluator &evaluator, const tune::Numbers &with, tune::Result &result) {
  std::vector<config::Image> images;
  for (const tune::Effect &effect : result.effects)
    images.push_back(effect.image);
  evaluator.evaluate(images, [&](size_t i, const tune::Evaluation &found) {
    result.effects[i].with = with;
    result.effects[i].without = tune::mean_of(found.by_recording);
  });
}

/// On the recordings tuned on and, where there are any, on those held back.
std::vector<tune::Judged> judge_all(Evaluator &evaluator, Evaluator *held_back, tune::Result &result) {
  const Progress bar("judging");
  std::vector<tune::Judged> parts = {judge(evaluator, result, "tuned on")};
  if (held_back) {
    parts.push_back(judge(*held_back, result, "held back"));
    judge_effects(*held_back, tune::mean_of(parts.back().after), result);
  }
  return parts;
}

void write_pages(const Options &options, const std::string &set, const std::string &before) {
  Progress bar("pages");
  const ChildResult made = run_child({std::filesystem::read_symlink("/proc/self/exe").string(), "report", "--set", set,
                                      "--out", options.pages, "--frame-ms", std::to_string(options.frame_ms), "--para",
                                      options.out, "--against-para", before});
  if (made.status != 0)
    throw InputError("{}: {}", options.pages, made.messages);
  bar.wipe();
  fmt::print(stderr, "pages: {}", made.output);
}

void run(Options options) {
  if (options.search.generation > 0 && options.search.method != tune::Method::population)
    throw InputError(
        "--generation: found {}, with a search that evaluates one after the other; --search population has "
        "generations",
        options.search.generation);
  const std::string own = para::preset_of(options.plan, options.rate, qv::frame_length(options.rate, options.frame_ms));
  if (!options.para && para::find_preset(own))
    options.para = own;
  const Setup before = make_setup(options.para, options.rate, options.frame_ms);
  if (!options.echo.empty()) {
    const Progress bar("mixing calls");
    tune::make_calls({options.echo.front(), options.echo.back(), options.near}, before, options.calls);
    options.set = options.calls + "/tune";
    options.check = options.calls + "/check";
  }
  const tune::Plan plan = tune::read_plan(options.plan, options.rate);
  const auto lock = options.run.empty() ? nullptr : std::make_unique<fleet::Lock>(options.run);
  const auto evaluator = evaluator_of(options, options.set, "tune");
  const auto held_back = options.check.empty() ? nullptr : evaluator_of(options, options.check, "check");
  const bool preset = para::find_preset(before.para_source) != nullptr;
  const tune::Writing writing{options.name, options.frame_ms, preset ? before.para_source : "",
                              preset ? before.para : config::default_image(options.rate)};
  if (options.log.empty())
    options.log = options.out + ".log";
  tune::History history(options.log, identity(options, *evaluator, before));

  if (history.taken_up() > 0)
    fmt::print(stderr, "goes on from {} evaluations in its log\n", history.taken_up());
  say_when_terminated(fmt::format("\nqvvoice: stopped; the same command goes on from {}\n", options.log));
  Progress bar("tuning");
  const auto evaluated = [&](const tune::Candidate &candidate, const tune::Candidate &best, size_t evaluations) {
    bar(evaluations, options.search.budget);
    if (const std::string &failed = candidate.measured.failed; !failed.empty()) {
      bar.wipe();
      fmt::print(stderr, "evaluation {} of {} has failed: {}\n", evaluations, options.search.budget, failed);
    }
    if (candidate.image != best.image)
      return;
    bar.wipe();
    fmt::print(stderr, "evaluation {} of {}: {:.3f} points\n", evaluations, options.search.budget, best.cost);
    write_text(options.out,
               parameter_text(plan, {best, best, {}, {}}, writing, best.measured.means, "tuned on so far"));
  };
  tune::Result result = tune::tune(plan, before.para, *evaluator, history, options.search, evaluated);
  bar.wipe();
  const std::vector<tune::Judged> parts = judge_all(*evaluator, held_back.get(), result);
  const tune::Judged &last = parts.back();
  write_text(options.out, parameter_text(plan, result, writing, tune::mean_of(last.after), last.part));
  const tune::Json found = tune::result_json(plan, result, parts);
  fmt::print("{}", options.json ? found.dump(2) + "\n" : tune::result_text(found));
  if (!options.pages.empty())
    write_pages(options, held_back ? options.check : options.set, before.para_source);
  if (!found["parts"].back()["met"])
    throw CLI::RuntimeError(1);
}

} // namespace

void add_tune(CLI::App &app) {
  const auto options = std::make_shared<Options>();
  CLI::App *verb = app.add_subcommand("tune", "Searches the parameters that do best on recordings");
  verb->footer(examples);
  CLI::Option_group *what = verb->add_option_group("What");
  CLI::Option *set =
      what->add_option("--set", options->set, "Folder of calls to tune on, at any depth, or a manifest of them")
          ->type_name("PATH");
  CLI::Option *echo =
      what->add_option("--echo", options->echo,
                       "Recording of the device playing: microphone and reference, or one file with both channels")
          ->expected(1, 2)
          ->type_name("FILE");
  what->require_option(1);
  verb->add_option("--check", options->check, "Folder or manifest of calls held back, to judge the result by")
      ->type_name("PATH")
      ->needs(set);
  CLI::Option *near =
      verb->add_option("--near", options->near, "Recording of somebody talking while the device is silent")
          ->type_name("FILE")
          ->needs(echo);
  CLI::Option *calls =
      verb->add_option("--calls", options->calls, "Folder for the calls mixed from both, made when missing")
          ->type_name("DIR")
          ->needs(echo);
  echo->needs(near, calls);
  verb->add_option("-o,--out", options->out, "Parameter file to write, as text")->type_name("FILE")->required();
  verb->add_option(
      "--plan", options->plan,
      fmt::format("What may move and what is wanted: a file, or a name built in ({})", para::default_family));
  add_parameters(*verb, options->para, "Where to start (the plan's preset for the rate and frame length)", "--base");
  verb->add_option("--name", options->name, "Name to write into the file")->default_str("tuned");
  options->name = "tuned";
  verb->add_option("--rate", options->rate, "Hz (16000)")->check(CLI::IsMember(served_rates));
  verb->add_option("--frame-ms", options->frame_ms, "Frame length, ms (20)")->check(CLI::IsMember(served_frame_ms));
  verb->add_option("--budget", options->search.budget, "Evaluations of the whole set (300)")
      ->check(CLI::Range(1, 1000000));
  verb->add_option("--minutes", options->search.minutes, "Evaluate nothing more after so long")
      ->check(CLI::PositiveNumber);
  verb->add_option("--seed", options->search.seed, "Of the search (1)");
  verb->add_option("--step", options->search.step, "First step, as a share of each range (0.1)")
      ->check(CLI::Range(0.001, 1.0));
  verb->add_option(
          "--search", options->search.method,
          "subplex, one evaluation after the other (default); population, a generation at once; random to compare with")
      ->transform(CLI::CheckedTransformer(std::map<std::string, tune::Method>{{"subplex", tune::Method::subplex},
                                                                              {"population", tune::Method::population},
                                                                              {"random", tune::Method::random}}));
  verb->add_option("--generation", options->search.generation,
                   "Evaluations at once of --search population (4 + 3 ln n for n moves)")
      ->check(CLI::Range(4, 10000));
  verb->add_option("--log", options->log, "Every evaluation, to go on after an interrupt (OUT.log)")->type_name("FILE");
  verb->add_option("--pages", options->pages, "Folder for pages of the calls, before and after")->type_name("DIR");
  CLI::Option *shards =
      verb->add_option("--run", options->run,
                       "Folder for shards of the work that many workers share (docs/fleet.md); without it "
                       "all calls are kept in memory")
          ->type_name("DIR");
  add_workers(*verb, options->workers, shards, {{"local", fleet::Engine::local}, {"slurm", fleet::Engine::slurm}});
  verb->add_flag("--json", options->json, "Print JSON");
  verb->callback([options] { run(*options); });
}

} // namespace qv::tool
