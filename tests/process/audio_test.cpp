// Recordings come in as they are, or are refused with the reason.
#include "audio/audio.h"

#include <cmath>
#include <numbers>

#include "files.h"
#include "support.h"
#include "support/error.h"

namespace qv::tool {
namespace {

using AudioFile = InFolder;
using Samples = std::vector<int16_t>;

const Samples extremes = {0, 1, -1, 12345, -12345, 32767, -32768, 256};

TEST_F(AudioFile, integer_samples_come_through_exact) {
  std::vector<int> wide;
  for (const int16_t sample : extremes)
    wide.push_back(int(sample) << 16);
  const std::string files[] = {
      put_audio("a.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 8000, 1, extremes),
      put_audio("a.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 8000, 1, extremes),
      put_audio("a24.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 8000, 1, wide),
      put_audio("a32.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_32, 8000, 1, wide),
  };
  for (const std::string &file : files) {
    const Recording recording = read_audio({.path = file});
    EXPECT_EQ(recording.audio.samples, extremes) << file;
    EXPECT_EQ(recording.audio.rate, 8000);
    EXPECT_EQ(recording.clipped, 0u);
  }
}

TEST_F(AudioFile, floats_are_scaled_rounded_and_clipped_with_a_count) {
  const std::vector<float> values = {0.f, 0.5f, -1.f, 1.f, 1.5f, -1.5f, 0.4f / 32768, 0.6f / 32768};
  const Recording recording =
      read_audio({.path = put_audio("f.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 16000, 1, values)});
  EXPECT_EQ(recording.audio.samples, (Samples{0, 16384, -32768, 32767, 32767, -32768, 0, 1}));
  EXPECT_EQ(recording.clipped, 2u);
}

TEST_F(AudioFile, a_channel_is_chosen_and_headerless_samples_are_read) {
  const std::string stereo = put_wav("s.wav", 8000, {1, -1, 2, -2, 3, -3}, 2);
  EXPECT_EQ(read_audio({.path = stereo, .channel = 2}).audio.samples, (Samples{-1, -2, -3}));
  const std::string raw = put("s.raw", std::string("\x01\x02\x03\x04", 4));
  const auto samples = [&](const char *encoding, int channels, int channel) {
    return read_audio({.path = raw, .channel = channel, .raw = RawFormat{encoding, 8000, channels}}).audio.samples;
  };
  EXPECT_EQ(samples("s16le", 1, 0), (Samples{0x201, 0x403}));
  EXPECT_EQ(samples("s16be", 1, 0), (Samples{0x102, 0x304}));
  EXPECT_EQ(samples("s8", 2, 2), (Samples{0x200, 0x400}));
}

/// A tone away from the ends, where a filter sees silence.
std::vector<double> tone(int rate, size_t count) {
  std::vector<double> samples(count);
  for (size_t i = 0; i < count; ++i)
    samples[i] = 10000 * std::sin(2 * std::numbers::pi * 1000.0 * double(i) / rate);
  return samples;
}

// Catches a converter that shifts, scales or cuts: the tone of the other rate is what comes out.
TEST(ConvertRate, keeps_level_place_and_length) {
  for (const auto &[from, to] : {std::pair{44100, 16000}, {8000, 16000}, {48000, 8000}}) {
    const auto in = tone(from, size_t(from));
    Recording recording{{from, Samples(in.begin(), in.end())}, 1, from, 0};
    convert_rate(recording, to);
    const auto expected = tone(to, size_t(to));
    ASSERT_EQ(recording.audio.samples.size(), expected.size());
    const size_t edge = expected.size() / 10;
    const std::span<const double> inside(expected.begin() + long(edge), expected.end() - long(edge));
    const std::span<const int16_t> converted(recording.audio.samples.begin() + long(edge), inside.size());
    EXPECT_LT(test::relative_error(inside, converted), 1e-3) << from << " to " << to;
    EXPECT_EQ(recording.file_rate, from);
  }
}

TEST_F(AudioFile, what_cannot_be_used_is_refused_with_the_reason) {
  const std::string whole = bytes_of(put_wav("whole.wav", 8000, Samples(1000, 5)));
  const struct {
    Source source;
    const char *reason;
  } cases[] = {
      {{.path = at("none.wav")}, "no such file"},
      {{.path = folder.string()}, "is a folder"},
      {{.path = put("empty.wav", "")}, "is empty"},
      {{.path = put("text.wav", "not audio at all")}, "cannot be read as audio"},
      {{.path = put_wav("nothing.wav", 8000, {})}, "holds no samples"},
      {{.path = put("cut.wav", whole.substr(0, 1001))}, "promises 2000 bytes of samples, 957 are there"},
      {{.path = put_audio("nan.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 8000, 1, std::vector<float>{0, NAN})},
       "sample 1 is not a number"},
      {{.path = put_wav("stereo.wav", 8000, {1, 2}, 2)}, "has 2 channels; choose one of 1 to 2 with --channel"},
      {{.path = at("stereo.wav"), .channel = 3}, "has no channel 3; it has channels 1 to 2"},
      {{.path = at("whole.wav"), .channel = 2}, "has no channel 2; it has one channel"},
      {{.path = put("odd.raw", "abc"), .raw = RawFormat{"s16le", 8000, 1}}, "3 bytes are not a whole number of s16le"},
      {{.path = at("odd.raw"), .raw = RawFormat{"s17", 8000, 1}}, "raw encoding 's17' is not known"},
  };
  for (const auto &[source, reason] : cases) {
    try {
      read_audio(source);
      ADD_FAILURE() << source.path << " was read";
    } catch (const InputError &error) {
      EXPECT_NE(std::string(error.what()).find(reason), std::string::npos) << error.what();
      EXPECT_EQ(std::string(error.what()).find(source.path), 0u) << error.what();
    }
  }
}

// The decoder reports some cuts and takes others for the end.
TEST_F(AudioFile, a_flac_file_cut_anywhere_is_refused) {
  const std::string whole = bytes_of(
      put_audio("whole.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 8000, 1, test::noise_samples(1, 40000, 9000)));
  for (size_t part = 1; part < 64; ++part) {
    const std::string cut = put("cut.flac", whole.substr(0, whole.size() * part / 64));
    EXPECT_THROW(read_audio({.path = cut}), InputError) << part << "/64";
  }
}

} // namespace
} // namespace qv::tool
