// The pages in a real browser: what they show, how they zoom and play, where they lead.

#include "report/call_page.h"

#include <cmath>
#include <numbers>

#include "process/files.h"
#include "report/browser.h"
#include "support.h"

namespace qv::tool::report {
namespace {

constexpr int rate = 8000; // Hz
constexpr double seconds = 4, amplitude = 0.25;

/// A call with a tone at the microphone from 1 to 2 s.
class Page : public InFolder {
protected:
  Page() {
    std::vector<int16_t> mic(size_t(seconds * rate));
    for (size_t i = rate; i < 2 * rate; ++i)
      mic[i] = int16_t(std::lround(32767 * amplitude * std::sin(2 * std::numbers::pi * 1000 * double(i) / rate)));
    const measure::Subject subject{"call", rate, mic, std::vector<int16_t>(mic.size()), {}, {}, {}};
    const CallReport call = examine("tone </script> & <b>", subject, make_setup(std::nullopt, rate, 20));
    browser.open(put("call.html", call_page(call, {})));
  }
  void TearDown() override { EXPECT_EQ(browser.problems(), std::vector<std::string>{}); }

  /// Where a time of the first chart lies on the page, x and y.
  std::pair<double, double> place(double time) {
    return browser.evaluate("(() => { const r = charts[0].graphDiv.getBoundingClientRect();"
                            "return [r.left + charts[0].toDomXCoord(" +
                            std::to_string(time) + "), r.top + r.height / 2]; })()");
  }
  void wait(const std::string &condition) {
    browser.evaluate("new Promise(done => { const wait = () => " + condition +
                     " ? done() : setTimeout(wait, 20); wait(); })");
  }

