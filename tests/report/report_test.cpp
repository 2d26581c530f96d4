// The pages in a real browser: what they show, how they zoom and play, where they lead.

#include "report/call_page.h"

#include <cmath>
#include <numbers>

#include "process/files.h"
#include "report/browser.h"
#include "report/spectrogram.h"
#include "support.h"

namespace qv::tool::report {
namespace {

constexpr int rate = 8000; // Hz
constexpr double seconds = 4, amplitude = 0.25;

/// The tone between two samples, silence around it.
void put_tone(std::vector<int16_t> &samples, size_t begin, size_t end) {
  for (size_t i = begin; i < end; ++i)
    samples[i] = int16_t(std::lround(32767 * amplitude * std::sin(2 * std::numbers::pi * 1000 * double(i) / rate)));
}

/// A silent call of frames of 20 ms; nothing of it has been run.
CallReport silent_call(size_t frames) {
  const std::vector<int16_t> silence(frames * 160);
  CallReport call{
      "made", make_setup(std::nullopt, rate, 20), {"made", rate, silence, silence, {}, {}, {}}, {}, {}, {}, {}, {}};
  call.output.sent = silence;
  call.output.frame_len = 160;
  call.output.trace.resize(frames);
  return call;
}

/// A call with a tone at the microphone from 1 to 2 s.
class Page : public InFolder {
protected:
  Page() {
    std::vector<int16_t> mic(size_t(seconds * rate));
    put_tone(mic, rate, 2 * rate);
    const measure::Subject subject{"call", rate, mic, std::vector<int16_t>(mic.size()), {}, {}, {}};
    const CallReport call = examine("tone </script> & <b>", subject, make_setup("clear-8k-20ms", rate, 20));
    browser.open(put("call.html", call_page(call, {})));
  }
  void TearDown() override { EXPECT_EQ(browser.problems(), std::vector<std::string>{}); }

