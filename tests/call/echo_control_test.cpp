// What the state-space echo canceller does for a call: quick again after whatever happens, and kind to who talks.

#include <functional>

#include "calls.h"
#include "talk.h"

namespace {

using namespace qv::test;
using qv::config::Image;

/// The canceller, and the noise reducer if wanted, but no other stage.
Image marked_image(int32_t rate, bool reduces_noise = false) {
  Image image = qv::config::default_image(rate);
  for (const size_t stage : {110, 120, 140, 440})
    image[stage] = 0;
  image[100] = reduces_noise;
  return marked(image);
}

/// What loudspeaker and microphone have.
struct Sides {
  Samples far, mic;
};

/// @return what is sent, with the frame of delay taken off
Samples send(const Layout &l, const Image &image, const Sides &sides, int32_t *single_talk = nullptr) {
  const CallPtr call = make_call(l, image);
  const auto n = size_t(l.frame_len);
  Samples out(sides.far.size());
  for (size_t at = 0; at + n <= out.size(); at += n) {
    EXPECT_EQ(qv_call_transmit(call.get(), &sides.mic[at], &sides.far[at], &out[at]), QV_VOICE_OK);
    if (single_talk)
      *single_talk += trace_of(call).single_talk;
  }
  out.erase(out.begin(), out.begin() + l.frame_len);
  out.resize(sides.far.size());
  return out;
}

/// Four seconds of a call with the echo at `delay_ms`, then something happens, then four seconds more.
struct Mishap {
  const char *what;
  double delay_ms;
  /// @param far  as the loudspeaker had it  @param at,second  sample of the mishap; a second
  std::function<void(Sides &, const Layout &, const Signal &far, size_t at, size_t second)> happens;
  /// Echo left over that of the microphone, at most: in the second half second, in half of the calls; in the last
  /// second, in three quarters of them.
  double soon_db, late_db;
};

/// From now on, another echo.
auto heard(double delay_ms, float gain, uint32_t room) {
  return [=](Sides &s, const Layout &l, const Signal &far, size_t at, size_t) {
    const Samples mic = sampled(Room(l.rate, delay_ms, gain, room).echo(far) + white(far.size(), 3, 5));
    std::copy(mic.begin() + int64_t(at), mic.end(), s.mic.begin() + int64_t(at));
  };
}

/// Frames of one side are dropped, or come again.
auto slip(Samples Sides::*side, int32_t lost) {
  return [=](Sides &s, const Layout &l, const Signal &, size_t at, size_t) {
    Samples &x = s.*side;
    const auto count = x.size();
    const auto from = x.begin() + int64_t(at), to = from + std::abs(lost) * l.frame_len;
    const Samples frames(from, to);
    if (lost > 0)
      x.erase(from, to);
    else
      x.insert(from, frames.begin(), frames.end());
    x.resize(count);
  };
}

/// A second before, something else in place of one side or both.
auto instead(bool far, bool mic, std::function<int16_t(size_t)> sample) {
  return [=](Sides &s, const Layout &, const Signal &, size_t at, size_t second) {
    for (size_t i = at - second; i < at; ++i) {
      if (far)
        s.far[i] = sample(i);
      if (mic)
        s.mic[i] = sample(i + 7);
    }
  };
}

/// For good.
void direct_current(Sides &s, const Layout &, const Signal &, size_t at, size_t) {
  for (size_t i = at; i < s.mic.size(); ++i)
    s.mic[i] = int16_t(s.mic[i] + 8000);
}

int16_t silence(size_t) { return 0; }
int16_t full_scale(size_t i) { return int16_t(uint32_t(i * 2654435761u) >> 16); }
int16_t constant(size_t) { return -32768; }

constexpr double any = 99;
const Mishap mishaps[] = {
    {"another room", 260, heard(260, 0.5f, 9), -25, -25},
    {"an echo that comes 300 ms later", 150, heard(450, 0.5f, 5), any, -20},
    {"an echo that comes 300 ms earlier", 380, heard(80, 0.5f, 5), any, -25},
    {"a microphone frame lost", 260, slip(&Sides::mic, 1), -25, -25},
    {"ten microphone frames lost", 260, slip(&Sides::mic, 10), any, -20},
    {"a reference frame lost", 260, slip(&Sides::far, 1), -25, -25},
    {"ten reference frames lost", 260, slip(&Sides::far, 10), any, -20},
    {"a microphone frame twice", 260, slip(&Sides::mic, -1), -25, -25},
    {"ten microphone frames twice", 260, slip(&Sides::mic, -10), any, -20},
    {"a reference frame twice", 260, slip(&Sides::far, -1), -25, -25},
    {"ten reference frames twice", 260, slip(&Sides::far, -10), any, -20},
    {"reference absent for a second", 260, instead(true, false, silence), -25, -25},
    {"microphone muted for a second", 260, instead(false, true, silence), -25, -25},
    {"a second of full-scale noise", 260, instead(true, true, full_scale), -25, -25},
    {"a second of constant full scale", 260, instead(true, true, constant), -20, -25},
    {"direct current", 260, direct_current, -25, -25},
    {"20 dB more", 260, heard(260, 5, 5), -12, -20},
    {"20 dB less", 260, heard(260, 0.05f, 5), -20, -20},
};

TEST(EchoControl, is_quick_again_whatever_happens) {
  for (const Mishap &m : mishaps) {
    std::vector<double> soon, late;
    for (const Layout &l : all_layouts)
      for (uint32_t seed = 20; seed < 23; ++seed) {
        const auto n = size_t(l.frame_len), second = size_t(l.rate) / n * n, at = 4 * second, count = 8 * second;
        const Signal far = talk(count, l.rate, 1500, seed);
        Sides s{sampled(far), sampled(Room(l.rate, m.delay_ms, 0.5f, 5).echo(far) + white(count, 3, 5))};
        m.happens(s, l, far, at, second);
        const Samples out = send(l, marked_image(l.rate), s);
        const auto add_left = [&](size_t from, size_t to, std::vector<double> &left) {
          if (const double heard_db = level_db(s.mic, from, to); heard_db > 25) // not the far end's pauses
            left.push_back(level_db(out, from, to) - heard_db);
        };
        add_left(at + second / 2, at + second, soon);
        add_left(at + 3 * second, at + 4 * second - n, late);
      }
    std::ranges::sort(soon);
    std::ranges::sort(late);
    ASSERT_GE(std::min(soon.size(), late.size()), 8u) << m.what;
    EXPECT_LT(soon[soon.size() / 2], m.soon_db) << m.what;
    EXPECT_LT(late[late.size() * 3 / 4], m.late_db) << m.what;
  }
}

// By itself the near end passes as it is, beside a far end nearly so, and a mute before leaves it no worse.
TEST(EchoControl, lets_the_near_end_talk) {
  constexpr struct {
    const char *what;
    bool double_talk, muted;
  } cases[] = {{"alone", false, false}, {"double talk", true, false}, {"double talk after a mute", true, true}};
  for (const Layout &l : all_layouts)
    for (const auto &[what, double_talk, muted] : cases) {
      SCOPED_TRACE(testing::Message() << l << ", " << what);
      const auto n = size_t(l.frame_len), second = size_t(l.rate) / n * n, from = 4 * second, count = 12 * second;
      Signal far = talk(count, l.rate, 1500, 3), near = talk(count, l.rate, 700, 4);
      std::fill_n(near.begin(), from, 0.f);
      if (!double_talk)
        std::fill(far.begin() + int64_t(from), far.end(), 0.f);
      Sides s{sampled(far), sampled(Room(l.rate, 60, 0.4f, 5).echo(far) + near + white(count, 3, 5))};
      if (muted)
        std::fill(s.mic.begin() + int64_t(from - second), s.mic.begin() + int64_t(from), 0);
      const Samples out = send(l, marked_image(l.rate), s);
      const double near_db = level_db(near, from, count - n);
      int32_t strong = 0, lost = 0;
      for (size_t at = from + second; at + 2 * n <= count; at += n)
        if (level_db(near, at, at + n) > near_db) {
          ++strong;
          lost += !(level_db(out, at, at + n) > level_db(near, at, at + n) - 6);
        }
      EXPECT_GT(strong, 50);
      EXPECT_LE(lost, double_talk ? strong / 6 : 0);
      EXPECT_NEAR(level_db(out, from, count - n), near_db, double_talk ? 2 : 0.5);
    }
}

// While only the far end talks, the room sounds as it does in silence, with its noise reduced or not.
TEST(EchoControl, sends_the_background_while_the_far_end_talks) {
  for (const Layout &l : all_layouts)
    for (const bool reduces_noise : {false, true}) {
      SCOPED_TRACE(testing::Message() << l << (reduces_noise ? ", reduced" : ""));
      const auto n = size_t(l.frame_len), second = size_t(l.rate) / n * n, count = 12 * second;
      Signal far = talk(count, l.rate, 1500, 3);
      std::fill_n(far.begin(), 4 * second, 0.f);
      const Sides s{sampled(far), sampled(Room(l.rate, 60, 0.4f, 5).echo(far) + white(count, 60, 5))};
      int32_t single_talk = 0;
      const Samples out = send(l, marked_image(l.rate, reduces_noise), s, &single_talk);
      const double in_silence = level_db(out, 2 * second, 4 * second - n);
      EXPECT_LT(in_silence, 20 * std::log10(60.0) - (reduces_noise ? 12 : -1));
      EXPECT_NEAR(level_db(out, 6 * second, count - n), in_silence, 3);
      EXPECT_GT(single_talk, int32_t(count / n / 3));
    }
}

} // namespace
