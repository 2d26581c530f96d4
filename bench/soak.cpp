// Hours of a call, faster than real time: soak PRESET FRAME_MS HOURS
//
// A conversation goes round and round through both paths, louder and quieter in turn. Every hour of audio a minute of
// silence and one round at the first level are compared with those of the first hour. A line per hour; exit status 1
// when memory has grown, more frames than in the first hour have met a denormal number (the noise reducer does in
// digital silence, where its minima decay), or the levels of the output have moved.

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <immintrin.h>
#include <unistd.h>
#include <utility>

#include <fmt/format.h>

#include "call/run.h"
#include "scene/render.h"
#include "signal/signal.h"
#include "support/error.h"

namespace {

using namespace qv::tool;

constexpr double levels_db[] = {0, -12, 6, -24, -6};
constexpr double most_moved_db = 0.5;
constexpr double heard_dbfs = -45; // somebody talks; what stands in place of an echo depends on what has been learnt
constexpr long most_grown_kib = 64;
constexpr double most_more_denormals = 1.01;

long resident_kib() {
  std::ifstream file("/proc/self/statm");
  long total = 0, resident = 0;
  file >> total >> resident;
  return resident * sysconf(_SC_PAGESIZE) / 1024;
}

Samples louder(const Samples &samples, double db) {
  Signal signal = to_signal(samples);
  scale(signal, gain_from_db(db));
  return to_samples(signal);
}

class Soak {
public:
  explicit Soak(const Setup &setup) : setup_(setup), library_(setup) {
    for (const scene::BuiltIn &one : scene::built_in())
      if (one.name == "conversation") {
        scene::SpeechReader speech(setup.rate);
        call_ = scene::render(scene::parse_scene(one.text, "conversation"), speech, setup.rate);
      }
    for (const double db : levels_db)
      rounds_.push_back({louder(call_.mic, db), louder(call_.ref, db), louder(call_.near, db)});
  }

  void run_hour() {
    const size_t rounds = 3600 * size_t(setup_.rate) / call_.mic.size();
    for (size_t i = 0; i < rounds; ++i)
      play(rounds_[i % rounds_.size()], nullptr);
  }

  /// Level of every second of both outputs, dBFS, of a round after silence.
  std::vector<double> probe() {
    const Samples silence(60 * size_t(setup_.rate));
    play({silence, silence, silence}, nullptr);
    std::vector<double> energies;
    play(rounds_[0], &energies);
    return energies;
  }

  /// Since the last call.
  size_t take_denormal_frames() { return std::exchange(denormal_frames_, 0); }

private:
  struct Round {
    Samples mic, ref, far;
  };

  void play(const Round &round, std::vector<double> *levels) {
    const auto frame = size_t(setup_.frame_len);
    Samples sent(frame), played(frame);
    Signal second;
    for (size_t at = 0; at + frame <= round.mic.size(); at += frame) {
      _mm_setcsr(_mm_getcsr() & ~unsigned(_MM_EXCEPT_DENORM));
      library_.rx(&round.far[at], played.data());
      library_.tx(&round.mic[at], &round.ref[at], sent.data());
      denormal_frames_ += (_mm_getcsr() & _MM_EXCEPT_DENORM) != 0;
      if (!levels)
        continue;
      for (const Samples &out : {sent, played}) {
        const Signal part = to_signal(out);
        second.insert(second.end(), part.begin(), part.end());
      }
      if (second.size() >= 2 * size_t(setup_.rate)) {
        levels->push_back(to_db(power(second)).value_or(-200));
        second.clear();
      }
    }
  }

  Setup setup_;
  Library library_;
  scene::Call call_;
  std::vector<Round> rounds_;
  size_t denormal_frames_ = 0;
};

/// Mean distance of the seconds that are heard, dB. A single second may differ, since a decision that hangs by a thread
/// falls one way or the other with what came before.
double moved_by(const std::vector<double> &first, const std::vector<double> &now) {
  double sum = 0;
  int count = 0;
  for (size_t i = 0; i < now.size(); ++i)
    if (std::max(first[i], now[i]) > heard_dbfs) {
      sum += std::abs(now[i] - first[i]);
      ++count;
    }
  return count ? sum / count : 0;
}

} // namespace

int main(int argc, char **argv) try {
  if (argc != 4)
    throw InputError("usage: soak PRESET FRAME_MS HOURS");
  const int rate = read_image(argv[1])[qv::config::rate_word];
  Soak soak(make_setup(argv[1], rate, std::atoi(argv[2])));
  std::vector<double> first;
  long memory = 0;
  size_t first_denormals = 0;
  bool fine = true;
  for (int hour = 1; hour <= std::atoi(argv[3]); ++hour) {
    soak.run_hour();
    const std::vector<double> now = soak.probe();
    const size_t denormals = soak.take_denormal_frames();
    if (hour == 1) {
      first = now;
      memory = resident_kib();
      first_denormals = denormals;
    }
    const long grown = resident_kib() - memory;
    const double moved = moved_by(first, now);
    fmt::print("{} hour {}: {:+} KiB, {} frames with denormals, output moved by {:.2f} dB\n", argv[1], hour, grown,
               denormals, moved);
    std::fflush(stdout);
    fine = fine && grown <= most_grown_kib && double(denormals) <= most_more_denormals * double(first_denormals) &&
           moved <= most_moved_db;
  }
  return fine ? 0 : 1;
} catch (const std::exception &error) {
  fmt::print(stderr, "soak: {}\n", error.what());
  return 2;
}
