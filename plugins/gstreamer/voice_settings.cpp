// The parameters of a qvvoice element, and what it tells about itself.

#include <algorithm>

#include <fmt/format.h>

#include "call/trace_table.h"
#include "voice.h"

namespace qv::gst {

/// A running call takes them up, too. @return what is wrong, and then nothing has changed, or nothing
std::string Voice::take(bool is_preset, const std::string &value) {
  Parameters taken;
  if (!value.empty()) {
    std::string wrong = is_preset ? taken.set_preset(value) : taken.set_parameters(value);
    if (!wrong.empty())
      return wrong;
    if (capture.call() && taken.rate() != capture.rate())
      return fmt::format("they are for {} Hz, the stream has {} Hz", taken.rate(), capture.rate());
  }
  if (capture.call()) {
    const config::Image words = taken.words(capture.rate(), capture.frame_length());
    if (const int32_t status = qv_call_replace_parameters(capture.call(), words.data(), nullptr))
      return QV_VOICE_StatusText(status);
  }
  parameters = taken;
  return "";
}

void Voice::set(bool is_preset, const std::string &value) {
  const char *name = is_preset ? "preset" : "parameters";
  std::unique_lock lock(guard);
  const bool running = capture.call();
  const int latency = running ? capture.latency() : 0;
  const std::string wrong = take(is_preset, value);
  if (wrong.empty() || !running)
    (is_preset ? preset : file) = value;
  problem = wrong.empty() || running ? "" : fmt::format("{}: {}", name, wrong);
  const bool moved = running && capture.latency() != latency;
  lock.unlock(); // who hears the messages may ask for properties
  if (running && !wrong.empty())
    GST_ELEMENT_WARNING(element, RESOURCE, SETTINGS, ("%s: %s", name, wrong.c_str()), ("the former parameters stay"));
  if (moved)
    gst_element_post_message(element, gst_message_new_latency(GST_OBJECT(element)));
}

bool Voice::open(int rate) {
  timeline.set_rate(rate);
  const int frame_length = rate / 1000 * int(frame_ms);
  if (capture.call() && capture.rate() == rate && capture.frame_length() == frame_length)
    return true;
  std::unique_lock lock(guard);
  const int32_t status = capture.open(rate, frame_length, noise_seed, parameters.words(rate, frame_length).data());
  lock.unlock();
  if (status != QV_VOICE_OK)
    GST_ELEMENT_ERROR(element, RESOURCE, SETTINGS, ("%s", QV_VOICE_StatusText(status)),
                      ("rate %d Hz, frame %u ms, parameters for %d Hz", rate, frame_ms, parameters.rate()));
  return status == QV_VOICE_OK;
}

/// A sample leaves when the frame is whole that the call needs for it.
void Voice::add_latency(GstQuery *query) const {
  const std::lock_guard lock(guard);
  if (!capture.call())
    return;
  gboolean is_live = FALSE;
  GstClockTime least = 0, most = 0;
  gst_query_parse_latency(query, &is_live, &least, &most);
  const GstClockTime own = to_time(capture.frame_length() + capture.latency(), capture.rate());
  gst_query_set_latency(query, is_live, least + own, GST_CLOCK_TIME_IS_VALID(most) ? most + own : most);
}

GstStructure *Voice::stats() {
  const std::lock_guard lock(guard);
  GstStructure *stats = gst_structure_new_empty("application/x-qvvoice-stats");
  if (!capture.call())
    return stats;
  QvVoiceTrace trace{};
  trace.size = sizeof trace;
  qv_call_trace(capture.call(), &trace);
  qv::tool::for_each_field(trace, [&](std::string name, auto value) {
    std::ranges::replace(name, '_', '-');
    if constexpr (std::is_floating_point_v<decltype(value)>)
      gst_structure_set(stats, name.c_str(), G_TYPE_DOUBLE, double(value), nullptr);
    else
      gst_structure_set(stats, name.c_str(), G_TYPE_INT, int(value), nullptr);
  });
  gst_structure_set(stats, "latency", G_TYPE_INT, capture.latency(), "reference-known", G_TYPE_UINT64,
                    capture.reference_known(), "reference-missing", G_TYPE_UINT64, capture.reference_missing(),
                    nullptr);
  return stats;
}

} // namespace qv::gst
