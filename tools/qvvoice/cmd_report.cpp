// The verb `report`: pages that show a call, or a set of calls.

#include <filesystem>
#include <memory>

#include "para/presets.h"
#include "parameters.h"
#include "recordings.h"
#include "report/front_page.h"
#include "report/html.h"
#include "sets/set.h"
#include "support/error.h"
#include "support/progress.h"
#include "support/output_file.h"
#include "verbs.h"

namespace qv::tool {
namespace {

namespace fs = std::filesystem;
using report::CallReport;
using report::Entry;
using report::Link;
using report::Links;

constexpr const char *examples = R"(
One call, in one file to open in a browser or to send on
  qvvoice report calls/double-talk-16k --out double-talk.html
  qvvoice report --mic mic.wav --ref loudspeaker.wav --out call.html
Every call below a folder: pages/index.html and a page per call
  qvvoice report --set calls --out pages
Other parameters, or the outputs of another system (others/double-talk-16k.wav and so on), beside it
  qvvoice report --set calls --out pages --against-para quiet.toml
  qvvoice report --set calls --out pages --against others)";

struct Options {
  Recordings recordings;
  std::string out;
  std::vector<std::string> para, against_para;
  int frame_ms = 20;
  std::string against;
  int against_delay = 0;
};

/// @param against  output that was made elsewhere; empty: none
void put_beside(CallReport &call, const Options &options, const std::string &against) {
  if (against.empty() && options.against_para.empty())
    return;
  CallReport::Other other{};
  if (!against.empty()) {
    other.name = options.against;
    other.output = measure::read_output(call.subject, against, options.against_delay);
  } else {
    other.name = "other parameters";
    Progress bar("processing");
    other.output =
        run_library(call.subject, setup_for(options.against_para, call.subject.rate, options.frame_ms), std::ref(bar));
  }
  const Progress bar("measuring");
  other.results = measure::measure(call.subject, other.output);
  other.output.plain = {};
  call.other = std::move(other);
}

CallReport examine(const std::string &name, measure::Subject subject, const Options &options,
                   const std::string &against) {
  const Setup setup = setup_for(options.para, subject.rate, options.frame_ms);
  CallReport call = report::examine(name, std::move(subject), setup);
  put_beside(call, options, against);
  return call;
}

void write_page(const std::string &path, const std::string &page) {
  OutputFile file(path);
  file.write(page);
  file.commit();
}

void report_call(const Options &options) {
  OutputFile file(options.out);
  measure::Subject subject = options.recordings.read_one();
  const std::string name = subject.name;
  file.write(call_page(examine(name, std::move(subject), options, options.against), {}));
  file.commit();
  fmt::print("{}\n", options.out);
}

/// The way from one page of a set to another. @param from,to  paths below the folder of the pages
std::string way(const std::string &from, const std::string &to) {
  return report::percent_encoded(fs::path(to).lexically_relative(fs::path(from).parent_path()).string());
}

std::string page_of(const std::string &name) { return name + ".html"; }

Links links_of(const std::vector<std::string> &names, size_t i) {
  const auto link = [&](size_t to) { return Link{names[to], way(page_of(names[i]), page_of(names[to]))}; };
  Links links{Link{"All calls", way(page_of(names[i]), "index.html")}, {}, {}};
  if (i > 0)
    links.previous = link(i - 1);
  if (i + 1 < names.size())
    links.next = link(i + 1);
  return links;
}

/// Writes the page of a call; a recording that cannot be used is named on the front page.
Entry report_one(const Options &options, sets::Reader &reader, const sets::Entry &entry,
                 const std::vector<std::string> &names, size_t i) try {
  const std::string &name = names[i], page = page_of(name);
  const std::string against = options.against.empty() ? "" : output_path(options.against, name);
  const CallReport call = examine(name, reader.read(entry), options, against);
  const fs::path place = fs::path(options.out) / page;
  fs::create_directories(place.parent_path());
  write_page(place.string(), call_page(call, links_of(names, i)));
  return {name,
          way("index.html", page),
          call.diagnosis.verdict,
          call.diagnosis.state,
          call.results,
          call.other ? std::optional(call.other->results) : std::nullopt};
} catch (const InputError &error) {
  fmt::print(stderr, "qvvoice: {}: {}\n", names[i], error.what());
  return {names[i], "", error.what(), diagnose::State::wrong, {}, {}};
}

void report_set(const Options &options) {
  const std::vector<sets::Entry> set = sets::listed(options.recordings.set);
  std::vector<std::string> names;
  for (const sets::Entry &entry : set)
    names.push_back(entry.name);
  sets::Reader reader;
  fs::create_directories(options.out);
  std::vector<Entry> entries;
  Progress bar("pages");
  for (size_t i = 0; i < names.size(); ++i) {
    entries.push_back(report_one(options, reader, set[i], names, i));
    bar(i + 1, names.size());
  }
  const std::string other = !options.against.empty()       ? options.against
                            : options.against_para.empty() ? ""
                                                           : "other parameters";
  const std::string front = options.out + "/index.html";
  const std::string title = fs::path(options.recordings.set).lexically_normal().filename().string();
  write_page(front, front_page(title.empty() ? "Calls" : title, entries, other));
  fmt::print("{}\n", front);
  const auto failed = std::ranges::count(entries, "", &Entry::href);
  if (failed > 0)
    throw InputError("{} of {} recordings failed; they are named above", failed, entries.size());
}

} // namespace

void add_report(CLI::App &app) {
  const auto options = std::make_shared<Options>();
  CLI::App *verb = app.add_subcommand("report", "Shows a call, or a set of calls, on self-contained pages");
  verb->footer(examples);
  add_recordings(*verb, options->recordings, true);
  verb->add_option("-o,--out", options->out, "The page; with --set the folder of the pages, made when missing")
      ->type_name("PATH")
      ->required();
  add_parameters(
      *verb, options->para,
      fmt::format("Parameters ({}); of several those for the recording's rate are taken", para::default_family));
  verb->add_option("--frame-ms", options->frame_ms, "Frame length, ms (20)")->check(CLI::IsMember(served_frame_ms));
  CLI::Option *against = verb->add_option("--against", options->against,
                                          "An output that was made elsewhere; with --set a folder of NAME.wav or "
                                          "NAME/out.wav")
                             ->type_name("PATH");
  verb->add_option("--against-delay", options->against_delay,
                   "Samples by which such outputs are behind the microphone (0)")
      ->needs(against);
  verb->add_option("--against-para", options->against_para, "A run with other parameters beside it")
      ->type_name(parameters_type)
      ->excludes(against);
  verb->callback([options] {
    options->recordings.check();
    options->recordings.set.empty() ? report_call(*options) : report_set(*options);
  });
}

} // namespace qv::tool
