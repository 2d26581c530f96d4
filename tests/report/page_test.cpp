// The pages in a real browser: what they show, how they zoom and play.

#include "report/call_page.h"

#include <cmath>
#include <numbers>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "process/files.h"
#include "report/browser.h"
#include "report/calls.h"

namespace qv::tool::report {
namespace {

using qv::test::Browser;
using qv::test::Picture;
using test::Call;

constexpr double seconds = 4;

/// Opens the page of one call; another output is put beside it, 6 dB below.
class Page : public InFolder {
protected:
  static void SetUpTestSuite() {
    CallReport call =
        examine("tone </script> & <b>", test::tones(seconds).subject(), make_setup(std::nullopt, test::rate, 20));
    CallReport::Other other{"half", call.output, {}};
    for (int16_t &sample : other.output.sent)
      sample = int16_t(sample / 2);
    other.output.plain = to_signal(other.output.sent);
    other.results = measure::measure(call.subject, other.output);
    call.other = other;
    report = new CallReport(std::move(call));
    page = call_page(*report, {});
    browser = new Browser;
  }
  static void TearDownTestSuite() {
    delete browser;
    delete report;
  }
  void SetUp() override { browser->open(put("call.html", page)); }
  void TearDown() override { EXPECT_EQ(browser->problems(), std::vector<std::string>{}); }

  /// Where a time and a share of the height (0 the top) of a chart's plot lie on the page.
  std::pair<double, double> place(int chart, double time, double height) {
    const auto box =
        browser
            ->evaluate("(() => { const c = charts[" + std::to_string(chart) +
                       "], a = c.getArea(), r = c.graphDiv.getBoundingClientRect(), [b, e] = c.xAxisRange();"
                       "return [r.left + a.x, a.w, r.top + a.y, a.h, b, e]; })()")
            .get<std::vector<double>>();
    return {box[0] + box[1] * (time - box[4]) / (box[5] - box[4]), box[2] + box[3] * height};
  }
  /// Of the picture of a signal (0 microphone, 1 reference, 2 output), at a time and a frequency in kHz.
  double lightness(const Picture &picture, int signal, double time, double khz) {
    const auto [x, y] = place(signal, time, 1 - khz / (test::rate / 2000.0));
    return picture.lightness(x, y);
  }
  std::pair<double, double> visible() {
    const auto range = browser->evaluate("visible()").get<std::vector<double>>();
    return {range.at(0), range.at(1)};
  }
  std::string text(const std::string &selector) {
    return browser->evaluate("document.querySelector('" + selector + "').textContent");
  }