  qv::test::Browser browser;
};

TEST_F(Page, shows_the_tone_and_all_charts) {
  const std::vector<double> levels = browser.evaluate(
      "Spectrogram.load(data.signals[0].picture).then(picture => [[1.5, 1000], [1.5, 1500], [0.9, 1000]]"
      ".map(([time, hz]) => picture.levelAt(time, hz)))");
  EXPECT_NEAR(levels.at(0), 20 * std::log10(amplitude) - 3.01, 0.6);
  EXPECT_LT(levels.at(1), -80);
  EXPECT_LT(levels.at(2), -80);
  EXPECT_EQ(browser.evaluate("charts.map(chart => chart.title).join()"),
            "Microphone,Reference,Output,States,Level,Echo delay,Echo reduction,Noise level,Gains");
  EXPECT_EQ(browser.evaluate("charts.filter(chart => chart.getArea().w < 500 || chart.getArea().h < 16).length"), 0);
  EXPECT_EQ(browser.evaluate("document.querySelector('h1').textContent"), "tone </script> & <b>");
}

TEST_F(Page, zooms_and_pans_all_charts_together) {
  const auto expect_visible = [&](double begin, double end, const char *how) {
    for (const auto &range : browser.evaluate("charts.map(chart => chart.xAxisRange())")) {
      EXPECT_NEAR(range[0], begin, 0.03) << how;
      EXPECT_NEAR(range[1], end, 0.03) << how;
    }
  };
  expect_visible(0, seconds, "at first");
  const auto [x, y] = place(1);
  browser.drag(x, place(2).first, y);
  expect_visible(1, 2, "drag");
  browser.key("ArrowRight");
  expect_visible(1.2, 2.2, "arrow");
  browser.key("+");
  expect_visible(1.45, 1.95, "plus");
  browser.key("0");
  expect_visible(0, seconds, "zero");
}

TEST_F(Page, plays_from_where_it_is_clicked) {
  const auto [x, y] = place(1.5);
  browser.drag(x, x, y);
  EXPECT_NEAR(browser.evaluate("player.time").get<double>(), 1.5, 0.02);
  EXPECT_EQ(browser.evaluate("byId('clock').textContent"), "1.50 s");
  browser.key(" ");
  wait("player.time > 1.7");
  browser.key("3");
  wait("player.chosen === 'out' && player.playing");
  EXPECT_GT(browser.evaluate("player.time").get<double>(), 1.65);
  browser.key(" ");
  EXPECT_EQ(browser.evaluate("player.playing"), false);
  // What is heard is the recording: the tone's rms where it sounds, silence where it does not.
  const std::pair<double, double> rms = browser.evaluate(
      "(async () => { const bytes = Uint8Array.from(atob(data.signals[0].audio), c => c.charCodeAt(0));"
      "const heard = await new OfflineAudioContext(1, 1, data.rate).decodeAudioData(bytes.buffer);"
      "const rms = (from, to) => Math.sqrt(heard.getChannelData(0).slice(from * data.rate, to * data.rate)"
      ".reduce((sum, v) => sum + v * v, 0) / ((to - from) * data.rate)); return [rms(0, 0.9), rms(1.1, 1.9)]; })()");
  EXPECT_LT(rms.first, 0.001);
  EXPECT_NEAR(rms.second, amplitude / std::numbers::sqrt2, 1e-3);
}

// Loud noise packs worst.
TEST(ReportFile, is_the_same_every_time_and_small_enough_to_send) {
  const std::vector<int16_t> noise = qv::test::noise_samples(1, 60 * 16000, 2000);
  const measure::Subject subject{"long", 16000, noise, noise, {}, {}, {}};
  const auto page = [&] { return call_page(examine("long", subject, make_setup(std::nullopt, 16000, 20)), {}); };
  const std::string first = page();
  EXPECT_EQ(first, page());
  EXPECT_LT(first.size(), 12'000'000u);
}

class ReportCommand : public InFolder {
protected:
  void put_call(const std::string &name) const {
    fs::create_directories(folder / name);
    for (const char *file : {"/mic.wav", "/ref.wav"})
      put_wav(name + file, 8000, qv::test::noise_samples(1, 4 * 8000, 2000));
  }
};

// A broken recording is named on the front page and does not keep the others from theirs; every page leads to its
// neighbours and back.
TEST_F(ReportCommand, makes_a_set_of_pages_that_lead_to_each_other) {
  put_call("calls/first one");
  put_call("calls/deeper/second");
  put_call("calls/broken");
  put("calls/broken/mic.wav", "no audio");
  const CommandResult result = run_command(folder, "report --set calls --out pages --against-para balanced-8k-16ms");
  EXPECT_EQ(result.status, 2) << result.err;
  EXPECT_NE(result.err.find("calls/broken/mic.wav"), std::string::npos) << result.err;
  EXPECT_EQ(result.out, "pages/index.html\n");

  qv::test::Browser browser;
  browser.open(at("pages/index.html"));
  const auto rows = "[...document.querySelectorAll('tbody tr')].map(row => row.children[0].textContent).join()";
  EXPECT_EQ(browser.evaluate(rows), "broken,deeper/second,first one");
  EXPECT_NE(browser.evaluate("document.querySelector('tr .verdict').textContent").dump().find("mic.wav"),
            std::string::npos);
  browser.evaluate("document.querySelector('th').click(); document.querySelector('th').click()");
  EXPECT_EQ(browser.evaluate(rows), "first one,deeper/second,broken");
  browser.follow("document.querySelector('tbody a')", "first%20one.html");
  EXPECT_EQ(browser.evaluate("data.signals.map(signal => signal.id).join()"), "mic,ref,out,other");
  browser.follow("document.getElementById('link-previous')", "deeper/second.html");
  browser.follow("document.getElementById('link-next')", "first%20one.html");
  browser.follow("document.getElementById('link-front')", "pages/index.html");
  EXPECT_EQ(browser.problems(), std::vector<std::string>{});
}

TEST_F(ReportCommand, refuses_what_it_cannot_do) {
  put_call("one");
  for (const auto &[words, named] : {std::pair("report one", "--out"),
                                     {"report --out page.html", "required"},
                                     {"report nowhere --out page.html", "nowhere/mic.wav"},
                                     {"report one --out page.html --against other.wav", "other.wav"},
                                     {"report --set nothing --out pages", "nothing"},
                                     {"report one --out page.html --para none.toml", "none.toml"}}) {
    const CommandResult result = run_command(folder, words);
    EXPECT_EQ(result.status, 2) << words << result.out;
    EXPECT_NE(result.err.find(named), std::string::npos) << words << ": " << result.err;
    EXPECT_FALSE(fs::exists(folder / "page.html")) << words;
  }
}

} // namespace
} // namespace qv::tool::report
