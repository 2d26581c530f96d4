#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <sstream>
#include <string>
#include <string_view>

#include <fmt/format.h>

#include "qvvoice/qvvoice.h"
#include "usage.h"
#include "verbs.h"

namespace {

constexpr int bad_input = 2;

int refuse(std::string_view message) {
  fmt::print(stderr, "qvvoice: {}\n", message);
  return bad_input;
}

/// A file named "-" means a pipe: no verb takes it for a file of that name, and those that read or write one say so in
/// the type of their option.
void refuse_pipes(CLI::App &app) {
  const auto is_file = [](const std::string &path) {
    return path == "-" ? std::string("- stands for a pipe, which qvvoice process reads and writes; name a file") : "";
  };
  for (CLI::Option *option : app.get_options([](const CLI::Option *) { return true; }))
    if (const std::string type = option->get_type_name(); type.ends_with("FILE") || type == "DIR" || type == "PATH")
      option->check(CLI::Validator(is_file, ""));
  for (CLI::App *part : app.get_subcommands([](const CLI::App *) { return true; }))
    refuse_pipes(*part);
}

/// Nothing is lost in silence: what standard output refuses is an error, whatever the verb has found.
int finish(int status) {
  errno = 0;
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0)
    return status;
  return refuse(
      fmt::format("standard output cannot be written{}{}", errno ? ": " : "", errno ? std::strerror(errno) : ""));
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
  qv::tool::add_worker(app);
  qv::tool::add_compare(app);
  qv::tool::add_scene(app);
  qv::tool::add_diagnose(app);
  qv::tool::add_report(app);
  qv::tool::add_tune(app);
  qv::tool::add_tuner(app);
  qv::tool::add_manual(app);
  refuse_pipes(app);
  try {
    app.parse(argc, argv);
    if (app.get_subcommands().empty())
      return refuse("no verb given (--help lists them)");
    return finish(0);
  } catch (const CLI::RuntimeError &found) {
    return finish(found.get_exit_code());
  } catch (const CLI::Success &asked) {
    std::ostringstream text;
    const int status = app.exit(asked, text);
    std::fputs(text.str().c_str(), stdout);
    return finish(status);
  } catch (const CLI::ParseError &usage) {
    return refuse(qv::tool::usage_message(app, usage));
  } catch (const std::exception &wrong) {
    return std::ferror(stdout) ? finish(bad_input) : refuse(wrong.what());
  }
}
