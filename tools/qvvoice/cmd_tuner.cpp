// The verb `tuner`: the page on which parameters are tuned by ear.

#include <memory>
#include <system_error>
#include <thread>

#include <fmt/format.h>

#include "parameters.h"
#include "recordings.h"
#include "support/child.h"
#include "support/output_file.h"
#include "tuner/page.h"
#include "tuner/server.h"
#include "verbs.h"

namespace qv::tool {
namespace {

constexpr const char *examples = R"(
The page with its own call; nothing leaves this machine
  qvvoice tuner
With a call and the parameters of the board
  qvvoice tuner --mic mic.wav --ref loudspeaker.wav --para board.toml
The same as one file, to keep, to send on or to put on a server
  qvvoice tuner calls/double-talk-16k --out tuner.html)";

struct Options {
  Recordings recordings;
  std::vector<std::string> para;
  std::string out;
  int frame_ms = 20, port = 0;
  bool stay = false;
};

bool names_a_call(const Recordings &recordings) {
  return !recordings.folder.empty() || !recordings.mic.empty() || !recordings.ref.empty() || !recordings.stereo.empty();
}

tuner::Given given_by(const Options &options) {
  tuner::Given given;
  if (names_a_call(options.recordings)) {
    options.recordings.check();
    given.call = options.recordings.read_one();
    given.setup = setup_for(options.para, given.call->rate, options.frame_ms);
  } else if (!options.para.empty()) {
    const config::Image image = read_image(options.para.front());
    given.setup = setup_of(image, options.para.front(), image[config::rate_word], options.frame_ms);
  }
  return given;
}

/// In the browser that this desktop prefers, which may not return before it is closed; without one the address that has
/// been printed will do.
void open_in_browser(const std::string &url) {
  std::thread([url] {
    try {
      run_child({"xdg-open", url});
    } catch (const std::system_error &) {
    }
  }).detach();
}

void run_tuner(const Options &options) {
  const std::string page = page_with(given_by(options));
  if (!options.out.empty()) {
    OutputFile file(options.out);
    file.write(page);
    file.commit();
    fmt::print("{}\n", options.out);
    return;
  }
  tuner::serve(page, options.port, [&](const std::string &url) {
    fmt::print("{}\n", url);
    std::fflush(stdout);
    fmt::print(stderr, "qvvoice: serving the tuner to this machine; Ctrl-C ends it\n");
    if (!options.stay)
      open_in_browser(url);
  });
}

} // namespace

void add_tuner(CLI::App &app) {
  const auto options = std::make_shared<Options>();
  CLI::App *verb = app.add_subcommand("tuner", "Opens the page on which parameters are tuned by ear");
  verb->footer(examples);
  add_recordings(*verb, options->recordings, false);
  add_parameters(*verb, options->para, "Parameters to begin with (clear); of several those for the recording's rate");
  verb->add_option("--frame-ms", options->frame_ms, "Frame length, ms (20)")->check(CLI::IsMember(served_frame_ms));
  verb->add_option("--port", options->port, "Port on the loopback address (0: any that is free)")
      ->check(CLI::Range(0, 65535));
  verb->add_flag("--no-browser", options->stay, "Print the address without opening it");
  verb->add_option("-o,--out", options->out, "Write the page to a file instead of serving it")->type_name("FILE");
  verb->callback([options] { run_tuner(*options); });
}

} // namespace qv::tool
