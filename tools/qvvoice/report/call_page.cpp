#include "report/call_page.h"

#include <algorithm>
#include <functional>

#include <fmt/format.h>

#include "diagnose/diagnose.h"
#include "embedded/tuner_page.h"
#include "report/html.h"
#include "report/numbers.h"
#include "report/spectrogram.h"
#include "report/tuner_data.h"
#include "support/progress.h"

namespace qv::tool::report {
namespace {

struct SignalView16 {
  const char *id, *title;
  const std::vector<int16_t> &samples;
};

double sound_seconds(const CallReport &call) {
  return std::min(double(call.subject.mic.size()) / call.subject.rate, longest_part);
}

Json signal_json(const SignalView16 &signal, int rate, const SpectrogramScale &scale) {
  const size_t heard = std::min(signal.samples.size(), size_t(longest_part) * size_t(rate));
  const Audio sound{rate, {signal.samples.begin(), signal.samples.begin() + std::ptrdiff_t(heard)}};
  return {{"id", signal.id},
          {"title", signal.title},
          {"picture", base64(png(spectrogram(signal.samples, rate, scale)))},
          {"audio", base64(flac(sound))}};
}

Json signals(const CallReport &call, const SpectrogramScale &scale) {
  std::vector<SignalView16> all = {{"mic", "Microphone", call.subject.mic},
                                   {"ref", "Reference", call.subject.ref},
                                   {"out", "Output", call.output.sent}};
  if (call.other)
    all.push_back({"other", "Other output", call.other->output.sent});
  Json json = Json::array();
  for (const SignalView16 &signal : all)
    json.push_back(signal_json(signal, call.subject.rate, scale));
  return json;
}

Json links_json(const Links &links) {
  Json json = Json::object();
  for (const auto &[kind, link] :
       {std::pair("front", &links.front), {"previous", &links.previous}, {"next", &links.next}})
    if (*link)
      json[kind] = {{"title", (*link)->title}, {"href", (*link)->href}};
  return json;
}

std::string about(const CallReport &call) {
  std::string text =
      fmt::format("{} Hz, frames of {} samples, {:.1f} s; parameters: {}; {} samples of delay taken out",
                  call.subject.rate, call.setup.frame_len, double(call.subject.mic.size()) / call.subject.rate,
                  call.output.source, call.output.latency);
  if (call.other)
    text += fmt::format("; other: {}", call.other->output.source);
  const size_t merged = frames_per_point(call.output.trace.size());
  if (merged > 1)
    text += fmt::format("; a long call: a point of the charts stands for {:.2f} s",
                        double(merged) * call.setup.frame_len / call.subject.rate);
  if (sound_seconds(call) < double(call.subject.mic.size()) / call.subject.rate)
    text += fmt::format("; the page plays and diagnoses the first {:.0f} minutes: for another part make a page of that "
                        "part of the recordings",
                        longest_part / 60);
  return text;
}

Json page_data(const CallReport &call, const Links &links) {
  const SpectrogramScale scale = spectrogram_scale(call.subject.mic.size(), call.subject.rate);
  const RunView run{call.output, call.results};
  std::optional<RunView> other;
  if (call.other)
    other.emplace(RunView{call.other->output, call.other->results});
  Json data = {{"name", call.name},
               {"about", about(call)},
               {"made", fmt::format("Made by qvvoice {}", QV_VOICE_Version())},
               {"rate", call.subject.rate},
               {"parameters", parameters_json(call.setup)},
               {"seconds", double(call.subject.mic.size()) / call.subject.rate},
               {"sound_seconds", sound_seconds(call)},
               {"links", links_json(links)},
               {"spectrogram",
                {{"column_seconds", scale.column_seconds},
                 {"row_hz", scale.row_hz},
                 {"grey_of_full_scale", grey_of_full_scale}}},
               {"diagnosis", to_json(call.diagnosis)},
               {"numbers", numbers(call.results, call.other ? &call.other->results : nullptr)},
               {"strips", strips(call.subject, run, other)},
               {"lanes", lanes(call.subject, run, other, call.delays)},
               {"signals", signals(call, scale)}};
  if (call.other)
    data["other"] = call.other->name;
  return data;
}

template <class Value> std::vector<Value> beginning(const std::vector<Value> &all, size_t count) {
  return {all.begin(), all.begin() + std::ptrdiff_t(std::min(count, all.size()))};
}

} // namespace

CallReport examine(std::string name, measure::Subject subject, const Setup &setup) {
  CallReport call{std::move(name), setup, std::move(subject), {}, {}, {}, {}, {}};
  {
    Progress bar("processing");
    call.output = run_library(call.subject, setup, std::ref(bar));
  }
  {
    Progress bar("measuring");
    call.results = measure::measure(measure::Known(call.subject, std::ref(bar)), call.output);
  }
  call.output.plain = {}; // was needed to measure, and is the largest of all
  const Progress bar("diagnosing");
  const auto samples = size_t(longest_part) * size_t(setup.rate);
  const auto mic = beginning(call.subject.mic, samples), ref = beginning(call.subject.ref, samples),
             sent = beginning(call.output.sent, samples);
  const auto trace =
      beginning(call.output.trace, (samples + size_t(call.output.latency)) / size_t(setup.frame_len) + 1);
  const diagnose::Evidence evidence(setup, mic, ref, sent, trace);
  call.delays = evidence.delay.points;
  call.diagnosis = diagnose::diagnose(evidence);
  return call;
}

std::string call_page(const CallReport &call, const Links &links) {
  const Progress bar("drawing");
  const std::string_view tuner = embedded::packed_tuner_page();
  return fill("call.html", {{"title", escape(call.name)},
                            {"data", script_json(page_data(call, links))},
                            {"tuner", base64({reinterpret_cast<const uint8_t *>(tuner.data()), tuner.size()})}});
}

} // namespace qv::tool::report