  /// Where a time of the first chart lies on the page, x and y.
  std::pair<double, double> place(double time) {
    return browser.evaluate("(() => { const r = charts[0].graphDiv.getBoundingClientRect();"
                            "return [r.left + charts[0].toDomXCoord(" +
                            std::to_string(time) + "), r.top + r.height / 2]; })()");
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
            "Microphone,Reference,Output,States,Level,Echo delay,Echo reduction,Explained,Drift,Noise level,Gains");
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
  // How far it has come by then is the sound device's affair: a loaded machine may not have begun.
  EXPECT_TRUE(browser.comes_true("player.playing"));
  browser.key("3");
  EXPECT_TRUE(browser.comes_true("player.chosen === 'out' && player.playing"));
  EXPECT_GT(browser.evaluate("player.time").get<double>(), 1.45);
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

TEST_F(Page, repeats_the_part_that_is_marked) {
  const auto [x, y] = place(1.2);
  browser.drag(x, place(1.4).first, y, 2);
  const std::pair<double, double> marked = browser.evaluate("region");
  EXPECT_NEAR(marked.first, 1.2, 0.02);
  EXPECT_NEAR(marked.second, 1.4, 0.02);
  EXPECT_NEAR(browser.evaluate("visible()[1]").get<double>(), seconds, 0.03) << "a mark does not zoom";
  browser.evaluate("player.seek(1.7)");
  browser.key(" ");
  EXPECT_TRUE(browser.comes_true("player.playing && player.time < 1.45"));
  browser.evaluate("player.seek(1.7)");
  EXPECT_TRUE(browser.comes_true("player.playing && player.time < 1.45"));
  browser.key("Escape");
  EXPECT_EQ(browser.evaluate("region"), nullptr);
}

// A call is as long as its microphone; nothing of it need be run for that.
TEST_F(Page, of_a_long_call_plays_ten_minutes_and_says_so) {
  browser.open(put("long.html", call_page(silent_call(601 * 50), {})));
  ASSERT_TRUE(browser.comes_true("player.track.duration > 0"));
  EXPECT_NEAR(browser.evaluate("player.track.duration").get<double>(), 600, 0.01);
  EXPECT_EQ(browser.evaluate("player.seek(601), player.time"), 600);
  EXPECT_EQ(browser.evaluate("charts[0].xAxisRange()[1]"), 601) << "all of it is drawn";
  EXPECT_EQ(browser.evaluate("document.body.innerText.includes('the first 10 minutes')"), true);
}

// The trace counts frames, 1 ms of delay and 1 dB each.
TEST(Lanes, of_a_long_call_are_bounded_means_and_in_charts_of_steps_the_last) {
  const struct {
    size_t frames, per_point, points;
  } cases[] = {{6000, 1, 6000}, {6001, 2, 3001}, {12000, 2, 6000}, {12001, 3, 4001}};
  for (const auto &one : cases) {
    CallReport call = silent_call(one.frames);
    for (size_t i = 0; i < one.frames; ++i) {
      call.output.trace[i].echo_delay = int32_t(8 * i);
      call.output.trace[i].erle_db = float(i);
    }
    const auto charts = lanes(call.subject, {call.output, call.results}, std::nullopt, {});
    size_t series = 0;
    for (const auto &chart : charts)
      for (const auto &curve : chart["series"]) {
        EXPECT_EQ(curve["values"].size(), one.points) << one.frames << " " << curve["label"];
        ++series;
      }
    EXPECT_GT(series, 8u);
    EXPECT_DOUBLE_EQ(charts[1]["step"], double(one.per_point) * 0.02);
    EXPECT_EQ(charts[1]["series"][0]["values"][1], 2 * one.per_point - 1) << one.frames;
    EXPECT_EQ(charts[2]["series"][0]["values"][1], double(3 * one.per_point - 1) / 2) << one.frames;
    EXPECT_EQ(charts[2]["series"][0]["values"].back(), double((one.points - 1) * one.per_point + one.frames - 1) / 2);
  }
}

// 20 frames of 20 ms: the bulk delay becomes 40 ms in frame 10, where the path is found to have changed.
class StateSpaceRun : public InFolder {
protected:
  StateSpaceRun() {
    for (int i = 0; i < 20; ++i) {
      QvVoiceTrace &trace = call.output.trace[size_t(i)];
      trace.state_space = trace.single_talk = trace.muted = trace.comfort_noise = 1;
      trace.filter_delay = i < 10 ? 0 : 320;
      trace.filter_length = 800;
      trace.echo_delay = 400;
      trace.path_changed = i == 10;
      trace.drift_ppm = 30;
      trace.explained = 0.25f;
      trace.expected_residual_db = i < 5 ? -20.f : 40.309f; // -110 dBov: less than a sample can hold
      trace.linear_erle_db = i < 19 ? 20.f : -93.f;         // of a microphone that has ended
    }
  }
  RunView run() const { return {call.output, call.results}; }