  static inline CallReport *report = nullptr;
  static inline std::string page;
  static inline Browser *browser = nullptr;
};

TEST_F(Page, shows_each_tone_at_its_time_and_frequency) {
  for (const bool dark : {false, true}) {
    browser->open(at("call.html"), dark);
    const Picture picture = browser->screenshot();
    const double sign = dark ? 1 : -1; // strong parts are light on a dark page, dark on a light one
    for (const auto &[signal, time, khz] : {std::tuple(0, 1.5, 1.0), {1, 2.5, 3.0}}) {
      const double there = lightness(picture, signal, time, khz);
      EXPECT_GT(sign * (there - lightness(picture, signal, time - 1, khz)), 60)
          << dark << " earlier, signal " << signal;
      EXPECT_GT(sign * (there - lightness(picture, signal, time + 1, khz)), 60) << dark << " later, signal " << signal;
      EXPECT_GT(sign * (there - lightness(picture, signal, time, khz + 0.5)), 60)
          << dark << " above, signal " << signal;
      EXPECT_GT(sign * (there - lightness(picture, signal, time, khz - 0.5)), 60)
          << dark << " below, signal " << signal;
    }
    EXPECT_EQ(picture.lightness(3, 3) > 128, !dark);
  }
}

TEST_F(Page, has_a_chart_for_everything) {
  std::vector<std::string> titles;
  for (const auto &title : browser->evaluate("charts.map(chart => chart.title)"))
    titles.push_back(title);
  EXPECT_EQ(titles, (std::vector<std::string>{"Microphone", "Reference", "Output", "Other output", "States", "Level",
                                              "Echo delay", "Echo reduction", "Noise level", "Gains"}));
  EXPECT_EQ(browser->evaluate("charts.filter(chart => chart.getArea().w < 500 || chart.getArea().h < 16).length"), 0);
  EXPECT_EQ(text("h1"), "tone </script> & <b>");
  EXPECT_EQ(text("#verdict"), report->diagnosis.verdict);
}

TEST_F(Page, zooms_and_pans_all_charts_together) {
  const auto expect_visible = [&](double begin, double end, const char *how) {
    EXPECT_NEAR(visible().first, begin, 0.03) << how;
    EXPECT_NEAR(visible().second, end, 0.03) << how;
    EXPECT_EQ(browser->evaluate("new Set(charts.map(chart => chart.xAxisRange().map(t => t.toFixed(3)).join())).size"),
              1)
        << how;
  };
  expect_visible(0, seconds, "at first");
  const auto [x1, y1] = place(0, 1, 0.5);
  const auto [x2, y2] = place(0, 2, 0.52);
  browser->drag(x1, y1, x2, y2);
  expect_visible(1, 2, "drag");
  const Picture zoomed = browser->screenshot();
  EXPECT_LT(lightness(zoomed, 0, 1.1, 1) + 60, lightness(zoomed, 0, 1.1, 2)); // the tone now begins at the left edge
  browser->key("ArrowRight");
  expect_visible(1.2, 2.2, "arrow");
  browser->key("+");
  expect_visible(1.45, 1.95, "plus");
  browser->key("0");
  expect_visible(0, seconds, "zero");
  const auto [x, y] = place(5, 1, 0.5);
  browser->mouse("mouseWheel", x, y, {{"deltaX", 0}, {"deltaY", -208}, {"modifiers", 2}}); // exp(-208 / 300) = 0.5
  expect_visible(0.5, 2.5, "wheel");
  browser->click(place(0, 1, 0.5).first, y1);
  browser->key("0");
}

TEST_F(Page, follows_two_fingers_and_one) {
  const auto [left, y] = place(0, 1, 0.5);
  const double right = place(0, 3, 0.5).first, width = right - left;
  browser->touch("touchStart", {{left + 0.25 * width, y}, {right - 0.25 * width, y}});
  browser->touch("touchMove", {{left, y}, {right, y}});
  browser->touch("touchEnd", {});
  EXPECT_NEAR(visible().first, 1, 0.1);
  EXPECT_NEAR(visible().second, 3, 0.1);
  browser->touch("touchStart", {{left, y}});
  browser->touch("touchMove", {{left + 0.5 * width, y}});
  browser->touch("touchEnd", {});
  EXPECT_NEAR(visible().first, 0.5, 0.1);
  EXPECT_NEAR(visible().second, 2.5, 0.1);
}

TEST_F(Page, plays_from_where_it_is_clicked) {
  const auto [x, y] = place(0, 1.5, 0.5);
  browser->click(x, y);
  EXPECT_NEAR(browser->evaluate("player.time").get<double>(), 1.5, 0.02);
  EXPECT_EQ(text("#clock"), "1.50 s");
  browser->key(" ");
  browser->evaluate(
      "new Promise(done => { const wait = () => player.time > 1.7 ? done() : setTimeout(wait, 20); wait(); })");
  EXPECT_EQ(browser->evaluate("player.playing"), true);
  browser->key("3");
  browser->evaluate("new Promise(done => { const wait = () => player.chosen === 'out' && player.playing ? done() : "
                    "setTimeout(wait, 20); wait(); })");
  EXPECT_GT(browser->evaluate("player.time").get<double>(), 1.65);
  browser->key(" ");
  EXPECT_EQ(browser->evaluate("player.playing"), false);
  // What is heard is the recording: the tone's rms where it sounds, silence where it does not.
  const auto rms =
      browser
          ->evaluate("(async () => { const bytes = Uint8Array.from(atob(data.signals[0].audio), c => c.charCodeAt(0));"
                     "const context = new OfflineAudioContext(1, 1, data.rate);"
                     "const heard = (await context.decodeAudioData(bytes.buffer)).getChannelData(0);"
                     "const rms = (from, to) => Math.sqrt(heard.slice(from * data.rate, to * data.rate).reduce((sum, "
                     "v) => sum + v * v, 0)"
                     " / ((to - from) * data.rate)); return [rms(0, 0.9), rms(1.1, 1.9)]; })()")
          .get<std::vector<double>>();
  EXPECT_LT(rms.at(0), 0.001);
  EXPECT_NEAR(rms.at(1), test::tone_amplitude / std::numbers::sqrt2, 1e-3);
}

TEST_F(Page, shows_the_numbers_that_were_measured) {
  size_t compared = 0;
  for (const measure::Measure &measure : shown_measures()) {
    const std::string cells = "tr[data-name=\"" + std::string(measure.key) + "\"] td:nth-child(";
    const auto shown = [&](const measure::Value &value) {
      return value.known() ? fmt::format("{:.{}f}", value.number(), measure.decimals) : "not measured";
    };
    const measure::Value &own = report->results.*measure.value, &other = report->other->results.*measure.value;
    const auto plus_zero = [](std::string number) {
      return number.find_first_of("123456789") == number.npos && number[0] == '-' ? number.substr(1) : number;
    };
    EXPECT_EQ(plus_zero(text(cells + "2)")), plus_zero(shown(own))) << measure.key;
    EXPECT_EQ(plus_zero(text(cells + "3)")), plus_zero(shown(other))) << measure.key;
    compared += own.known();
  }
  EXPECT_GT(compared, 5u);
  EXPECT_EQ(text("tr[data-name=\"out_level_dbfs\"] td:nth-child(4)"), "+6.0");
  const double found = browser->evaluate("data.lanes[0].series[0].values[75]"); // microphone at 1.5 s
  EXPECT_NEAR(found, 20 * std::log10(test::tone_amplitude) - 3.01, 0.1);
}

TEST(ReportFile, is_the_same_every_time_and_small_enough_to_send) {
  const Call call = test::noise(60, 16000);
  const auto page = [&] { return call_page(examine("long", call.subject(), make_setup(std::nullopt, 16000, 20)), {}); };
  const std::string first = page();
  EXPECT_EQ(first, page());
  EXPECT_LT(first.size(), 12'000'000u);
  EXPECT_GT(first.size(), 1'000'000u);
}

} // namespace
} // namespace qv::tool::report
