// The verb `diagnose`: why there is still an echo.

#include <memory>

#include "diagnose/diagnose.h"
#include "process/inputs.h"
#include "support/error.h"
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

void take_folder(const std::string &folder, Options &options) {
  if (folder.empty())
    return;
  options.mic = folder + "/mic.wav";
  options.ref = folder + "/ref.wav";
}

void print(const diagnose::Diagnosis &diagnosis, const Setup &setup, const Inputs &inputs, bool json) {
  if (!json) {
    fmt::print("{}", diagnose::to_text(diagnosis, text_width));
    for (const std::string &note : inputs.notes)
      fmt::print("note   {}\n", note);
    return;
  }
  auto all = to_json(diagnosis);
  all["rate_hz"] = setup.rate;
  all["frame_samples"] = setup.frame_len;
  all["parameters"] = setup.para_source;
  all["notes"] = inputs.notes;
  fmt::print("{}\n", all.dump(2, ' ', false, nlohmann::json::error_handler_t::replace));
}

void run_diagnosis(const std::string &folder, Options options) {
  take_folder(folder, options);
  if (!options.mic && !options.stereo)
    throw InputError("no recording: give --mic and --ref, --stereo, or a folder with mic.wav and ref.wav");
  if (options.mic && !options.ref)
    throw InputError("--mic needs --ref, what the loudspeaker played");
  const Inputs inputs = read_inputs(options);
  const Setup setup = make_setup(options.para, inputs.rate, options.frame_ms);
  Progress bar("processing");
  const Run run =
      run_tx(setup, inputs.mic->samples(), inputs.ref->samples(), {.compensate = true, .progress = std::ref(bar)});
  const diagnose::Evidence evidence(setup, inputs.mic->samples(), inputs.ref->samples(), run.sent, run.trace);
  const diagnose::Diagnosis diagnosis = diagnose::diagnose(evidence);
  print(diagnosis, setup, inputs, options.json);
  if (diagnosis.state == diagnose::State::wrong)
    throw CLI::RuntimeError(1);
}

} // namespace

void add_diagnose(CLI::App &app) {
  const auto options = std::make_shared<Options>();
  const auto folder = std::make_shared<std::string>();
  CLI::App *verb = app.add_subcommand("diagnose", "Says why there is still an echo, and what to do next");
  verb->footer(examples);
  CLI::Option *call = verb->add_option("call", *folder, "Folder with mic.wav and ref.wav")->type_name("DIR");
  CLI::Option *mic = verb->add_option("--mic", options->mic, "Near-end microphone")->type_name("FILE")->excludes(call);
  CLI::Option *ref = verb->add_option("--ref", options->ref, "What the loudspeaker played")->type_name("FILE");
  ref->excludes(call)->needs(mic);
  verb->add_option("--stereo", options->stereo, "Microphone in channel 1, reference in channel 2")
      ->type_name("FILE")
      ->excludes(call, mic, ref);
  verb->add_option("--mic-channel", options->mic_channel, "Channel of --mic, from 1")->needs(mic);
  verb->add_option("--ref-channel", options->ref_channel, "Channel of --ref, from 1")->needs(ref);
  verb->add_option("--para", options->para, "Binary parameter file (the default of the rate)")->type_name("FILE");
  verb->add_option("--rate", options->rate, "Rate to run at, Hz (8000 if the first input has no more, else 16000)")
      ->check(CLI::IsMember(served_rates));
  verb->add_option("--frame-ms", options->frame_ms, "Frame length, ms (20)")->check(CLI::IsMember(served_frame_ms));
  verb->add_flag("--json", options->json, "Print the diagnosis as JSON");
  verb->callback([=] { run_diagnosis(*folder, *options); });
}

} // namespace qv::tool
