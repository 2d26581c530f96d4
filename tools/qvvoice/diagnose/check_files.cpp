// Whether the two recordings are what their files say: samples, and as much of one as of the other.

#include "diagnose/checks.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include <fmt/format.h>

namespace qv::tool::diagnose {
namespace {

constexpr double rough_like_noise = 0.6; // speech and rooms stay below 0.4, bytes in the wrong order reach 0.9
constexpr double loud_db = -30;          // dBov; wrong high bytes are spread over the whole range

/// Power of the differences between neighbours over what it would be if they had nothing to do with each other.
double roughness(SampleView samples) {
  double differences = 0, energy = 0;
  for (size_t i = 1; i < samples.size(); ++i) {
    const double step = double(samples[i]) - double(samples[i - 1]);
    differences += step * step;
    energy += double(samples[i]) * double(samples[i]);
  }
  return energy > 0 ? differences / (2 * energy) : 0;
}

Samples bytes_exchanged(SampleView samples) {
  Samples other(samples.begin(), samples.end());
  for (int16_t &sample : other)
    sample = int16_t(uint16_t(uint16_t(sample) << 8 | uint16_t(sample) >> 8));
  return other;
}

/// As if the file had been read from one byte earlier.
Samples byte_earlier(SampleView samples) {
  Samples other(samples.begin(), samples.end());
  for (size_t i = samples.size() - 1; i > 0; --i)
    other[i] = int16_t(uint16_t(uint16_t(samples[i - 1]) >> 8 | uint16_t(samples[i]) << 8));
  return other;
}

/// Share of the pairs of samples, from the first, that hold one value twice.
double twin_share(SampleView samples) {
  size_t pairs = 0, twins = 0;
  for (size_t i = 0; i + 1 < samples.size(); i += 2)
    if (samples[i] != 0 || samples[i + 1] != 0)
      ++pairs, twins += samples[i] == samples[i + 1];
  return pairs > 0 ? double(twins) / double(pairs) : 0;
}

struct Misread {
  std::string found, next;
};

/// @return nothing when the samples look like samples
std::optional<Misread> misread(SampleView samples) {
  constexpr double twins_by_chance = 0.5, much_smoother = 0.5;
  constexpr std::string_view riff = "RIFF";
  if (samples.size() > 1 && std::memcmp(samples.data(), riff.data(), riff.size()) == 0)
    return Misread{"begins with the header of a WAV file, read as samples",
                   "Read it as a WAV file, or leave its header out (mostly the first 44 bytes)."};
  if (twin_share(samples) > twins_by_chance)
    return Misread{"holds every sample twice: two channels read as one?",
                   "Take one channel of it (--mic-channel, --ref-channel)."};
  const double rough = roughness(samples);
  if (rough < rough_like_noise || to_db(power(to_signal(samples))).value_or(loud_db) < loud_db)
    return std::nullopt;
  const double exchanged = roughness(bytes_exchanged(samples)), earlier = roughness(byte_earlier(samples));
  if (std::min(exchanged, earlier) > much_smoother * rough)
    return std::nullopt;
  if (exchanged < earlier)
    return Misread{"has the bytes of its samples in the wrong order: it becomes smooth with them exchanged",
                   "Read it with the other byte order (big or little endian)."};
  return Misread{"is read from the wrong byte on: it becomes smooth from one byte earlier",
                 "Leave out an even number of bytes before the samples: a header, or a byte lost."};
}

} // namespace

Check check_format(const Evidence &evidence) {
  Check check{"format", "Samples"};
  check.limit = "samples of 16 bits of one channel each";
  check.numbers = {{"mic_roughness", roughness(evidence.mic_samples)},
                   {"ref_roughness", roughness(evidence.ref_samples)}};
  check.state = State::ok;
  check.found = "nothing else was read as samples";
  for (const auto &[name, samples] :
       {std::pair("microphone", &evidence.mic_samples), {"reference", &evidence.ref_samples}})
    if (const auto wrong = misread(*samples); wrong && check.state == State::ok) {
      check.state = State::wrong;
      check.found = fmt::format("the {} {}", name, wrong->found);
      check.next = wrong->next;
    }
  return check;
}

Check check_length(const Evidence &evidence) {
  constexpr double most_seconds = 1, most_share = 0.1;
  const double mic = double(evidence.mic_samples.size()) / evidence.setup.rate,
               ref = double(evidence.ref_samples.size()) / evidence.setup.rate, apart = std::abs(mic - ref);
  Check check{"length", "Length of the two"};
  check.numbers = {{"mic_s", mic}, {"ref_s", ref}};
  check.limit = fmt::format("at most {:.0f} s or {:.0f} % apart", most_seconds, 100 * most_share);
  check.found = fmt::format("microphone {:.1f} s, reference {:.1f} s", mic, ref);
  check.state = apart <= most_seconds || apart <= most_share * std::max(mic, ref) ? State::ok : State::wrong;
  if (check.state == State::wrong) {
    check.found = fmt::format("the {} ends {:.1f} s before the other: {}", mic < ref ? "microphone" : "reference",
                              apart, check.found);
    check.next = "Record both over the same time, or cut the longer one: what has no counterpart cannot be judged.";
  }
  return check;
}

} // namespace qv::tool::diagnose
