// Calls of one's own: the same bytes as the process's, statuses, parameters replaced while they run.

#include <cmath>
#include <cstring>
#include <numbers>

#include "calls.h"

namespace {

using namespace qv::test;
using qv::config::Image;

constexpr Layout wide = {16000, 320, 32};
constexpr size_t comfort_noise = 440, canceller = 10, tracking = 11, echo_delay = 12, tx_reducer = 100,
                 rx_reducer = 110, tx_gain_control = 120, rx_gain_control = 140, tx_equaliser = 160, rx_equaliser = 300;

Image quiet_image(int32_t rate) {
  Image image = busy_image(rate);
  image[comfort_noise] = 0;
  return image;
}

Image quiet_marked_image(int32_t rate) {
  Image image = marked(quiet_image(rate));
  set_value(qv::config::table::echo_control.back(), image, 0, 0); // its background
  return image;
}

// Comfort noise apart, which has another generator: byte for byte.
TEST(Calls, give_the_bytes_of_the_process_entry_points) {
  for (const Layout &layout : all_layouts) {
    const Call signals(layout, 120);
    for (const Image &image : {quiet_image(layout.rate), quiet_marked_image(layout.rate)}) {
      ASSERT_EQ(QV_VOICE_InitImage(image.data(), layout.rate, layout.frame_len), QV_VOICE_OK);
      const Outputs expected = run(layout, signals);
      int32_t tx[2], rx[2];
      ASSERT_EQ(QV_VOICE_GetLatency(tx, rx), QV_VOICE_OK);
      const CallPtr call = make_call(layout, image);
      EXPECT_EQ(run(call.get(), layout, signals), expected) << layout;
      ASSERT_EQ(qv_call_latency(call.get(), tx + 1, rx + 1), QV_VOICE_OK);
      EXPECT_EQ(tx[0], tx[1]);
      EXPECT_EQ(rx[0], rx[1]);
      const QvVoiceTrace process = trace(), own = trace_of(call);
      EXPECT_EQ(std::memcmp(&process, &own, sizeof own), 0) << layout;
      EXPECT_EQ(own.tx_frame, 120u);
      EXPECT_EQ(own.state_space, image != quiet_image(layout.rate));
    }
  }
  EXPECT_EQ(QV_VOICE_Destory(), QV_VOICE_OK);
}

TEST(Calls, comfort_noise_follows_the_seed) {
  const Call signals(wide, 60);
  const auto sent = [&](uint32_t seed) {
    return run(make_call(wide, busy_image(16000), seed).get(), wide, signals).sent;
  };
  const Samples first = sent(1);
  EXPECT_EQ(sent(1), first);
  EXPECT_NE(sent(2), first);
  EXPECT_EQ(sent(UINT32_MAX), sent(UINT32_MAX));
}

TEST(Calls, refuse_what_they_cannot_run) {
  struct Case {
    const char *what;
    uint32_t size;
    int32_t rate, frame_len;
    int16_t word0, word9;
    int32_t status;
  };
  for (const Case &c : {Case{"as it should be", 16, 16000, 320, 16000, 1111, QV_VOICE_OK},
                        Case{"a record without the seed", 12, 16000, 320, 16000, 1111, QV_VOICE_OK},
                        Case{"a record without the layout", 8, 16000, 320, 16000, 1111, QV_VOICE_BAD_ARGUMENT},
                        Case{"another rate's frame", 16, 8000, 320, 8000, 1111, QV_VOICE_REFUSED},
                        Case{"another rate's words", 16, 16000, 320, 8000, 1111, QV_VOICE_REFUSED},
                        Case{"words without the mark", 16, 16000, 320, 16000, 1110, QV_VOICE_REFUSED}}) {
    Image image = busy_image(16000);
    image[0] = c.word0;
    image[9] = c.word9;
    const qv_call_config config = {c.size, c.rate, c.frame_len, 1};
    qv_call *call = nullptr;
    EXPECT_EQ(qv_call_create(&config, image.data(), &call), c.status) << c.what;
    EXPECT_EQ(call != nullptr, c.status == QV_VOICE_OK) << c.what;
    qv_call_destroy(call);
  }
  qv_call *call = nullptr;
  const qv_call_config config = config_of(wide);
  EXPECT_EQ(qv_call_create_from_file(&config, "/nowhere/at.all", &call), QV_VOICE_NO_FILE);
  EXPECT_EQ(qv_call_create_from_file(nullptr, "/nowhere/at.all", &call), QV_VOICE_BAD_ARGUMENT);
  EXPECT_EQ(qv_call_create_from_file(&config, nullptr, &call), QV_VOICE_BAD_ARGUMENT);
  EXPECT_EQ(qv_call_create(&config, nullptr, &call), QV_VOICE_BAD_ARGUMENT);
}

// The canceller reads the microphone after `out` has been written: an overlap by a single sample counts.
TEST(Calls, refuse_buffers_that_overlap_while_the_canceller_runs) {
  Image image = busy_image(16000);
  const CallPtr cancelling = make_call(wide, image), state_space = make_call(wide, marked(image));
  image[canceller] = 0;
  const CallPtr reducing = make_call(wide, image);
  Samples buffer(2000, 100), far(320, 0);
  int16_t *at = buffer.data() + 800;
  for (const auto &[offset, status] : {std::pair{0, QV_VOICE_BAD_ARGUMENT},
                                       {319, QV_VOICE_BAD_ARGUMENT},
                                       {-319, QV_VOICE_BAD_ARGUMENT},
                                       {320, QV_VOICE_OK},
                                       {-320, QV_VOICE_OK}}) {
    for (qv_call *call : {cancelling.get(), state_space.get()}) {
      EXPECT_EQ(qv_call_transmit(call, at, far.data(), at + offset), status) << offset;
      EXPECT_EQ(qv_call_transmit(call, far.data(), at, at + offset), status) << offset;
    }
  }
  EXPECT_EQ(qv_call_transmit(reducing.get(), at, far.data(), at), QV_VOICE_OK);
  EXPECT_EQ(qv_call_transmit(nullptr, at, far.data(), at), QV_VOICE_BAD_ARGUMENT);
  EXPECT_EQ(qv_call_transmit(reducing.get(), at, nullptr, at), QV_VOICE_BAD_ARGUMENT);
}

/// Largest jump between neighbouring samples.
int32_t steepest(const Samples &signal, size_t first, size_t last) {
  int32_t jump = 0;
  for (size_t i = first + 1; i < last; ++i)
    jump = std::max(jump, std::abs(signal[i] - signal[i - 1]));
  return jump;
}

// A steady tone is as smooth across a replacement as before and after it, whatever changes. And the change arrives:
// from half a second later on the bytes are those of a call that has had the new parameters all the time.
TEST(Replacement, does_not_click_and_arrives) {
  struct Case {
    const char *what;
    std::vector<std::pair<size_t, int16_t>> words;
    uint32_t effects;
  };
  const Image defaults = qv::config::default_image(16000);
  Image plain{};
  plain[0] = 16000;
  plain[9] = qv::config::magic;
  for (const size_t equaliser : {tx_equaliser, rx_equaliser}) {
    plain[equaliser + 1] = 1;
    plain[equaliser + 2] = 30000;
  }
  for (const size_t gain_control : {tx_gain_control, rx_gain_control})
    std::copy_n(&defaults[gain_control + 1], 11, &plain[gain_control + 1]);
  std::vector<std::pair<size_t, int16_t>> long_response = {{300, 1}, {301, 129}};
  for (size_t i = 0; i < 129; ++i)
    long_response.emplace_back(302 + i, int16_t(i == 128 ? -16000 : i % 3 * 30));
  for (const Case &c :
       {Case{"nothing", {}, 0}, Case{"an equaliser of 257 taps, phase reversed", long_response, 0},
        Case{"gain control on", {{rx_gain_control, 1}}, 0},
        Case{"noise reducer on", {{rx_reducer, 1}, {111, 32767}}, QV_CALL_RECEIVE_PAUSES},
        Case{"all at once", {{rx_reducer, 1}, {rx_gain_control, 1}, {141, 192}, {300, 1}}, QV_CALL_RECEIVE_PAUSES}}) {
    SCOPED_TRACE(c.what);
    Image changed = plain;
    for (const auto &[word, value] : c.words)
      changed[word] = value;
    const size_t n = 320, frames = 200, at = 50;
    Samples tone(n * frames), out(tone.size());
    for (size_t i = 0; i < tone.size(); ++i)
      tone[i] = int16_t(std::lround(8000 * std::sin(2 * std::numbers::pi * 437 * double(i) / 16000)));
    const CallPtr call = make_call(wide, plain), back = make_call(wide, changed);
    Samples there_and_back(tone.size());
    for (size_t k = 0; k < frames; ++k) {
      if (k == at) {
        EXPECT_EQ(replace(call, changed), c.effects);
        ASSERT_EQ(qv_call_replace_parameters(back.get(), plain.data(), nullptr), QV_VOICE_OK);
      }
      ASSERT_EQ(qv_call_receive(call.get(), &tone[k * n], &out[k * n]), QV_VOICE_OK);
      ASSERT_EQ(qv_call_receive(back.get(), &tone[k * n], &there_and_back[k * n]), QV_VOICE_OK);
    }
    for (const Samples *signal : {&out, &there_and_back}) {
      const int32_t around = std::max(steepest(*signal, 10 * n, at * n), steepest(*signal, 150 * n, frames * n));
      EXPECT_GT(around, 100);
      EXPECT_LE(steepest(*signal, at * n, 150 * n), around + around / 5);
    }
    EXPECT_EQ(Samples(there_and_back.end() - 50 * n, there_and_back.end()),
              Samples(tone.end() - 50 * n, tone.end())); // switched off again
  }
}

// From one equaliser to another while it runs, to a longer one and to other coefficients of the same length.
TEST(Replacement, an_equaliser_follows_another) {
  const Samples noise = noise_samples(5, 320 * 12, 8000);
  Image image{};
  image[0] = 16000;
  image[9] = qv::config::magic;
  image[rx_equaliser] = image[rx_equaliser + 1] = 1;
  image[rx_equaliser + 2] = 20000;
  const CallPtr call = make_call(wide, image);
  for (const auto &[half_taps, outer] : {std::pair{2, 3000}, {2, -5000}, {1, 12000}}) {
    image[rx_equaliser + 1] = int16_t(half_taps);
    image[rx_equaliser + 2] = int16_t(outer);
    image[rx_equaliser + 3] = 16384;
    replace(call, image);
    const CallPtr fresh = make_call(wide, image);
    Samples out(noise.size()), expected(noise.size());
    for (size_t at = 0; at < noise.size(); at += 320) {
      ASSERT_EQ(qv_call_receive(call.get(), &noise[at], &out[at]), QV_VOICE_OK);
      ASSERT_EQ(qv_call_receive(fresh.get(), &noise[at], &expected[at]), QV_VOICE_OK);
    }
    EXPECT_NE(Samples(out.begin(), out.begin() + 320), Samples(expected.begin(), expected.begin() + 320));
    EXPECT_EQ(Samples(out.begin() + 3 * 320, out.end()), Samples(expected.begin() + 3 * 320, expected.end()));
  }
}

// Another level curve, exponent and equaliser leave the filter and the delay where they were; a fixed delay does not.
TEST(Replacement, keeps_what_the_canceller_has_learnt) {
  const Layout layout = wide;
  Image image = quiet_image(16000);
  const Call signals(layout, 300);
  const CallPtr call = make_call(layout, image);
  run(call.get(), layout, signals);
  const QvVoiceTrace before = trace_of(call);
  image[15] = 2;
  image[123] = int16_t(image[123] + 100);
  image[tx_equaliser] = 0;
  EXPECT_EQ(replace(call, image), 0u);
  run(call.get(), layout, Call(layout, 10));
  const QvVoiceTrace after = trace_of(call);
  EXPECT_EQ(before.filter_adapted, 1);
  EXPECT_EQ(after.filter_adapted, 1);
  EXPECT_EQ(after.echo_delay, before.echo_delay);
  EXPECT_EQ(after.tx_frame, 310u);

  struct Case {
    size_t word;
    int16_t value;
    uint32_t effects;
  };
  for (const Case &c : {Case{tracking, 0, QV_CALL_ECHO_RELEARNED},
                        {echo_delay, 160, QV_CALL_ECHO_RELEARNED},
                        {tx_reducer, 0, 0},
                        {canceller, 0, QV_CALL_TRANSMIT_PAUSES},
                        {tx_reducer, 1, QV_CALL_TRANSMIT_PAUSES},
                        {canceller, 1, QV_CALL_TRANSMIT_PAUSES | QV_CALL_ECHO_RELEARNED}}) {
    image[c.word] = c.value;
    EXPECT_EQ(replace(call, image), c.effects) << "word " << c.word << " = " << c.value;
    run(call.get(), layout, Call(layout, 1));
    EXPECT_TRUE(c.word != echo_delay || trace_of(call).echo_delay == c.value) << trace_of(call).echo_delay;
  }
  // The canceller goes and comes in the pause; while it runs, the output may not be the microphone.
  for (const auto &[enabled, status] : {std::pair{0, QV_VOICE_OK}, {1, QV_VOICE_BAD_ARGUMENT}}) {
    image[canceller] = int16_t(enabled);
    replace(call, image);
    run(call.get(), layout, Call(layout, 20));
    Samples buffer(320), silent(320);
    EXPECT_EQ(qv_call_transmit(call.get(), buffer.data(), silent.data(), buffer.data()), status) << enabled;
  }

  const CallPtr fresh = make_call(layout, image); // the given delay holds from the start
  run(fresh.get(), layout, Call(layout, 1));
  EXPECT_EQ(trace_of(fresh).echo_delay, 160);
  image[0] = 8000;
  EXPECT_EQ(qv_call_replace_parameters(call.get(), image.data(), nullptr), QV_VOICE_REFUSED);
}

// Its memory is there from the start or never: switched either way, the words are refused and the call goes on.
TEST(Replacement, refuses_to_switch_the_state_space_canceller) {
  const Image without = quiet_image(16000);
  const Image with = marked(without);
  Image tuned = with;
  set_value(qv::config::table::echo_control[1], tuned, 0, 200);
  for (const auto &[first, refused, taken] : {std::tuple{without, with, without}, {with, without, tuned}}) {
    const CallPtr call = make_call(wide, first);
    uint32_t effects = 99;
    EXPECT_EQ(qv_call_replace_parameters(call.get(), refused.data(), &effects), QV_VOICE_REFUSED);
    EXPECT_EQ(effects, 99u);
    EXPECT_EQ(replace(call, taken), 0u);
  }
}

} // namespace
