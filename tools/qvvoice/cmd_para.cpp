#include <filesystem>
#include <memory>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "inspect/check.h"
#include "inspect/diff.h"
#include "inspect/plots.h"
#include "inspect/reference.h"
#include "para/keys.h"
#include "para/para_file.h"
#include "para/presets.h"
#include "para/text_writer.h"
#include "support/error.h"
#include "support/output_file.h"
#include "verbs.h"

namespace qv::tool {

namespace {

using namespace para;
using namespace inspect;
using Json = nlohmann::ordered_json;

constexpr const char *file_help = "parameter file, packed or as text, or the name of a preset";

struct Options {
  std::string file, other, out;
  std::string base = preset_of(default_family, 16000, 320);
  std::string section, form;
  std::optional<int32_t> rate;
  bool json = false, force = false, strict = false;
};

void tell(const Findings &findings, const std::string &file) {
  for (const Finding &finding : findings)
    fmt::print(stderr, "{}\n", to_string(finding, file));
}

/// The words of a file; what reading it found is told.
Image image_of(const std::string &name) {
  const ParaFile file = load_valid(name);
  tell(file.log.findings(), name);
  return file.image;
}

[[noreturn]] void found_wanting() { throw CLI::RuntimeError(1); }

/// To the file that is asked for, or to standard output.
void emit(const std::string &text, const Options &options) {
  if (options.out.empty())
    return fmt::print("{}", text);
  const std::string inputs[] = {options.file};
  OutputFile file(options.out, inputs);
  file.write(text);
  file.commit();
}

void run_new(const Options &options) {
  if (find_preset(options.base) == nullptr)
    throw InputError("--base: there is no preset \"{}\"{}", options.base,
                     did_you_mean(nearest(options.base, preset_names())));
  emit(write_new(options.base), options);
}

void run_pack(const Options &options) {
  const ParaFile file = load_valid(options.file);
  if (file.packed)
    throw InputError("{}: is packed already; right would be a text, as `qvvoice para show` makes from it",
                     options.file);
  const Findings findings = check_file(file);
  tell(findings, options.file);
  if (has_errors(findings) && !options.force) {
    fmt::print(stderr, "{}: nothing written; --force packs it as it is\n", options.file);
    found_wanting();
  }
  emit(packed_bytes(file.image), options);
}

void run_show(const Options &options) { emit(write_text(image_of(options.file)), options); }

Json finding_json(const Finding &finding, const std::string &file) {
  Json line = finding.line > 0 ? Json(finding.line) : Json(nullptr);
  return {{"severity", name_of(finding.severity)},
          {"file", file},
          {"line", line},
          {"key", finding.key},
          {"message", finding.message}};
}

void run_check(const Options &options) {
  const Findings findings = check_file(load(options.file), options.rate);
  const size_t errors = count(findings, Severity::error), warnings = count(findings, Severity::warning);
  Json rows = Json::array();
  for (const Finding &finding : findings) {
    rows.push_back(finding_json(finding, options.file));
    if (!options.json)
      fmt::print("{}\n", to_string(finding, options.file));
  }
  if (options.json)
    fmt::print("{}\n", rows.dump(2));
  else
    fmt::print("{}: {} errors, {} warnings\n", options.file, errors, warnings);
  if (errors > 0 || (options.strict && warnings > 0))
    found_wanting();
}

void run_diff(const Options &options) {
  const auto differences = diff(image_of(options.file), image_of(options.other));
  Json rows = Json::array();
  for (const Difference &d : differences)
    rows.push_back({{"key", d.key}, {"a", d.a}, {"b", d.b}, {"unit", d.unit}, {"meaning", d.meaning}});
  if (options.json)
    fmt::print("{}\n", rows.dump(2));
  else
    for (const Difference &d : differences)
      fmt::print("{}: {} -> {}{}{} ({})\n", d.key, d.a, d.b, d.unit.empty() ? "" : " ", d.unit, d.meaning);
  if (!differences.empty())
    found_wanting();
}

void run_fields(const Options &options) {
  if (!options.section.empty() && !is_section(options.section))
    throw InputError("{}: no such section{}", options.section, did_you_mean(nearest_path(options.section)));
  if (options.form == "schema")
    emit(text_schema().dump(2) + "\n", options);
  else if (options.form == "markdown")
    emit(reference_markdown(), options);
  else if (options.json)
    emit(reference_json(options.section).dump(2) + "\n", options);
  else
    emit(reference_text(options.section), options);
}

void run_plot(const Options &options) {
  const Image image = image_of(options.file);
  if (!rate_served(image[config::rate_word]))
    throw InputError("{}: word 0 is {}; right would be a rate of 8000 or 16000", options.file,
                     image[config::rate_word]);
  const std::string source = std::filesystem::path(options.file).filename();
  const std::pair<const char *, std::string> plots[] = {
      {"gain-control.svg", plot_gain_control(image, source)},
      {"equaliser.svg", plot_equaliser(image, source)},
      {"double-talk.svg", plot_double_talk(image, source)},
  };
  std::error_code error;
  std::filesystem::create_directories(options.out, error);
  for (const auto &[name, svg] : plots) {
    OutputFile picture(std::filesystem::path(options.out) / name);
    picture.write(svg);
    picture.commit();
    fmt::print("{}\n", picture.path());
  }
}

/// Adds a subcommand with options of its own, which live as long as it.
template <class Declare>
void add_command(CLI::App &app, const char *name, const char *help, const char *example, void (*run)(const Options &),
                 Declare declare) {
  CLI::App *command = app.add_subcommand(name, help);
  command->footer(fmt::format("Example: qvvoice para {} {}", name, example));
  const auto options = std::make_shared<Options>();
  declare(*command, *options);
  command->callback([options, run] { run(*options); });
}

void add_file(CLI::App &command, Options &options) {
  command.add_option("FILE", options.file, file_help)->type_name("FILE")->required();
}

void add_out(CLI::App &command, Options &options) {
  command.add_option("-o,--out", options.out, "file to write; standard output without it")->type_name("FILE");
}

} // namespace

void add_para(CLI::App &app) {
  CLI::App &para = *app.add_subcommand("para", "Write, pack, show, check, compare and plot parameter files");
  para.require_subcommand(1);
  para.footer("A first file:\n"
              "  qvvoice para new --out my.toml            then edit my.toml\n"
              "  qvvoice para check my.toml\n"
              "  qvvoice para plot my.toml --out plots\n"
              "  qvvoice para pack my.toml --out my.para   what the library reads");

  add_command(para, "new", "A commented text to start from", "--base balanced-8k-20ms --out my.toml", run_new,
              [](CLI::App &command, Options &options) {
                command.add_option("--base", options.base, "preset that the text is based on (see qvvoice presets)")
                    ->capture_default_str();
                add_out(command, options);
              });
  add_command(para, "pack", "A text into the packed words that the library reads", "my.toml --out my.para", run_pack,
              [](CLI::App &command, Options &options) {
                add_file(command, options);
                command.add_option("-o,--out", options.out, "packed file to write")->type_name("FILE")->required();
                command.add_flag("--force", options.force, "pack although the check finds errors");
              });
  add_command(para, "show", "Every value as text; `pack` makes the same words of it", "my.para", run_show,
              [](CLI::App &command, Options &options) {
                add_file(command, options);
                add_out(command, options);
              });
  add_command(para, "check", "Errors, and what will hardly sound good; status 1 with errors", "my.toml --rate 16000",
              run_check, [](CLI::App &command, Options &options) {
                add_file(command, options);
                command.add_option("--rate", options.rate, "sample rate in Hz that the file should be for");
                command.add_flag("--strict", options.strict, "status 1 with warnings too");
                command.add_flag("--json", options.json, "as JSON");
              });
  add_command(para, "diff", "What differs, in physical units; status 1 when something does",
              "balanced-16k-20ms my.toml", run_diff, [](CLI::App &command, Options &options) {
                command.add_option("A", options.file, file_help)->type_name("FILE")->required();
                command.add_option("B", options.other, file_help)->type_name("FILE")->required();
                command.add_flag("--json", options.json, "as JSON");
              });
  add_command(para, "fields", "Every key with its range, unit, default and meaning", "tx.agc", run_fields,
              [](CLI::App &command, Options &options) {
                command.add_option("SECTION", options.section, "one section, such as tx.agc; all without it");
                command.add_flag("--json", options.json, "as JSON");
                command
                    .add_option("--form", options.form, "the whole reference as a page, or a JSON schema for editors")
                    ->check(CLI::IsMember({"markdown", "schema"}));
                add_out(command, options);
              });
  add_command(
      para, "plot", "Pictures: level curves, equaliser responses, detector knees", "my.toml --out plots", run_plot,
      [](CLI::App &command, Options &options) {
        add_file(command, options);
        command.add_option("-o,--out", options.out, "folder for the three SVG files")->type_name("DIR")->required();
      });
}

} // namespace qv::tool
