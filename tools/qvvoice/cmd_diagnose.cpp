// The verb `diagnose`: why there is still an echo.

#include <memory>

#include "diagnose/diagnose.h"
#include "para/presets.h"
#include "parameters.h"
#include "process/inputs.h"
#include "recordings.h"
#include "support/error.h"
#include "support/progress.h"
#include "verbs.h"

namespace qv::tool {
namespace {

using process::Inputs;
using process::Options;

constexpr const char *examples = R"(
Two recordings of one call; exit status 1 when something is wrong
  qvvoice diagnose --mic mic.wav --ref loudspeaker.wav
The folder of a call, which holds mic.wav and ref.wav, with the parameters of the board
  qvvoice diagnose calls/far-end-16k --para board.para
One stereo file, for a script
  qvvoice diagnose --stereo call.flac --json)";

constexpr size_t text_width = 100; // columns

void print(const diagnose::Diagnosis &diagnosis, const Setup &setup, const Inputs &inputs, bool json) {
  if (!json) {
    fmt::print("{}", diagnose::to_text(diagnosis, text_width));
    for (const std::string &note : inputs.notes())
      fmt::print("note   {}\n", note);
    return;
  }
  auto all = to_json(diagnosis);
  all["rate_hz"] = setup.rate;
  all["frame_samples"] = setup.frame_len;
  all["parameters"] = setup.para_source;
  all["notes"] = inputs.notes();
  fmt::print("{}\n", all.dump(2, ' ', false, nlohmann::json::error_handler_t::replace));
}

/// A folder counts as the two files in it.
void take(const Recordings &recordings, Options &options) {
  recordings.check();
  if (!recordings.stereo.empty()) {
    options.stereo = recordings.stereo;
    return;
  }
  options.mic = recordings.folder.empty() ? recordings.mic : recordings.folder + "/mic.wav";
  options.ref = recordings.folder.empty() ? recordings.ref : recordings.folder + "/ref.wav";
}

diagnose::Diagnosis judge(const Setup &setup, const Samples &mic, const Samples &ref) {
  Run run;
  {
    Progress bar("processing");
    run = run_tx(setup, mic, ref, {.compensate = true, .progress = std::ref(bar)});
  }
  const Progress bar("diagnosing");
  return diagnose::diagnose(diagnose::Evidence(setup, mic, ref, run.sent, run.trace));
}

void run_diagnosis(const Recordings &recordings, Options options) {
  take(recordings, options);
  Inputs inputs = open_inputs(options);
  Samples mic, ref;
  {
    const Progress bar("reading");
    mic = inputs.mic->read_all();
    ref = inputs.ref->read_all();
  }
  const Setup setup = make_setup(options.para, inputs.rate, options.frame_ms);
  const diagnose::Diagnosis diagnosis = judge(setup, mic, ref);
  print(diagnosis, setup, inputs, options.json);
  if (diagnosis.state == diagnose::State::wrong)
    throw CLI::RuntimeError(1);
}

} // namespace

void add_diagnose(CLI::App &app) {
  const auto options = std::make_shared<Options>();
  const auto recordings = std::make_shared<Recordings>();
  CLI::App *verb = app.add_subcommand("diagnose", "Says why there is still an echo, and what to do next");
  verb->footer(examples);
  add_recordings(*verb, *recordings, false);
  verb->add_option("--mic-channel", options->mic_channel, "Channel of --mic, from 1")->needs("--mic");
  verb->add_option("--ref-channel", options->ref_channel, "Channel of --ref, from 1")->needs("--ref");
  add_parameters(*verb, options->para,
                 fmt::format("Parameters ({}, for the rate and frame length)", para::default_family));
  verb->add_option("--rate", options->rate, "Rate to run at, Hz (8000 if the first input has no more, else 16000)")
      ->check(CLI::IsMember(served_rates));
  verb->add_option("--frame-ms", options->frame_ms, "Frame length, ms (20)")->check(CLI::IsMember(served_frame_ms));
  verb->add_flag("--json", options->json, "Print the diagnosis as JSON");
  verb->callback([=] { run_diagnosis(*recordings, *options); });
}

} // namespace qv::tool
