// The elements between pads that the test holds: what leaves, when, and what is said, for every way in which a stream
// begins, breaks off and ends.

#include "elements.h"
#include "para/presets.h"

namespace qv::gst {
namespace {

const test::Layout layout = test::all_layouts[3];
const std::string preset = tool::para::preset_of(tool::para::default_family, layout.rate, layout.frame_len);

struct Both {
  Element probe{"qvvoiceprobe name=speaker"}, voice{"qvvoice probe=speaker"};
  const test::Call signals{layout, 100}; // 2 s
  Samples mic = signals.mic, ref = signals.far;

  Both() {
    probe.caps(16000);
    voice.caps(16000);
  }
  void play() { probe.push_in_pieces(ref, {480}); }
  /// Ends the microphone's stream. @return where what has left differs from what the tool makes of the signals
  std::string ends_unlike_the_tool(GstClockTime *first = nullptr) {
    voice.event(gst_event_new_eos());
    return difference(voice.pull(first), expected_of(preset, layout, mic, ref));
  }
};

// Catches a frame that is cut wrong, samples lost or doubled at the beginning or the end, and timestamps that drift.
TEST(Elements, buffers_of_any_length_give_the_samples_of_whole_frames) {
  for (const std::vector<size_t> &lengths : std::vector<std::vector<size_t>>{{320}, {1}, {1, 441, 3, 1024}, {5000}}) {
    Both both;
    both.mic.resize(31003);
    both.play();
    both.voice.push_in_pieces(both.mic, lengths);
    GstClockTime first = GST_CLOCK_TIME_NONE;
    EXPECT_EQ(both.ends_unlike_the_tool(&first), "") << lengths[0];
    EXPECT_EQ(first, 0u);
    EXPECT_EQ(both.voice.discontinuities, 1); // the first one
    EXPECT_EQ(difference(both.probe.pull(), both.ref), "");
  }
}

// The reference is found by time: it may begin elsewhere, and what it leaves out is silence.
TEST(Elements, reference_and_microphone_are_in_step_by_running_time) {
  Both both;
  both.probe.push(std::span(both.ref).subspan(8000), 500 * GST_MSECOND);
  std::fill(both.ref.begin(), both.ref.begin() + 8000, int16_t(0));
  both.voice.push_in_pieces(both.mic, {1000});
  EXPECT_EQ(both.ends_unlike_the_tool(), "");
  EXPECT_EQ(both.voice.stat("reference-missing"), 8000u + 320u);
}

// Live, what the probe hears is played later: by its pipeline's latency, and in a pipeline of its own at another base.
TEST(Elements, live_the_reference_is_what_is_played_when_it_is_played) {
  Both both;
  gst_harness_set_live(both.voice.harness, TRUE);
  gst_element_set_base_time(both.probe.element, 1000 * GST_MSECOND);
  gst_element_set_base_time(both.voice.element, 1300 * GST_MSECOND);
  gst_harness_push_upstream_event(both.probe.harness, gst_event_new_latency(200 * GST_MSECOND));
  both.play();
  both.voice.push_in_pieces(both.mic, {320});
  const size_t ahead = (300 - 200 + 10) * 16; // 10 ms of lead
  both.ref.erase(both.ref.begin(), both.ref.begin() + long(ahead));
  EXPECT_EQ(both.ends_unlike_the_tool(), "");
}

TEST(Elements, short_gaps_are_silence_and_long_ones_a_new_beginning) {
  const struct {
    const char *name;
    size_t gap;     // samples of the microphone that do not come, at 1 s
    int beginnings; // marked as discontinuous
  } cases[] = {{"lost", 800, 1}, {"gap event", 4800, 1}, {"flagged", 4800, 1}, {"long", 24000, 2}};
  for (const auto &[name, gap, beginnings] : cases) {
    Both both;
    both.play();
    const std::span<const int16_t> mic(both.mic);
    const GstClockTime at = GST_SECOND, end = at + gap * GST_SECOND / 16000;
    both.voice.push(mic.first(16000), 0);
    if (name == std::string("gap event"))
      both.voice.event(gst_event_new_gap(at, end - at));
    if (name == std::string("flagged")) {
      GstBuffer *loud = buffer_of(mic.subspan(16000, gap), at);
      GST_BUFFER_FLAG_SET(loud, GST_BUFFER_FLAG_GAP);
      gst_harness_push(both.voice.harness, loud);
    }
    if (gap > 16000) {
      both.voice.push(mic.first(8000), end);
      both.voice.event(gst_event_new_eos());
      both.mic.resize(16000);
      Samples sent = both.voice.pull();
      ASSERT_EQ(sent.size(), 24000u) << name;
      sent.resize(16000);
      EXPECT_EQ(difference(sent, expected_of(preset, layout, both.mic, both.ref)), "") << name;
    } else {
      both.voice.push(mic.subspan(16000 + gap), end);
      std::fill_n(both.mic.begin() + 16000, gap, int16_t(0));
      EXPECT_EQ(both.ends_unlike_the_tool(), "") << name;
    }
    EXPECT_EQ(both.voice.discontinuities, beginnings) << name;
  }
}

TEST(Elements, device_timestamps_that_wander_move_nothing) {
  Both both;
  both.play();
  for (size_t at = 0; at < both.mic.size(); at += 160)
    both.voice.push(std::span(both.mic).subspan(at, 160), at * GST_SECOND / 16000 + (at / 160 % 3) * 7 * GST_MSECOND);
  EXPECT_EQ(both.ends_unlike_the_tool(), "");
}

// After a flush nothing of before leaves, and what was learnt stays: the call is the same.
TEST(Elements, a_flush_begins_anew) {
  Both both;
  both.play();
  both.voice.push(std::span(both.mic).first(16100));
  both.voice.pull();
  for (Element *element : {&both.probe, &both.voice}) {
    element->event(gst_event_new_flush_start());
    element->event(gst_event_new_flush_stop(TRUE));
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    segment.start = segment.time = segment.position = GST_SECOND / 2;
    element->event(gst_event_new_segment(&segment));
  }
  both.probe.push(both.ref, GST_SECOND / 2);
  both.voice.push(std::span(both.mic).first(9999), GST_SECOND / 2);
  both.voice.event(gst_event_new_eos());
  GstClockTime first = 0;
  EXPECT_EQ(both.voice.pull(&first).size(), 9999u);
  EXPECT_EQ(first, GST_SECOND / 2);
  EXPECT_EQ(both.voice.discontinuities, 2);
  EXPECT_GT(both.voice.stat("reference-known"), 25000u); // counted since the call began
}

TEST(Elements, latency_is_the_frame_and_what_the_call_needs_ahead) {
  for (const auto &[launch, rate, ms] :
       {std::tuple{"qvvoice preset=balanced-16k-20ms", 16000, 40}, {"qvvoice frame-ms=16", 8000, 32}}) {
    Element voice(launch);
    gst_harness_set_live(voice.harness, TRUE);
    gst_harness_set_upstream_latency(voice.harness, 5 * GST_MSECOND);
    voice.caps(rate);
    EXPECT_EQ(gst_harness_query_latency(voice.harness), GstClockTime(5 + ms) * GST_MSECOND) << launch;
  }
}

TEST(Elements, parameters_decide_the_rate_that_is_negotiated) {
  for (const auto &[launch, rates] :
       {std::pair{"qvvoice", "8000, 16000"}, {"qvvoice preset=noise-only-8k-20ms", "8000"}}) {
    Element voice(launch);
    GstPad *pad = gst_element_get_static_pad(voice.element, "sink");
    GstCaps *caps = gst_pad_query_caps(pad, nullptr),
            *right = gst_caps_from_string(
                (std::string("audio/x-raw,format=S16LE,channels=1,layout=interleaved,rate={") + rates + "}").c_str());
    EXPECT_TRUE(gst_caps_is_equal(caps, right)) << launch << gst_caps_to_string(caps);
    gst_caps_unref(caps);
    gst_caps_unref(right);
    gst_object_unref(pad);
  }
}

TEST(Elements, a_missing_probe_is_named_beside_those_that_exist_and_another_rate_is_an_error) {
  Both both;
  Element ringer("qvvoiceprobe name=ringer"), lost("qvvoice probe=speeker"), open("qvvoice");
  for (Element *voice : {&lost, &open}) {
    voice->caps(16000);
    voice->push(std::span(both.mic).first(640));
  }
  EXPECT_EQ(lost.complaint(), "there is no probe speeker; there are: speaker, ringer");
  EXPECT_EQ(open.complaint(), "there is no probe to choose; there are: speaker, ringer");
  lost.push(std::span(both.mic).first(640));
  EXPECT_EQ(lost.complaint(), ""); // once
  lost.set("probe", "ringer");
  lost.push(std::span(both.mic).first(320));
  EXPECT_EQ(lost.complaint(), "");
  Element narrow("qvvoice probe=speaker");
  narrow.caps(8000);
  narrow.push(std::span(both.mic).first(640));
  EXPECT_EQ(narrow.complaint(), "probe speaker has 16000 Hz, the microphone 8000 Hz: both must have the same");
}

TEST(Elements, parameters_change_while_playing_or_are_refused_with_the_reason) {
  Both both;
  both.play();
  const std::span<const int16_t> mic(both.mic);
  both.voice.push(mic.first(16000));
  both.voice.set("preset", "balanced-16k");
  EXPECT_TRUE(
      both.voice.complaint().starts_with("preset: there is no preset \"balanced-16k\"; there are balanced-16k-16ms, "));
  both.voice.set("parameters", "base = \"clear-16k-20ms\"\n[aec]\nenabel = false\n");
  EXPECT_NE(both.voice.complaint().find("text:3: error: aec.enabel"), std::string::npos);
  both.voice.set("preset", "balanced-8k-20ms");
  EXPECT_NE(both.voice.complaint().find("for 8000 Hz"), std::string::npos);
  both.voice.set("preset", "balanced-16k-20ms");
  EXPECT_NE(both.voice.complaint().find("state-space echo canceller on or off"), std::string::npos);
  both.voice.set("parameters", "base = \"clear-16k-20ms\"\n[aec]\nenable = false\n[tx.anr]\nenable = false\n");
  both.voice.pull();
  both.voice.push(mic.subspan(16000, 1600));
  Samples sent = both.voice.pull();
  EXPECT_EQ(both.voice.complaint(), "");
  ASSERT_GE(sent.size(), 1280u);
  EXPECT_EQ(Samples(sent.begin() + 640, sent.begin() + 1280), Samples(640)); // silent frames of the pause
  both.voice.set("preset", "full-duplex-16k-20ms");
  gchar *now = nullptr;
  g_object_get(both.voice.element, "preset", &now, nullptr); // what is refused is not there
  EXPECT_EQ(now, nullptr) << now;
  g_free(now);
}

// With either canceller: the filter finds an echo, loses nothing while somebody talks, and finds the echo elsewhere.
TEST(Elements, what_happens_to_the_echo_is_posted) {
  for (const char *kind : {"clear-16k-20ms", "balanced-16k-20ms"}) {
    SCOPED_TRACE(kind);
    Both both;
    both.voice.set("preset", kind);
    const Samples talker = both.mic;
    const auto talk = [&](int times, size_t delay, bool near) {
      for (size_t at = 0; at < both.mic.size(); ++at)
        both.mic[at] = int16_t((at < delay ? 0 : both.ref[at - delay] / 2) + (near ? talker[at] : 0));
      for (; times > 0; --times) {
        both.play();
        both.voice.push_in_pieces(both.mic, {320});
      }
    };
    const auto told = [&](const char *name) { return both.voice.messages(name); };
    talk(4, 700, false);
    talk(2, 700, true);
    EXPECT_EQ(told("qvvoice-reference-found"), 1);
    EXPECT_EQ(told("qvvoice-converged"), 1);
    EXPECT_EQ(told("qvvoice-delay-moved"), 0);
    talk(4, 2300, false);
    EXPECT_EQ(told("qvvoice-delay-moved"), 1);
    EXPECT_EQ(told("qvvoice-reference-lost"), 0);
    both.voice.push_in_pieces(both.mic, {320}); // nothing plays
    EXPECT_EQ(told("qvvoice-reference-lost"), 1);
  }
}

} // namespace
} // namespace qv::gst
