#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <sstream>

#include "folder.h"
#include "para/bands.h"
#include "para/diff.h"
#include "para/fir_design.h"
#include "para/level_curve.h"
#include "para/plots.h"
#include "para/reference.h"
#include "para/text_reader.h"
#include "qvvoice/post/agc.h"
#include "qvvoice/post/eq.h"

namespace qv::tool::para {
namespace {

std::string document(const char *name) {
  return bytes_of(std::filesystem::path(__FILE__).parent_path() / "../../docs" / name);
}

TEST(Reference, documents_are_current) {
  EXPECT_TRUE(document("parameters.md") == reference_markdown())
      << "renew with: qvvoice para fields --form markdown --out docs/parameters.md";
  EXPECT_TRUE(document("parameters.schema.json") == text_schema().dump(2) + "\n")
      << "renew with: qvvoice para fields --form schema --out docs/parameters.schema.json";
}

Image image_of(const std::string &text) {
  const ReadText read = read_text(text, {});
  EXPECT_TRUE(read.log.findings().empty()) << text;
  return read.image;
}

TEST(Diff, speaks_in_physical_units) {
  const Image a = image_of("rate = 16000\n");
  const Image b = image_of("rate = 16000\n[tx.agc]\nknee_low_db = -48.5\n[rx.eq]\npoints = [[2000, 0], [3000, -12]]\n"
                           "[raw]\n1 = 7\n");
  EXPECT_TRUE(diff(a, a).empty());
  const auto found = diff(a, b);
  ASSERT_EQ(found.size(), 4u);
  EXPECT_EQ(found[0].key + " " + found[0].b + " " + found[0].unit, "tx.agc.knee_low_db -48.5 dB");
  EXPECT_EQ(found[1].key + " " + found[1].b, "rx.eq.half_taps 65");
  EXPECT_EQ(found[2].key, "rx.eq.coef");
  EXPECT_EQ(found[3].key + " " + found[3].a + " " + found[3].b, "raw.1 0 7");
  EXPECT_EQ(diff(a, image_of("rate = 8000\n")).at(0).key, "rate");
}

// The drawn curves are those of the library: its gain control and its equaliser measured at points.
TEST(Plots, curves_are_what_the_library_does) {
  const Image image = image_of("rate = 16000\n[tx.agc]\nknee_gain_db = 3\nslope_low = 2\nslope_mid = 0.75\n[tx.eq]\n"
                               "enable = true\npoints = [[1000, 0], [3000, -9], [5000, -2]]\ntaps = 101\n");
  ASSERT_EQ(VOICE_SetPara_1(image.data(), 16000, 320), 0);
  const LevelCurve curve(Values(image), "tx.agc");
  for (const int16_t amplitude : {5, 33, 1000, 8000, 20000}) {
    AgcState agc;
    AGC_Init(&g_stVoicePara.stAgcTx, &agc);
    const std::vector<int16_t> in(320, amplitude);
    std::vector<int16_t> out(320);
    for (int frame = 0; frame < 10; ++frame)
      AGC_Process(in.data(), out.data(), &agc);
    const double level = AGC_Power2Db(float(amplitude) * float(amplitude));
    EXPECT_NEAR(20 * std::log10(agc.fGainPrev), curve.gain(level), 0.01) << amplitude;
  }
  const auto half = Values(image).half_response("tx.eq");
  for (const double hz : {300.0, 1000.0, 3000.0, 5000.0, 7000.0}) {
    EqState eq;
    EQ_Init(&g_stVoicePara.stEqTx, &eq);
    double in_power = 0, out_power = 0;
    for (int frame = 0; frame < 20; ++frame) {
      int16_t samples[320];
      for (int i = 0; i < 320; ++i)
        samples[i] = int16_t(std::lround(16000 * std::sin(2 * std::numbers::pi * hz * (frame * 320 + i) / 16000)));
      for (const int16_t sample : samples)
        in_power += frame > 0 ? double(sample) * sample : 0;
      EQ_Process(samples, samples, &eq);
      for (const int16_t sample : samples)
        out_power += frame > 0 ? double(sample) * sample : 0;
    }
    EXPECT_NEAR(10 * std::log10(out_power / in_power), response_db(half, hz, 16000), 0.02) << hz;
    EQ_Destroy(&eq);
  }
  EXPECT_NEAR(response_db(half, 1000, 16000), 0, 0.5);
  EXPECT_NEAR(response_db(half, 3000, 16000), -9, 0.5);
  EXPECT_NEAR(response_db(half, 7000, 16000), -2, 0.1);
}

TEST(Plots, a_flat_response_is_an_impulse_and_one_tap_a_gain) {
  const ResponsePoint flat[] = {{1000, -6}};
  const double gain = std::pow(10, -6.0 / 20);
  const auto half = design_fir(flat, 257, 8000);
  ASSERT_EQ(half.size(), 129u);
  for (size_t i = 0; i < half.size(); ++i)
    EXPECT_NEAR(half[i], i == 128 ? gain : 0, 1e-12) << i;
  EXPECT_NEAR(design_fir(flat, 1, 8000).at(0), gain, 1e-12);
}

// A Hamming window leaves ripples of -53 dB beside a step, half a main lobe, 2 rate / taps, away.
TEST(Plots, a_step_has_the_ripple_of_the_window) {
  const ResponsePoint step[] = {{1000, 0}, {1001, -90}};
  const auto half = design_fir(step, 257, 8000);
  for (double hz = 1000 + 2.0 * 8000 / 257; hz <= 4000; hz += 2)
    ASSERT_LT(response_db(half, hz, 8000), -51) << hz;
}

/// Numbers of the n-th polyline of a picture.
std::vector<std::pair<double, double>> polyline(const std::string &svg, size_t n) {
  size_t at = 0;
  for (size_t i = 0; i <= n; ++i)
    at = svg.find("points=\"", at) + 8;
  std::istringstream points(svg.substr(at, svg.find('"', at) - at));
  std::vector<std::pair<double, double>> result;
  char comma;
  for (double x, y; points >> x >> comma >> y;)
    result.emplace_back(x, y);
  return result;
}

TEST(Plots, pictures_show_curves_knees_and_bands) {
  const Image image = image_of(
      "rate = 8000\n[tx.agc]\nknee_low_db = -45\nslope_mid = 0.5\n[rx.agc]\nenable = false\n[aec.double_talk]\n"
      "judge = [true, true, true, true, true, false]\n");
  const std::string agc = plot_gain_control(image, "a<b&c.toml"), eq = plot_equaliser(image, "b"),
                    dtd = plot_double_talk(image, "c");
  EXPECT_NE(agc.find("transmit: knees at -45 dB"), std::string::npos);
  EXPECT_NE(agc.find("receive (off): knees"), std::string::npos);
  EXPECT_NE(agc.find("a&lt;b&amp;c.toml"), std::string::npos);
  EXPECT_NE(dtd.find(">2549<"), std::string::npos);
  const auto diagonal = polyline(agc, 0), curve = polyline(agc, 2);
  ASSERT_EQ(curve.size(), 361u);
  EXPECT_EQ(curve.front().first, diagonal.front().first); // -90 dB at the left, 0 dB at the right
  EXPECT_EQ(curve.back().first, diagonal.back().first);
  const double px_per_db = (diagonal.back().second - diagonal.front().second) / 90;
  EXPECT_NEAR(curve[180].second, diagonal.back().second + px_per_db * -28.5, 0.1); // -45 dB in, -12 - 0.5 * 33 dB out
  EXPECT_EQ(polyline(dtd, 0).size(), 12u) << "two ends for each of six groups";
  for (const std::string &svg : {agc, eq, dtd}) {
    EXPECT_EQ(svg.substr(0, 5), "<svg ");
    EXPECT_EQ(svg.substr(svg.size() - 7), "</svg>\n");
    EXPECT_EQ(svg.find("nan"), std::string::npos);
    EXPECT_EQ(svg.find("inf"), std::string::npos);
  }
}

// Edges between groups follow from the Bark scale that the filter bank is built on.
TEST(Bands, groups_tile_the_spectrum) {
  for (const int32_t rate : {8000, 16000}) {
    double edge = 0;
    for (int32_t g = 0; g < config::group_count(rate); ++g) {
      EXPECT_NEAR(group_range(rate, g).low, edge, 0.1);
      edge = group_range(rate, g).high;
    }
    EXPECT_NEAR(edge, rate / 2, 0.1);
  }
  EXPECT_NEAR(band_hz(8000, 1), 78, 1); // 0.7545 Bark
}

} // namespace
} // namespace qv::tool::para
