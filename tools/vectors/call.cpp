#include "call.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace vectors {

namespace {

/// Uniform 16-bit noise: the upper half of a linear congruential generator.
class Noise {
public:
  explicit Noise(uint32_t seed) : state_(seed) {}
  int32_t sample() { return int32_t(next() >> 16) - 32768; }
  int32_t between(int32_t least, int32_t most) { return least + int32_t(next() >> 16) % (most - least + 1); }

private:
  uint32_t next() { return state_ = state_ * 1664525u + 1013904223u; }
  uint32_t state_;
};

/// y = x + a1 y[-1] - a2 y[-2], coefficients in units of 2^-14.
class Resonator {
public:
  int32_t filter(int32_t x, int32_t a1, int32_t a2) {
    const int32_t y = int32_t((int64_t{x} * 16384 + int64_t{a1} * y1_ - int64_t{a2} * y2_) >> 14);
    y2_ = y1_;
    return y1_ = y;
  }

private:
  int32_t y1_ = 0, y2_ = 0;
};

/// Syllables: pitch pulses and breath through two resonances, under a rising and falling envelope.
class Talker {
public:
  Talker(uint32_t seed, int32_t rate) : noise_(seed), rate_(rate) {}

  int32_t sample() {
    if (position_ == length_)
      start_syllable();
    const int32_t pulse = voiced_ && position_ % period_ == 0 ? 2000 : 0;
    const int32_t breath = noise_.sample() >> (voiced_ ? 10 : 7);
    const int32_t formants = high_.filter(low_.filter(pulse + breath, low_a1_, 15300), high_a1_, 14500);
    const int32_t height = int32_t(int64_t{std::min(position_, length_ - position_)} * 512 / length_);
    ++position_;
    return pause_ ? 0 : std::clamp(int32_t((int64_t{formants} * height) >> 8), -32768, 32767);
  }

private:
  void start_syllable() {
    position_ = 0;
    pause_ = !pause_ && noise_.between(0, 3) == 0;
    length_ = noise_.between(100, 300) * rate_ / 1000;
    period_ = noise_.between(4, 10) * rate_ / 1000 + noise_.between(0, 7);
    voiced_ = noise_.between(0, 3) != 0;
    low_a1_ = noise_.between(20000, 29000);
    high_a1_ = noise_.between(-12000, 15000);
  }

  Noise noise_;
  Resonator low_, high_;
  int32_t rate_, position_ = 0, length_ = 0, period_ = 1, low_a1_ = 0, high_a1_ = 0;
  bool pause_ = true, voiced_ = false;
};

/// A stretch of the call. Gains in units of 1/256, noise as right shift of full scale.
struct Scene {
  int32_t until_ms, far_gain, near_gain, noise_shift, delay_ms;
};

constexpr int32_t no_noise = 31;
constexpr std::array<Scene, 8> scenes = {{
    {1500, 256, 0, 10, 50},     // far end alone
    {2400, 256, 200, 10, 50},   // double talk
    {3000, 0, 256, 10, 50},     // near end alone
    {3300, 0, 0, no_noise, 50}, // digital silence
    {4800, 256, 0, 9, 90},      // far end alone, echo delay changed
    {5200, 1024, 0, 9, 90},     // overdriven loudspeaker
    {5600, 256, 12000, 9, 90},  // clipped microphone
    {6000, 0, 0, 8, 90},        // noise alone, rising
}};

/// Room response behind the delay: one tap each 2 ms, in units of 2^-15.
constexpr std::array<int32_t, 14> room = {14000, -9000, 7000, 5200,  -4300, 3000, -2400,
                                          1900,  1500,  -900, -1000, 700,   400,  -300};

int16_t saturate(int64_t x) { return int16_t(std::clamp<int64_t>(x, -32768, 32767)); }

int32_t echo(const std::vector<int16_t> &far, size_t now, size_t delay, size_t spacing) {
  int64_t sum = 0;
  for (size_t k = 0; k < room.size(); ++k)
    if (const size_t age = delay + k * spacing; age <= now)
      sum += int64_t{far[now - age]} * room[k];
  return int32_t(sum >> 15);
}

} // namespace

int32_t first_echo_delay(int32_t rate) { return scenes.front().delay_ms * rate / 1000; }

Call make_call(int32_t rate) {
  Talker far_talker(1, rate), near_talker(2, rate);
  Noise room_noise(3), line_noise(4);
  Call call;
  for (const Scene &scene : scenes) {
    const auto end = size_t(scene.until_ms * rate / 1000), delay = size_t(scene.delay_ms * rate / 1000);
    while (call.mic.size() < end) {
      call.far.push_back(saturate(int64_t{far_talker.sample()} * scene.far_gain >> 8));
      const int64_t near = int64_t{near_talker.sample()} * scene.near_gain >> 8;
      const int64_t noise = room_noise.sample() >> scene.noise_shift;
      const int32_t heard = echo(call.far, call.far.size() - 1, delay, size_t(rate / 500));
      call.mic.push_back(saturate(heard + near + noise));
      call.rx.push_back(saturate((call.far.back() >> 2) + (line_noise.sample() >> scene.noise_shift)));
    }
  }
  return call;
}

} // namespace vectors
