// The verb `process`: recordings of a call through the library.

#include <algorithm>
#include <memory>

#include "para/presets.h"
#include "parameters.h"
#include "process/summary.h"
#include "support/error.h"
#include "verbs.h"

namespace qv::tool {
namespace {

using process::Inputs;
using process::Options;

constexpr const char *examples = R"(
Transmit: what is sent, from the microphone and what the loudspeaker played
  qvvoice process --mic mic.wav --ref loudspeaker.wav --out sent.wav
Receive: what is played, from what came from the far end
  qvvoice process --far far.wav --played loudspeaker.wav
Both directions in one run; the receive result is the echo reference
  qvvoice process --far far.wav --mic mic.wav --out sent.wav --played loudspeaker.wav
One stereo file, channel 1 microphone and channel 2 reference, own parameters, result in time with the input
  qvvoice process --stereo call.flac --para board.bin --rate 16000 --out sent.wav --compensate
Headerless A-law, with the trace of every frame
  qvvoice process --raw alaw --raw-rate 8000 --mic mic.al --ref ref.al --out sent.wav --trace frames.csv
In a pipe: WAV goes in and out as it comes, the summary to standard error
  arecord -D hw:1 -f S16_LE -c 2 -r 48000 | qvvoice process --stereo - --out - | aplay
  ffmpeg -i call.mkv -f wav - | qvvoice process --stereo - --out - | ffmpeg -i - sent.mp3
  qvvoice process --raw s16le --raw-rate 16000 --mic - --ref ref.raw --out - --raw-out <mic.raw | sox -t raw ...)";

/// What is wrong with the combination of options; a path needs its inputs and its result.
void check_combination(const Options &options) {
  const bool transmits = options.mic || options.stereo;
  if (!transmits && !options.far)
    throw InputError("no input: give --mic and --ref (transmit), --far (receive), --far and --mic (both), or --stereo");
  if (options.mic && !options.ref && !options.far)
    throw InputError("--mic needs the echo reference: give --ref, what the loudspeaker played, or --far, whose receive "
                     "result is then the reference");
  if (transmits && !options.out)
    throw InputError("no place for what is sent: give --out");
  if (!transmits && options.out)
    throw InputError("--out has no effect without --mic or --stereo; the receive result goes to --played");
  if (options.far && !transmits && !options.played)
    throw InputError("no place for what is played: give --played");
  if (std::ranges::count_if(options.results(), is_standard_stream) > 1)
    throw InputError("- is standard output and takes one of --out, --played and --trace; name a file for the others");
}

void add_inputs(CLI::App &verb, Options &options) {
  const std::string group = "Inputs";
  CLI::Option *mic = verb.add_option("--mic", options.mic, "Near-end microphone")->group(group);
  CLI::Option *ref = verb.add_option("--ref", options.ref, "What the loudspeaker played: the echo reference");
  CLI::Option *far = verb.add_option("--far", options.far, "What came from the far end")->group(group);
  verb.add_option("--stereo", options.stereo, "Microphone in channel 1, reference in channel 2")
      ->group(group)
      ->excludes(mic, ref, far);
  ref->group(group)->needs(mic)->excludes(far);
  verb.add_option("--mic-channel", options.mic_channel, "Channel of --mic, from 1")->group(group)->needs(mic);
  verb.add_option("--ref-channel", options.ref_channel, "Channel of --ref, from 1")->group(group)->needs(ref);
  verb.add_option("--far-channel", options.far_channel, "Channel of --far, from 1")->group(group)->needs(far);
  CLI::Option *raw = verb.add_option("--raw", options.raw, "Inputs have no header; their encoding")
                         ->check(CLI::IsMember(raw_encodings()))
                         ->group(group);
  CLI::Option *raw_rate = verb.add_option("--raw-rate", options.raw_rate, "Sample rate of headerless inputs, Hz");
  raw_rate->check(CLI::Range(1000, 768000))->needs(raw)->group(group);
  raw->needs(raw_rate);
  verb.add_option("--raw-channels", options.raw_channels, "Channels of headerless inputs (1)")
      ->check(CLI::Range(1, 64))
      ->needs(raw)
      ->group(group);
  for (const char *file : {"--mic", "--ref", "--far", "--stereo"})
    verb.get_option(file)->type_name("FILE|-");
  for (const char *channel : {"--mic-channel", "--ref-channel", "--far-channel"})
    verb.get_option(channel)->check(CLI::Range(1, 1024));
}

void add_results(CLI::App &verb, Options &options) {
  const std::string group = "Results";
  verb.add_option("-o,--out", options.out, "Transmit result, 16-bit WAV")->group(group);
  verb.add_option("--played", options.played, "Receive result, 16-bit WAV")->group(group)->needs("--far");
  verb.add_option("--trace", options.trace, "What the library did in every frame, CSV")->group(group);
  for (const char *file : {"--out", "--played", "--trace"})
    verb.get_option(file)->type_name("FILE|-");
  verb.add_flag("--raw-out", options.raw_out, "Results without a header: 16-bit samples, little-endian, one channel")
      ->group(group);
  verb.add_flag("--json", options.json, "Print the summary as JSON")->group(group);
}

void add_settings(CLI::App &verb, Options &options) {
  const std::string group = "Settings";
  add_parameters(verb, options.para,
                 fmt::format("Parameters ({}, for the rate and frame length)", para::default_family))
      ->group(group);
  verb.add_option("--rate", options.rate, "Rate to run at, Hz (8000 if the first input has no more, else 16000)")
      ->check(CLI::IsMember(served_rates))
      ->group(group);
  verb.add_option("--frame-ms", options.frame_ms, "Frame length, ms (20)")
      ->check(CLI::IsMember(served_frame_ms))
      ->group(group);
  verb.add_flag("--compensate", options.compensate, "Take the library's delay out of the results")->group(group);
}

bool into_standard_output(const Options &options) { return std::ranges::any_of(options.results(), is_standard_stream); }

void process_call(const Options &options) {
  check_combination(options);
  Inputs inputs = open_inputs(options);
  const Setup setup = make_setup(options.para, inputs.rate, options.frame_ms);

  std::vector<std::string> read;
  for (const process::Input *input : inputs.given())
    read.push_back(input->source().path);
  if (options.para)
    read.push_back(*options.para);
  process::Results results;
  if (options.out)
    results.sent.emplace("out", *options.out, read, setup.rate, !options.raw_out);
  if (options.played)
    results.played.emplace("played", *options.played, read, setup.rate, !options.raw_out);
  if (options.trace)
    results.trace.emplace(*options.trace, read);

  const process::Account account = run_call(setup, inputs, results, options.compensate);
  results.commit();
  const auto summary = summarise(options, setup, inputs, results, account);
  std::FILE *to = into_standard_output(options) ? stderr : stdout;
  if (options.json)
    fmt::print(to, "{}\n", summary.dump(2, ' ', false, nlohmann::json::error_handler_t::replace));
  else
    fmt::print(to, "{}", process::as_text(summary));
}

} // namespace

void add_process(CLI::App &app) {
  const auto options = std::make_shared<Options>();
  CLI::App *verb = app.add_subcommand("process", "Runs recordings of a call through the library");
  verb->footer(examples);
  add_inputs(*verb, *options);
  add_results(*verb, *options);
  add_settings(*verb, *options);
  verb->callback([options] { process_call(*options); });
}

} // namespace qv::tool
