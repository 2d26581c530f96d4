#include <exception>

#include <fmt/format.h>

#include "qvvoice/qvvoice.h"
#include "verbs.h"

namespace {

constexpr int bad_input = 2;

int say(const char *message) {
  fmt::print(stderr, "qvvoice: {}\n", message);
  return bad_input;
}

} // namespace

int main(int argc, char **argv) {
  CLI::App app{"Runs, shows and measures QV Voice on recordings", "qvvoice"};
  app.set_version_flag("--version", QV_VOICE_Version());
  app.require_subcommand(1);
  qv::tool::add_scene(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::RuntimeError &found) {
    return found.get_exit_code();
  } catch (const CLI::Success &asked) {
    return app.exit(asked);
  } catch (const std::exception &wrong) {
    return say(wrong.what());
  }
}
