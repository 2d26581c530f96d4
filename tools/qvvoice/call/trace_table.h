/// @file trace_table.h  The library's trace as a table.
#pragma once

#include <string>

#include "qvvoice/qvvoice.h"

namespace qv::tool {

/// Calls `visit(name, value)` for every field but the size, in the order of the record.
template <class Visit> void for_each_field(const QvVoiceTrace &trace, const Visit &visit) {
  visit("tx_frame", trace.tx_frame);
  visit("rx_frame", trace.rx_frame);
  visit("echo_delay", trace.echo_delay);
  visit("delay_changed", trace.delay_changed);
  visit("talk_state", trace.talk_state);
  visit("leakage", trace.leakage);
  visit("filter_adapted", trace.filter_adapted);
  visit("foreground_refreshed", trace.foreground_refreshed);
  visit("background_reset", trace.background_reset);
  visit("filter_reset", trace.filter_reset);
  visit("linear_erle_db", trace.linear_erle_db);
  visit("erle_db", trace.erle_db);
  visit("suppressor_gain", trace.suppressor_gain);
  visit("muted", trace.muted);
  visit("tx_noise_db", trace.tx_noise.noise_db);
  visit("tx_noise_gain", trace.tx_noise.mean_gain);
  visit("tx_speech_presence", trace.tx_noise.speech_presence);
  visit("rx_noise_db", trace.rx_noise.noise_db);
  visit("rx_noise_gain", trace.rx_noise.mean_gain);
  visit("rx_speech_presence", trace.rx_noise.speech_presence);
  visit("tx_agc_gain", trace.tx_agc_gain);
  visit("rx_agc_gain", trace.rx_agc_gain);
  visit("comfort_noise", trace.comfort_noise);
  visit("state_space", trace.state_space);
  visit("filter_delay", trace.filter_delay);
  visit("filter_length", trace.filter_length);
  visit("path_changed", trace.path_changed);
  visit("single_talk", trace.single_talk);
  visit("drift_ppm", trace.drift_ppm);
  visit("explained", trace.explained);
  visit("expected_residual_db", trace.expected_residual_db);
}

/// Comma-separated: a line of names, then one line per frame. The first column, time_s, is where the frame starts in
/// the input, in seconds.
std::string trace_names();
std::string trace_line(const QvVoiceTrace &trace, double time);

} // namespace qv::tool
