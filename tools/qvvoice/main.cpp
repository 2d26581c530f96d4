#include <cstdio>
#include <exception>
#include <string>
#include <string_view>

#include <fmt/format.h>

#include "qvvoice/qvvoice.h"
#include "verbs.h"

namespace {

constexpr int bad_input = 2;

int refuse(std::string_view message) {
  fmt::print(stderr, "qvvoice: {}\n", message);
  return bad_input;
}

/// A file named "-" means a pipe everywhere else: no verb takes it for a file of that name.
void refuse_pipes(CLI::App &app) {
  const auto is_file = [](const std::string &path) {
    return path == "-" ? std::string("- stands for a pipe, and pipes are not read or written yet; name a file") : "";
  };
  for (CLI::Option *option : app.get_options([](const CLI::Option *) { return true; }))
    if (const std::string type = option->get_type_name(); type == "FILE" || type == "DIR" || type == "PATH")
      option->check(CLI::Validator(is_file, ""));
  for (CLI::App *part : app.get_subcommands([](const CLI::App *) { return true; }))
    refuse_pipes(*part);
}

} // namespace

int main(int argc, char **argv) {
  CLI::App app{"Runs, shows and measures QV Voice on recordings", "qvvoice"};
  app.set_version_flag("--version", QV_VOICE_Version());
  app.require_subcommand(0, 1);
  qv::tool::add_process(app);
  qv::tool::add_para(app);
  qv::tool::add_presets(app);
  qv::tool::add_measure(app);
  qv::tool::add_scene(app);
  qv::tool::add_diagnose(app);
  qv::tool::add_report(app);
  qv::tool::add_tune(app);
  qv::tool::add_manual(app);
  refuse_pipes(app);
  try {
    app.parse(argc, argv);
    if (app.get_subcommands().empty())
      return refuse("no verb given (--help lists them)");
    return std::fflush(stdout) == 0 ? 0 : refuse("standard output cannot be written");
  } catch (const CLI::RuntimeError &found) {
    return found.get_exit_code();
  } catch (const CLI::Success &asked) {
    return app.exit(asked);
  } catch (const CLI::ParseError &usage) {
    return refuse(fmt::format("{} (--help shows the options)", usage.what()));
  } catch (const std::exception &wrong) {
    return refuse(wrong.what());
  }
}