  CallReport call = silent_call(20);
};

Json by_title(const Json &charts) {
  Json all;
  for (const Json &chart : charts)
    all[chart["title"].get<std::string>()] = chart;
  return all;
}

// Catches a scale that is wrong, a band at the wrong place or in a call without it, and a mark that is lost.
TEST_F(StateSpaceRun, is_drawn_with_what_only_this_canceller_knows) {
  const Json charts = by_title(lanes(call.subject, run(), std::nullopt, {}));
  for (const auto &[place, value] : {std::pair("/Echo delay/band/low/9", Json(0)),
                                     {"/Echo delay/band/low/10", 40},
                                     {"/Echo delay/band/high/10", 140},
                                     {"/Level/series/3/label", "expected residual echo"},
                                     {"/Level/series/3/values/4", nullptr},
                                     {"/Level/series/3/values/5", -50},
                                     {"/Echo reduction/series/1/values/18", 20},
                                     {"/Echo reduction/series/1/values/19", -30},
                                     {"/Explained/series/0/values/3", 25},
                                     {"/Drift/series/0/values/3", 30}})
    EXPECT_EQ(charts.at(Json::json_pointer(place)), value) << place;
  const Json rows = strips(call.subject, run(), std::nullopt)["rows"];
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_EQ(rows[1]["runs"], Json::parse("[[0.0, 0.4, 0]]"));
  EXPECT_EQ(rows[2]["runs"], Json::parse("[[0.2, 0.22, 0]]"));

  CallReport other = call;
  for (QvVoiceTrace &trace : other.output.trace)
    trace.state_space = 0;
  const RunView plain{other.output, other.results};
  const Json without = by_title(lanes(call.subject, plain, std::nullopt, {}));
  EXPECT_FALSE(without["Echo delay"].contains("band") || without.contains("Explained"));
  const Json beside = by_title(lanes(call.subject, plain, run(), {}));
  EXPECT_EQ(beside["Echo delay"]["band"]["label"], "reach of the filter, other");
  EXPECT_EQ(beside["Drift"]["series"].size(), 1u);
}

TEST_F(StateSpaceRun, has_its_reach_on_the_page_in_full) {
  qv::test::Browser browser;
  browser.open(put("call.html", call_page(call, {})));
  const auto chart = [&](const std::string &what) {
    return browser.evaluate("(chart => " + what + ")(charts.find(chart => chart.title === 'Echo delay'))");
  };
  const std::pair<double, double> range = chart("chart.yAxisRange()");
  EXPECT_LT(range.first, 0);
  EXPECT_GT(range.second, 140);
  // Pixels beside the curve and the grid: the band goes from 0 to 100 ms, then from 40 to 140.
  const std::vector<std::string> painted =
      chart("(all => [[0.13, 90], [0.33, 130], [0.13, 130], [0.33, 20]].map(([time, delay]) => 4 * (all.width * "
            "Math.round(chart.toDomYCoord(delay) * devicePixelRatio) + Math.round(chart.toDomXCoord(time) * "
            "devicePixelRatio))).map(at => all.data.slice(at, at + 3).join()))"
            "(chart.hidden_ctx_.getImageData(0, 0, chart.hidden_ctx_.canvas.width, chart.hidden_ctx_.canvas.height))");
  EXPECT_EQ(painted.at(0), painted.at(1));
  EXPECT_NE(painted.at(0), painted.at(2));
  EXPECT_EQ(painted.at(2), painted.at(3));
  EXPECT_EQ(browser.problems(), std::vector<std::string>{});
}

// 1000 s make columns of 801 samples. A tone of the middle 400 of one is seen with the energy of that share: 3.64 dB
// below the steady tone, by the sum over eleven windows written out.
TEST(Spectrogram, of_a_long_call_shows_the_mean_of_what_is_in_a_column) {
  std::vector<int16_t> samples(size_t(1000 * rate));
  const size_t brief = 50, full = 100;
  put_tone(samples, brief * 801 - 200, brief * 801 + 200);
  put_tone(samples, (full - 1) * 801, (full + 1) * 801);
  const SpectrogramScale scale = spectrogram_scale(samples.size(), rate);
  ASSERT_DOUBLE_EQ(scale.column_seconds, 801.0 / rate);
  const GreyPicture picture = spectrogram(samples, rate, scale);
  const auto level = [&](size_t column) {
    const auto row = size_t(scale.rows - 1 - std::lround(1000 / scale.row_hz));
    return int(picture.pixels.at(row * size_t(scale.columns) + column)) - grey_of_full_scale;
  };
  const double steady = 20 * std::log10(amplitude) - 3.01;
  EXPECT_NEAR(level(full), steady, 0.51);
  EXPECT_NEAR(level(brief), steady - 3.64, 0.51);
  EXPECT_LT(level(brief - 1), -100);
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
  expect_refused("report ", {{"one", "--out"},
                             {"--out page.html", "no recording: name a recording by its folder"},
                             {"one --mic one/mic.wav --ref one/ref.wav --out page.html",
                              "found one and --mic one/mic.wav: one too many"},
                             {"one/mic.wav --out page.html", "one/mic.wav: is a file, not the folder"},
                             {"nowhere --out page.html", "nowhere/mic.wav"},
                             {"one --out page.html --against other.wav", "other.wav"},
                             {"--set nothing --out pages", "nothing"},
                             {"one --out page.html --para none.toml", "none.toml"}});
}

} // namespace
} // namespace qv::tool::report
