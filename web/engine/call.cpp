// Questions about the call at hand: its recordings, its runs through the library, and what both show.

#include <algorithm>
#include <array>
#include <memory>
#include <optional>

#include <fmt/format.h>

#include "diagnose/diagnose.h"
#include "dsp/layout.h"
#include "engine.h"
#include "measure/results.h"
#include "report/lanes.h"
#include "report/numbers.h"
#include "report/spectrogram.h"
#include "signal/resample.h"

namespace qv::web {
namespace {

using namespace tool;

/// One set of parameters and what became of the call with it.
struct Slot {
  Setup setup{};
  std::unique_ptr<RunInProgress> run;
  std::optional<measure::Output> output;
};

measure::Subject subject;
std::optional<measure::Known> known; ///< of the subject, when first asked for
std::vector<DelayPoint> delays;      ///< of its echo, as the diagnosis found them
std::array<Slot, 2> slots;           ///< a, b

Slot &slot_of(const Json &request) { return slots[request.at("slot") == "b"]; }

Json samples_json(const Samples &samples) { return place_of<int16_t>("Int16Array", samples); }

/// A recording as the page has it: 16-bit, or floats with full scale 1.
Samples samples_at(const Json &recording, int rate) {
  const Json &place = recording.at("samples");
  const int own_rate = recording.at("rate");
  if (place.at("type") == "Int16Array" && own_rate == rate) {
    const auto samples = array_at<int16_t>(place);
    return {samples.begin(), samples.end()};
  }
  Signal signal;
  if (place.at("type") == "Int16Array") {
    signal = to_signal(array_at<int16_t>(place));
  } else {
    const auto floats = array_at<float>(place);
    signal.assign(floats.begin(), floats.end());
  }
  return to_samples(own_rate == rate ? signal : resample(signal, own_rate, rate));
}

Json call(const Json &request) {
  const int mic_rate = request.at("mic").at("rate"), ref_rate = request.at("ref").at("rate");
  const int wanted = request.value("rate", 0);
  const int rate = wanted ? wanted : mic_rate <= narrow_rate ? narrow_rate : wide_rate;
  Json notes = Json::array();
  const auto read = [&](const char *role, const char *title, int own_rate) {
    if (own_rate != rate)
      notes.push_back(fmt::format("{} converted from {} to {} Hz", title, own_rate, rate));
    return samples_at(request.at(role), rate);
  };
  measure::Subject next{"", rate, read("mic", "microphone", mic_rate), read("ref", "reference", ref_rate), {}, {}, {}};
  const size_t length = std::max(next.mic.size(), next.ref.size());
  for (const auto &[title, samples] : {std::pair("microphone", &next.mic), {"reference", &next.ref}})
    if (samples->size() < length) {
      notes.push_back(
          fmt::format("{} filled up with {:.2f} s of zeros", title, double(length - samples->size()) / rate));
      samples->resize(length);
    }
  if (length == 0)
    return refused("the recordings hold no samples; at least one is needed");
  slots = {};
  known.reset();
  delays.clear();
  subject = std::move(next);
  return {{"rate", rate},
          {"seconds", double(length) / rate},
          {"notes", notes},
          {"mic", samples_json(subject.mic)},
          {"ref", samples_json(subject.ref)}};
}

Json render(const Json &request) {
  const config::Image image = image_in(request);
  const int frame_ms = request.at("frame_ms");
  if (subject.mic.empty())
    return refused("there is no call yet; open a microphone and a reference recording");
  if (image[config::rate_word] != subject.rate)
    return refused(
        fmt::format("the parameters are for {} Hz, the call has {} Hz", image[config::rate_word], subject.rate));
  Slot &slot = slot_of(request);
  slot.run.reset();
  slot.setup = {image, "", subject.rate, frame_length(subject.rate, frame_ms)};
  slot.run = std::make_unique<RunInProgress>(slot.setup,
                                             RunInProgress::Inputs{.mic = &subject.mic, .ref = &subject.ref}, true);
  return {{"frames", slot.run->frames()}};
}

/// Some frames of a run; with the last one its output.
Json step(const Json &request) {
  Slot &slot = slot_of(request);
  for (int left = request.at("frames"); left > 0; --left)
    if (!slot.run->next_frame()) {
      slot.output = measure::output_of(slot.run->take(), slot.setup);
      slot.run.reset();
      return {{"out", samples_json(slot.output->sent)}, {"latency", slot.output->latency}};
    }
  return {{"done", slot.run->done()}};
}

Json picture(const Json &request) {
  static report::GreyPicture kept;
  const std::string name = request.at("signal");
  const Samples *samples = name == "mic" ? &subject.mic : name == "ref" ? &subject.ref : nullptr;
  if (const auto &output = slots[name == "b"].output; !samples && output)
    samples = &output->sent;
  if (!samples)
    return refused("there is no such signal yet: " + name);
  const auto scale = report::spectrogram_scale(samples->size(), subject.rate);
  kept = report::spectrogram(*samples, subject.rate, scale);
  return {{"columns", scale.columns},
          {"rows", scale.rows},
          {"column_seconds", scale.column_seconds},
          {"row_hz", scale.row_hz},
          {"greys", place_of<uint8_t>("Uint8Array", kept.pixels)}};
}

Json level_json(const measure::Value &level) { return level.known() ? Json(level.number()) : Json(); }

Json measured(const Json &) {
  const auto &[a, b] = slots;
  if (!a.output)
    return refused("set A has not been rendered yet");
  if (!known)
    known.emplace(subject);
  const measure::Results of_a = measure::measure(*known, *a.output);
  std::optional<measure::Results> of_b;
  std::optional<report::RunView> other;
  if (b.output) {
    of_b = measure::measure(*known, *b.output);
    other.emplace(report::RunView{*b.output, *of_b});
  }
  const report::RunView run{*a.output, of_a};
  return {{"lanes", report::lanes(subject, run, other, delays)},
          {"strips", report::strips(subject, run, other)},
          {"numbers", report::numbers(of_a, of_b ? &*of_b : nullptr)},
          {"loudness",
           {{"mic", level_json(of_a.mic_level_dbfs)},
            {"ref", level_json(of_a.ref_level_dbfs)},
            {"a", level_json(of_a.out_level_dbfs)},
            {"b", of_b ? level_json(of_b->out_level_dbfs) : Json()}}}};
}

Json diagnosis(const Json &) {
  const Slot &a = slots[0];
  if (!a.output)
    return refused("set A has not been rendered yet");
  const diagnose::Evidence evidence(a.setup, subject.mic, subject.ref, a.output->sent, a.output->trace);
  delays = evidence.delay.points;
  return to_json(diagnose::diagnose(evidence));
}

} // namespace

std::span<const Verb> call_verbs() {
  static constexpr Verb verbs[] = {{"call", call},       {"render", render},    {"step", step},
                                   {"picture", picture}, {"measure", measured}, {"diagnose", diagnosis}};
  return verbs;
}

} // namespace qv::web
