/// @file faults.h  What goes wrong with recordings and devices, made in a call that is good.
#pragma once

#include <cstring>
#include <functional>
#include <string_view>
#include <variant>
#include <vector>

#include "diagnose/made_calls.h"
#include "signal/activity.h"

namespace qv::tool::diagnose::made {

using OfParts = std::function<void(Parts &)>;
using OfRecorded = std::function<void(Recorded &)>;

struct Kind {
  const char *name;
  const char *causes; ///< checks that may head the verdict, by name; "none": nothing is wrong
  std::variant<OfParts, OfRecorded> make;
  const char *says = "";             ///< words of the verdict
  const char *state_space = nullptr; ///< causes where the state-space canceller judges otherwise
};

inline void each(Samples &samples, const auto &change) {
  for (int16_t &sample : samples)
    sample = to_samples(Signal{double(change(sample)) / 32768.0}).front();
}

inline void silence(Samples &samples, double from, double to) {
  std::fill(samples.begin() + std::ptrdiff_t(from * rate), samples.begin() + std::ptrdiff_t(to * rate), int16_t(0));
}

/// s, of the loudest 20 ms between two times: what is missing from a pause on cannot be known.
inline double loudest(const Samples &samples, double from, double to) {
  double best = from, most = 0;
  for (double time = from; time < to; time += 0.02)
    if (const double now = power(excerpt(SampleView(samples), std::ptrdiff_t(time * rate), rate / 50)); now > most) {
      most = now;
      best = time + 0.01;
    }
  return best;
}

/// Bytes as a file with these samples holds them, `skip` of them left out, read `width` at a time.
inline void swap_bytes(Samples &samples) {
  for (int16_t &sample : samples)
    sample = int16_t(uint16_t(uint16_t(sample) << 8 | uint16_t(sample) >> 8));
}

inline void shift_byte(Samples &samples) {
  for (size_t i = 0; i + 1 < samples.size(); ++i)
    samples[i] = int16_t(uint16_t(uint16_t(samples[i]) >> 8 | uint16_t(samples[i + 1]) << 8));
}

/// The header of a WAV file of one channel, 8 kHz and 16 bits, as samples.
inline void put_header(Samples &samples) {
  const uint8_t header[] = {'R', 'I', 'F', 'F', 0x24, 0xE2, 4,   0,   'W', 'A',  'V',  'E',  'f', 'm',  't',
                            ' ', 16,  0,   0,   0,    1,    0,   1,   0,   0x40, 0x1F, 0,    0,   0x80, 0x3E,
                            0,   0,   2,   0,   16,   0,    'd', 'a', 't', 'a',  0,    0xE2, 4,   0};
  Samples words(sizeof header / 2);
  std::memcpy(words.data(), header, sizeof header);
  samples.insert(samples.begin(), words.begin(), words.end());
}

/// What two equal channels give when they are read as one.
inline void interleave(Samples &samples) {
  const Samples once = samples;
  for (size_t i = 0; i < samples.size(); ++i)
    samples[i] = once[i / 2];
}

/// Silences the frames of 10 ms that are not 10 dB above the noise, 100 ms after the last one that is.
inline void gate(Samples &samples) {
  const std::vector<double> powers = frame_powers(SampleView(samples), rate);
  const double least = from_db(10) * quantile(powers, 0.05);
  int open = 0;
  for (size_t i = 0; i < powers.size(); ++i) {
    open = powers[i] >= least ? 10 : open - 1;
    if (open <= 0)
      std::fill_n(samples.begin() + std::ptrdiff_t(i * frame_length(rate)), frame_length(rate), int16_t(0));
  }
}

/// Steers to one level: 20 ms down, 0.6 s up, at most 20 dB.
inline void control_gain(Samples &samples) {
  double level = 1e-9, gain = 1;
  each(samples, [&](int sample) {
    const double power = double(sample) * sample / (32768.0 * 32768.0);
    level += (power - level) / (power > level ? 0.02 * rate : 0.6 * rate);
    gain = std::clamp(std::sqrt(from_db(-24) / level), 0.1, 10.0);
    return sample * gain;
  });
}

/// Cuts or doubles `frame` seconds every `every` seconds.
inline void slip(Signal &signal, double first, double every, double frame) {
  for (double time = first; time < seconds - 0.5; time += every)
    jump(signal, time, frame);
}

inline Samples sent_for(const Recorded &call) {
  return run_tx(make_setup(call.preset, rate, 20), call.mic, call.ref).sent;
}

inline Parts other_call(const Parts &parts) {
  scene::Scene scene = parts.scene;
  scene.seed += 1000;
  static scene::SpeechReader speech(rate);
  scene.far.talks = {{0.2, 6.5}, {9, 19}};
  const scene::Call call = scene::render(scene, speech, rate);
  return {scene, to_signal(call.ref), to_signal(call.echo), to_signal(call.near), to_signal(call.noise), parts.random};
}

inline OfParts echo_later(double least, double most) {
  return [=](Parts &p) { p.echo = delayed(p.echo, p.between(least, most)); };
}

/// The delay of the echo itself, s.
inline OfParts echo_after(double least, double most) {
  return [=](Parts &p) { p.echo = delayed(p.echo, p.between(least, most) - p.scene.echo.delay); };
}

/// Between two times, s, by 6 to 12 dB.
inline OfParts echo_turned_down(double from, double to) {
  return [=](Parts &p) {
    const double gain = p.between(0.25, 0.5);
    for (auto i = size_t(from * rate); i < size_t(to * rate); ++i)
      p.echo[i] *= gain;
  };
}

inline OfParts echo_at(double speed) {
  return [=](Parts &p) { p.echo = at_speed(p.echo, speed); };
}

inline OfParts loudspeaker(const auto &change) {
  return [=](Parts &p) {
    scene::Echo echo = p.scene.echo;
    change(echo, p);
    p.echo = echo_through(p, echo);
  };
}

inline const std::vector<Kind> &kinds() {
  using namespace scene;
  constexpr const char *good = "none", *order = "order", *delay = "steady_delay", *clocks = "drift";
  static const std::vector<Kind> all = {
      // Nothing is wrong.
      {"good", good, OfParts([](Parts &) {})},
      {"good: polarity inverted", good, OfParts([](Parts &p) { scale(p.echo, -1); })},
      {"good: noisy room", good, OfParts([](Parts &p) { scale(p.noise, p.between(1.5, 2.5)); })},
      {"good: music", good, OfParts([](Parts &p) {
         p.scene.far.sound = Sound::music;
         static SpeechReader speech(rate);
         const Call call = render(p.scene, speech, rate);
         p.ref = to_signal(call.ref), p.echo = to_signal(call.echo);
       })},
      {"good: reverberant", good, loudspeaker([](Echo &, Parts &p) { p.scene.room.reverberation_time = 0.5; })},
      {"good: nobody at the near end", good, OfParts([](Parts &p) { scale(p.near, 0); })},
      {"good: loudspeaker moved", good, OfParts([](Parts &p) {
         Echo echo = p.scene.echo;
         echo.changes = {{.time = 13,
                          .delay = {},
                          .loudspeaker = Point{p.scene.loudspeaker.x, p.scene.loudspeaker.y + 0.3, 1.1},
                          .gain = {}}};
         p.echo = echo_through(p, echo);
       })},
      {"good: direct current", good, OfRecorded([](Recorded &r) {
         const double dc = r.between(300, 1500);
         each(r.mic, [=](int x) { return x + dc; });
       })},
      // Wiring: which signal goes where.
      {"swapped", order, OfRecorded([](Recorded &r) { std::swap(r.mic, r.ref); }), "swapped"},
      {"microphone given twice", "same_recording", OfRecorded([](Recorded &r) { r.ref = r.mic; })},
      {"reference given twice", "same_recording", OfRecorded([](Recorded &r) { r.mic = r.ref; })},
      {"playback looped back", "same_recording", OfRecorded([](Recorded &r) {
         r.mic = to_samples(delayed(to_signal(r.ref), r.between(0.005, 0.05)));
         each(r.mic, [](int x) { return 0.6 * x; });
       })},
      {"reference of another call", "echo_present", OfParts([](Parts &p) { p.ref = other_call(p).ref; }),
       "another call"},
      {"reference silent", "reference", OfRecorded([](Recorded &r) { silence(r.ref, 0, seconds); })},
      {"reference missing in part", "reference",
       OfRecorded([](Recorded &r) { silence(r.ref, loudest(r.ref, 12, 15), r.between(16, 18)); })},
      {"reference ends early", "length|reference",
       OfRecorded([](Recorded &r) { r.ref.resize(size_t(r.between(5, 12) * rate)); })},
      {"microphone ends early", "length",
       OfRecorded([](Recorded &r) { r.mic.resize(size_t(r.between(5, 12) * rate)); })},
      {"microphone silent", "microphone", OfRecorded([](Recorded &r) { silence(r.mic, 0, seconds); })},
      {"microphone muted in part", "microphone|processed",
       OfRecorded([](Recorded &r) { silence(r.mic, 13, r.between(15, 18)); })},
      {"near end in the reference", "near_in_reference",
       OfParts([](Parts &p) { add(p.ref, p.near, p.between(0.2, 0.5)); })},
      {"near end returned by the network", "near_in_reference",
       OfParts([](Parts &p) { add(p.ref, delayed(p.near, p.between(0.15, 0.4)), 0.3); })},
      {"microphone mixed into the reference", "near_in_reference", OfRecorded([](Recorded &r) {
         const Samples mic = r.mic;
         size_t i = 0;
         each(r.ref, [&](int x) { return x + 0.5 * mic[i++]; });
       })},
      {"output taken as reference", "near_in_reference|order", OfRecorded([](Recorded &r) { r.ref = sent_for(r); })},
      {"no loudspeaker heard", "echo_present", OfParts([](Parts &p) { scale(p.echo, 0); })},
      {"echo cancelled before", "echo_present|processed", OfRecorded([](Recorded &r) { r.mic = sent_for(r); })},
      // Samples.
      {"bytes of the microphone swapped", "format", OfRecorded([](Recorded &r) { swap_bytes(r.mic); })},
      {"bytes of the reference swapped", "format", OfRecorded([](Recorded &r) { swap_bytes(r.ref); })},
      {"microphone read from an odd byte", "format", OfRecorded([](Recorded &r) { shift_byte(r.mic); })},
      {"microphone: stereo read as mono", "format|drift", OfRecorded([](Recorded &r) { interleave(r.mic); })},
      {"reference: stereo read as mono", "format|drift", OfRecorded([](Recorded &r) { interleave(r.ref); })},
      {"header of the reference read as samples", "format", OfRecorded([](Recorded &r) { put_header(r.ref); })},
      // Clocks.
      {"clocks 100 ppm apart", clocks, echo_at(1 - 100e-6), "", good},
      {"clocks 200 ppm apart", clocks, echo_at(1 + 200e-6), "", good},
      {"clocks 1000 ppm apart", clocks, echo_at(1 - 1000e-6)},
      {"clocks 3000 ppm apart", clocks, echo_at(1 + 3000e-6)},
      {"clocks 10000 ppm apart", clocks, echo_at(1 - 10000e-6)},
      {"3 % fast", clocks, echo_at(1.03)},
      {"44.1 kHz played as 48 kHz", clocks, echo_at(48 / 44.1), "44.1 kHz played as 48 kHz"},
      {"48 kHz played as 44.1 kHz", clocks, echo_at(44.1 / 48), "48 kHz played as 44.1 kHz"},
      {"8 kHz played as 16 kHz", clocks, echo_at(2), "8 kHz played as 16 kHz"},
      {"16 kHz played as 8 kHz", clocks, echo_at(0.5), "16 kHz played as 8 kHz"},
      // Delays.
      {"reference 40 to 100 ms late", order, echo_after(-0.04, -0.1)},
      {"reference 300 to 800 ms late", order, echo_after(-0.3, -0.8)},
      {"echo 330 to 450 ms late", "reach", echo_after(0.33, 0.45), "", good},
      {"echo 500 to 900 ms late", "reach", echo_later(0.5, 0.9)},
      {"echo 1.5 to 1.8 s late", "reach", echo_later(1.5, 1.8)},
      {"echo 2.5 to 3.5 s late", "reach", echo_later(2.5, 3.5)},
      {"delay jumps by 20 to 100 ms", delay,
       OfParts([](Parts &p) { jump(p.echo, p.between(12, 15), p.between(0.02, 0.1)); }), "", good},
      {"delay jumps back by 10 to 40 ms", delay,
       OfParts([](Parts &p) { jump(p.echo, p.between(12, 15), -p.between(0.01, 0.04)); }), "", "none|steady_delay"},
      {"delay jumps three times", delay, OfParts([](Parts &p) {
         for (const double time : {4.0, 11.5, 15.5})
           jump(p.echo, time, p.between(0.01, 0.03));
       }),
       "", "none|steady_delay"},
      {"a frame of the microphone lost", delay, OfParts([](Parts &p) { slip(p.echo, p.between(13, 15), 10, -0.02); }),
       "", good},
      {"frames lost again and again", delay, OfParts([](Parts &p) { slip(p.echo, 1, p.between(1.5, 3), -0.01); }), "",
       "none|steady_delay"},
      {"frames repeated again and again", delay, OfParts([](Parts &p) { slip(p.echo, 1, p.between(1.5, 3), 0.01); }),
       "", "none|steady_delay"},
      // Levels and loudspeaker.
      {"microphone clips", "clipping", OfRecorded([](Recorded &r) {
         const double gain = 32768 * r.between(2, 4) / *std::ranges::max_element(r.mic);
         each(r.mic, [=](int x) { return gain * x; });
       })},
      {"microphone clips, turned down behind", "clipping", OfRecorded([](Recorded &r) {
         const double limit = *std::ranges::max_element(r.mic) * r.between(0.25, 0.5);
         each(r.mic, [=](int x) { return std::clamp(double(x), -limit, limit); });
       })},
      {"loudspeaker clips hard", "distortion", loudspeaker([](Echo &e, Parts &p) {
         e.saturation = p.between(10, 16);
         e.clipping = Clipping::hard;
       }),
       "", "none|distortion"},
      {"loudspeaker clips softly", "distortion",
       loudspeaker([](Echo &e, Parts &p) { e.saturation = p.between(10, 16); }), "", "none|distortion"},
      {"volume turned down", "volume", echo_turned_down(14, seconds), "", good},
      {"volume turned up", "volume", echo_turned_down(0, 4), "", good},
      {"gain of the microphone steered", "gain_control", OfRecorded([](Recorded &r) { control_gain(r.mic); }), "",
       "none|gain_control"},
      {"microphone gated", "processed", OfRecorded([](Recorded &r) { gate(r.mic); })},
      {"microphone far too quiet", "levels",
       OfRecorded([](Recorded &r) { each(r.mic, [](int x) { return 0.01 * x; }); })},
      {"reference far too quiet", "levels|reference",
       OfRecorded([](Recorded &r) { each(r.ref, [](int x) { return 0.012 * x; }); })},
      {"echo far above the talker", "coupling", OfParts([](Parts &p) {
         const double above = p.between(22, 30);
         for (Signal *part : {&p.near, &p.noise})
           scale(*part, gain_from_db(p.scene.echo.to_near - above));
       })},
      {"noise as loud as the talker", "noise|levels",
       OfParts([](Parts &p) { scale(p.noise, gain_from_db(p.scene.noise.snr - p.between(-3, 1))); })},
      {"reference of a narrow band", "bandwidth", OfParts([](Parts &p) { p.ref = low_passed(p.ref, 1500); })},
  };
  return all;
}

} // namespace qv::tool::diagnose::made
