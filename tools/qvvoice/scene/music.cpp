#include "scene/music.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace qv::tool::scene {
namespace {

constexpr int beats_per_bar = 4;
constexpr std::array scale_steps = {0, 2, 4, 5, 7, 9, 11}; ///< semitones of a major scale

/// What a note sounds like.
struct Timbre {
  double brightness; ///< height of each partial against the one below
  double decay;      ///< s to 1/e of the first partial; the k-th dies k times as fast
  double vibrato;    ///< of the frequency
};

/// Hz of a step of the scale: 0 is the keynote, 7 an octave above.
double frequency_of(int key, int step) {
  const int octave = step >= 0 ? step / 7 : -((6 - step) / 7);
  return 440 * std::exp2((key - 69 + 12 * octave + scale_steps[size_t(step - 7 * octave)]) / 12.0);
}

class Band {
public:
  Band(Signal &track, int rate) : track_(track), rate_(rate) {}

  void note(double time, double length, double frequency, double height, const Timbre &timbre) {
    constexpr double attack = 0.008, release = 0.03; // s
    for (int k = 1; k <= 12 && k * frequency < 0.45 * rate_; ++k) {
      double phase = 0;
      each(time, length + release, [&](double t) {
        const double vibrato = 1 + timbre.vibrato * std::sin(2 * std::numbers::pi * 5.5 * t);
        phase += k * frequency * vibrato / rate_;
        const double shape = std::min({1.0, t / attack, (length + release - t) / release});
        return height * std::pow(timbre.brightness, k - 1) * shape * std::exp(-t * k / timbre.decay) *
               std::sin(2 * std::numbers::pi * phase);
      });
    }
  }

  void bass_drum(double time) {
    double phase = 0;
    each(time, 0.3, [&](double t) {
      phase += (50 + 100 * std::exp(-t / 0.03)) / rate_;
      return 0.5 * std::exp(-t / 0.08) * std::sin(2 * std::numbers::pi * phase);
    });
  }

  /// Noise, differenced: bright.
  void cymbal(double time, double height, double decay, Random random) {
    double last = 0;
    each(time, 6 * decay, [&](double t) {
      const double now = random.normal(), bright = now - last;
      last = now;
      return height * std::exp(-t / decay) * bright;
    });
  }

private:
  /// Adds a sound of this length, cut at the end of the track.
  template <class Sound> void each(double time, double length, Sound sound) {
    const auto begin = size_t(time * rate_), end = std::min(begin + size_t(length * rate_), track_.size());
    for (size_t i = begin; i < end; ++i)
      track_[i] += sound(double(i - begin) / rate_);
  }

  Signal &track_;
  int rate_;
};

} // namespace

Signal music(size_t count, int rate, Random random) {
  constexpr std::array<std::array<int, 4>, 4> progressions = {{{0, 4, 5, 3}, {0, 5, 3, 4}, {5, 3, 0, 4}, {0, 3, 1, 4}}};
  const auto pick = [&](double least, double greatest) { return std::lerp(least, greatest, random.uniform()); };
  const int key = 55 + int(random.below(12)); // MIDI: the G below middle C and up
  const double beat = 60 / pick(80, 140);
  const Timbre chord = {pick(0.3, 0.7), pick(0.4, 2), 0}, lead = {pick(0.4, 0.8), pick(0.3, 3), pick(0, 0.006)};
  const bool drums = random.uniform() < 0.7;
  const auto &progression = progressions[random.below(progressions.size())];
  Signal track(count);
  Band band(track, rate);
  int melody = 7; // above the chords
  for (int n = 0; n * beat * rate < double(count); ++n) {
    const double time = n * beat;
    const int root = progression[size_t(n / beats_per_bar) % progression.size()];
    for (const int step : {0, 2, 4})
      band.note(time, beat, frequency_of(key, root + step), n % 2 ? 0.08 : 0.12, chord);
    band.note(time, beat, frequency_of(key, root - 14), 0.25, {0.35, 0.6, 0});
    for (int half = 0; half < 2; ++half) {
      melody = std::clamp(melody + int(random.below(5)) - 2, 4, 14);
      if (random.uniform() < 0.75)
        band.note(time + half * beat / 2, beat / 2, frequency_of(key, melody), 0.2, lead);
      if (drums)
        band.cymbal(time + half * beat / 2, 0.03, 0.04, Random(random.next()));
    }
    if (drums && n % 2 == 0)
      band.bass_drum(time);
    else if (drums)
      band.cymbal(time, 0.08, 0.09, Random(random.next()));
  }
  return track;
}

} // namespace qv::tool::scene
