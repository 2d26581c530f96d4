// The verb `compare`: whether one run of a fleet is better than another.

#include <memory>

#include "fleet/compare.h"
#include "support/error.h"
#include "support/output_file.h"
#include "verbs.h"

namespace qv::tool {
namespace {

constexpr const char *examples = R"(
Two runs of the same recordings, by the names of their folders
  qvvoice measure --set calls --run before
  qvvoice measure --set calls --run after --para quiet.toml
  qvvoice compare before after
A nightly job that fails when echo reduction gets worse by more than half a dB; with a page
  qvvoice compare before after --limit erle_settled_db=0.5 --page night.html
Pages of the recordings that got worst, which the page leads to
  qvvoice compare before after --page night.html --worst worst.jsonl
  qvvoice report --set worst.jsonl --out pages --para quiet.toml --against-para clear-16k-20ms
docs/fleet.md tells more.)";

struct Options {
  std::string a, b, database = "fleet.db", page, pages = "pages", worst;
  double confidence = 0.95;
  std::vector<std::string> limits;
  bool json = false, csv = false;
};

struct Limit {
  const measure::Measure *measure;
  double most; ///< by which it may be worse
};

Limit limit_of(const std::string &text) {
  const size_t equals = text.find('=');
  const auto found = std::ranges::find(measure::measures(), text.substr(0, equals), &measure::Measure::key);
  char *end = nullptr;
  const double most = equals == text.npos ? 0 : std::strtod(text.c_str() + equals + 1, &end);
  if (found == measure::measures().end() || found->better == 0 || !end || *end || end == text.c_str() + equals + 1)
    throw InputError(
        "--limit: found {}; KEY=NUMBER is needed: a measure that is better or worse (qvvoice measure --list), "
        "and by how much its mean may get worse",
        text);
  return {&*found, most};
}

/// @return whether it holds; a measure that no recording has in both does not
bool holds(const Limit &limit, const fleet::Comparison &comparison) {
  const auto found = std::ranges::find(comparison.overall, limit.measure, &fleet::Difference::measure);
  const bool any = found != comparison.overall.end() && found->pairs > 0;
  const bool fine = any && found->mean * limit.measure->better >= -limit.most;
  if (!fine)
    fmt::print(stderr, "qvvoice: limit {}={} is broken: {}\n", limit.measure->key, limit.most,
               any ? fmt::format("{:+.3f} {}", found->mean, limit.measure->unit) : "no recording has it in both runs");
  return fine;
}

void write(const std::string &path, const std::string &text) {
  OutputFile file(path);
  file.write(text);
  file.commit();
}

void run(const Options &options) {
  std::vector<Limit> limits;
  for (const std::string &text : options.limits)
    limits.push_back(limit_of(text));
  const fleet::Database database(options.database, false);
  const fleet::Comparison comparison =
      fleet::compare(options.a, database.rows(options.a), options.b, database.rows(options.b), options.confidence);
  fmt::print("{}", options.json  ? fleet::as_json(comparison).dump(2) + "\n"
                   : options.csv ? fleet::as_csv(comparison)
                                 : fleet::as_text(comparison));
  if (!options.page.empty())
    write(options.page, fleet::comparison_page(comparison, options.pages));
  if (!options.worst.empty()) {
    std::string lines;
    for (const fleet::Worst &one : comparison.worst)
      lines += database.line_of(one.name) + "\n";
    write(options.worst, lines);
  }
  const auto broken = std::ranges::count_if(limits, [&](const Limit &limit) { return !holds(limit, comparison); });
  if (broken > 0)
    throw CLI::RuntimeError(1);
}

} // namespace

void add_compare(CLI::App &app) {
  const auto options = std::make_shared<Options>();
  CLI::App *verb = app.add_subcommand("compare", "Says whether one run is better than another, and whether by chance");
  verb->footer(examples);
  verb->add_option("a", options->a, "The run that is there, by the name of its folder")->required();
  verb->add_option("b", options->b, "The new one")->required();
  verb->add_option("--db", options->database, "Results that qvvoice measure --run has kept (fleet.db)")
      ->type_name("FILE");
  verb->add_option("--confidence", options->confidence, "Of each interval by itself (0.95)")
      ->check(CLI::Range(0.5, 0.9999));
  verb->add_option("--limit", options->limits,
                   "KEY=NUMBER: by so much a measure's mean may get worse; exit status 1 when it does, or is not there")
      ->allow_extra_args(false);
  verb->add_option("--page", options->page, "Page to write, with distributions and the recordings that got worst")
      ->type_name("FILE");
  verb->add_option("--pages", options->pages, "Folder of reports that the page leads to, from where it lies (pages)");
  verb->add_option("--worst", options->worst, "Manifest to write of those recordings, for qvvoice report --set")
      ->type_name("FILE");
  CLI::Option *json = verb->add_flag("--json", options->json, "Print JSON");
  verb->add_flag("--csv", options->csv, "Print CSV")->excludes(json);
  verb->callback([options] { run(*options); });
}

} // namespace qv::tool
