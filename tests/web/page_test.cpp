// The tuner's page in a real browser: its words and its samples are those of the command, whatever one does to it.

#include <csignal>
#include <map>

#include "para/text_reader.h"
#include "para/words.h"
#include "tuner_page.h"

namespace qv::tool {
namespace {

using qv::test::Browser, qv::test::Json, qv::test::noise_samples;

TEST_F(TunerPage, makes_the_bytes_of_the_command_before_and_after_a_slider_moves) {
  settle();
  const std::string first = output();
  EXPECT_TRUE(first == native(image));
  const std::string key = "tx.anr.noise_scale";
  put_in(control(key, slider), "100");
  const std::string moved = output_after("0");
  EXPECT_TRUE(moved != first);
  const double value = std::stod(browser.evaluate(control(key, box) + ".value").get<std::string>());
  EXPECT_NEAR(value, 0.2, 2e-5) << "a fifth of the slider's way";
  set(key, value);
  EXPECT_TRUE(holds(image));
  EXPECT_TRUE(moved == native(image));
}

/// What the fields of every kind do to the words, one step after the other.
TEST_F(TunerPage, changes_and_takes_back_what_its_controls_say) {
  browser.evaluate("document.querySelectorAll('.section details').forEach(details => { details.open = true; })");
  std::vector<config::Image> steps{image};
  const auto step = [&](const char *what) {
    EXPECT_TRUE(holds(image)) << what;
    EXPECT_TRUE(image != steps.back()) << what;
    EXPECT_TRUE(packed() == para::packed_bytes(image)) << what;
    steps.push_back(image);
  };
  set("tx.agc.enable", 0);
  browser.evaluate(control("tx.agc.enable") + ".click()");
  step("switch");
  set("rx.agc.knee_high_db", -17.5);
  put_in(control("rx.agc.knee_high_db", box), "-17.5");
  step("number");
  set("aec.suppressor.odds_divisor", 7, 2);
  put_in(control("aec.suppressor.odds_divisor", 2 * 2 + box), "7");
  step("one of the groups");
  const double taps[] = {0.125, -0.25, 0.5};
  set("rx.eq.half_taps", 3);
  for (int i = 0; i < 3; ++i)
    set("rx.eq.coef", taps[i], i);
  put_in(control("rx.eq.coef"), "0.125, -0.25 0.5");
  step("taps");

  // The lower knee one dB to the right: the line between the knees keeps its upper end.
  const para::Values values(image);
  const double low = values("tx.agc.knee_low_db"), high = values("tx.agc.knee_high_db"),
               slope = values("tx.agc.slope_mid");
  set("tx.agc.knee_low_db", low + 1);
  set("tx.agc.slope_mid", slope * (high - low) / (high - low - 1));
  const auto handle = [&](const std::string &curve, int number) {
    const std::string place = "document.querySelectorAll('#" + curve + " .handle')[" + std::to_string(number) + "]";
    ASSERT_TRUE(browser.comes_true(place + "?.hasAttribute('transform')"));
    browser.evaluate(place + ".focus()");
  };
  handle("curve-tx-agc", 1);
  browser.key("ArrowRight");
  step("knee");
  handle("curve-tx-eq", 2);
  browser.key("ArrowDown");
  const auto designed = para::read_text("rate = 16000\n[tx.eq]\ntaps = 129\n"
                                        "points = [[100, 0], [300, 0], [1000, -0.5], [3000, 0], [6000, 0]]\n",
                                        {});
  for (const char *key : {"tx.eq.half_taps", "tx.eq.coef"})
    for (int i = 0; i < para::find_field(key)->count(16000); ++i)
      set(key, value_of(*para::find_field(key), designed.image, i), i);
  step("points");

  browser.evaluate("byId('diff').open = true");
  std::string differing;
  for (const auto &d : inspect::diff(steps.front(), image))
    differing += d.key + " " + d.a + " " + d.b + "\n";
  EXPECT_TRUE(
      browser.comes_true("[...document.querySelectorAll('#diff tbody tr')].map(row => [row.dataset.key, "
                         "row.cells[1].textContent, row.cells[2].textContent].join(' ') + '\\n').join('') === " +
                         js_text(differing)))
      << said("byId('diff')") << differing;
  for (size_t back = steps.size() - 1; back-- > 0;) {
    click("undo");
    EXPECT_TRUE(holds(steps[back])) << back;
  }
  for (size_t on = 1; on < steps.size(); ++on) {
    click("redo");
    EXPECT_TRUE(holds(steps[on])) << on;
  }
  browser.evaluate("document.querySelector('[data-key=\"rx.agc.knee_high_db\"] .reset').click()");
  set("rx.agc.knee_high_db", para::Values(steps.front())("rx.agc.knee_high_db"));
  EXPECT_TRUE(holds(image));
  click("revert");
  EXPECT_TRUE(holds(steps.front()));
}

TEST_F(TunerPage, says_beside_the_field_what_is_wrong_and_keeps_what_held) {
  const struct {
    const char *key, *typed, *reason;
  } cases[] = {{"tx.agc.knee_low_db", "1e9", "1e9: -90 .. 0 dB"},
               {"tx.anr.noise_scale", "-0.1", "-0.1: 0 .. 1"},
               {"tx.anr.noise_scale", "", "no number: 0 .. 1"}};
  for (const auto &one : cases) {
    const std::string field = control(one.key, box);
    const std::string before = browser.evaluate(field + ".value");
    browser.evaluate(field + ".value = '" + one.typed + "', " + field + ".dispatchEvent(new Event('input'))");
    EXPECT_NE(said("byId('field-" + std::string(one.key) + "-finding')").find(one.reason), std::string::npos)
        << one.typed;
    EXPECT_EQ(browser.evaluate(field + ".ariaInvalid"), "true");
    browser.evaluate(field + ".dispatchEvent(new Event('change'))");
    EXPECT_EQ(browser.evaluate(field + ".value"), before);
  }
  put_in(control("rx.eq.coef"), "0.5, half");
  EXPECT_NE(said("byId('field-rx.eq.coef-finding')").find("value 2 is no number"), std::string::npos);
  set("tx.agc.knee_low_db", -1); // a good one shows that the others are not behind it
  set("tx.agc.knee_high_db", -40);
  put_in(control("tx.agc.knee_low_db", box), "-1");
  put_in(control("tx.agc.knee_high_db", box), "-40");
  EXPECT_TRUE(holds(image));
  EXPECT_TRUE(browser.comes_true("/knee/.test(byId('field-tx.agc.knee_low_db-finding').textContent)"))
      << "what the check says";
}

TEST_F(TunerPage, keeps_parameters_in_files_and_links) {
  set("tx.anr.noise_scale", 0.25);
  put_in(control("tx.anr.noise_scale", box), "0.25");
  ASSERT_TRUE(holds(image));
  put("kept.para", packed());
  put("kept.toml", browser.saved("byId('save-text').click()", first_name + ".toml"));
  const para::ReadText text = para::read_text(bytes_of(at("kept.toml")), {});
  EXPECT_TRUE(text.log.findings().empty() && text.image == image && text.frame_ms == 20);
  EXPECT_EQ(run_command(folder, "para pack kept.toml --out packed.para").status, 0);
  EXPECT_TRUE(bytes_of(at("packed.para")) == bytes_of(at("kept.para")));
  const std::string link =
      browser.evaluate("byId('copy-link').click(), new Promise(done => { const look = () => location.hash "
                       "? done(location.hash) : setTimeout(look, 20); look(); })");

  const auto load = [&](const std::string &name) {
    browser.choose_files("byId('open-file')", {at(name)});
    EXPECT_TRUE(browser.comes_true("byId('message').textContent.includes('" + name + "')"))
        << name << ": " << message();
  };
  for (const char *name : {"kept.toml", "kept.para"}) {
    click("revert");
    load(name);
    EXPECT_TRUE(holds(image)) << name;
  }
  put("cut.para", bytes_of(at("kept.para")).substr(0, 998));
  put("wrong.toml", "rate = 16000\n[tx.anr]\nnoise_scales = 1\n");
  for (const auto &[name, reason] : {std::pair("cut.para", "998"), {"wrong.toml", "line 3"}}) {
    load(name);
    EXPECT_NE(message().find(reason), std::string::npos) << message();
    EXPECT_EQ(browser.evaluate("byId('message').className"), "wrong");
    EXPECT_TRUE(holds(image)) << name;
  }
  for (const std::string &cut : {link.substr(0, link.size() / 2), std::string("#p=%%%")}) {
    browser.evaluate("location.hash = " + js_text(cut));
    EXPECT_TRUE(browser.comes_true("byId('message').textContent.startsWith('The link')")) << cut;
    EXPECT_TRUE(holds(image)) << cut;
    click("undo"), click("redo");
  }
  browser.open(QVVOICE_PAGE + link);
  EXPECT_TRUE(holds(image));
  EXPECT_EQ(said("byId('tab-a')"), "A " + first_name);
}

TEST_F(TunerPage, opens_recordings_exactly_and_says_what_it_did_to_them) {
  settle();
  const auto open = [&](const std::string &name) { browser.choose_files("byId('pick-files')", {at(name)}); };
  const auto stereo = noise_samples(3, 2 * 3 * 16000, 32767);
  for (const auto &[name, format] : {std::pair("call.wav", SF_FORMAT_WAV), {"call.flac", SF_FORMAT_FLAC}}) {
    put_audio(name, format | SF_FORMAT_PCM_16, 16000, 2, stereo);
    browser.evaluate("window.before = player.buffers.get('a')");
    open(name);
    EXPECT_TRUE(output_after("window.before = before") == native(image, std::string("--stereo ") + name)) << name;
    EXPECT_EQ(said("byId('call-notes')"), "") << name;
  }
  put("broken.wav", bytes_of(at("call.wav")).substr(0, 30));
  open("broken.wav");
  EXPECT_TRUE(browser.comes_true("byId('message').textContent.startsWith('broken.wav: ')"));
  EXPECT_EQ(said("byId('call-about')"), "call.flac (microphone left, reference right): 3.0 s at 16000 Hz");
  EXPECT_TRUE(output() == native(image, "--stereo call.flac")) << "the open call stays";

  put_wav("wide.wav", 48000, noise_samples(4, 2 * 48000, 3000), 2);
  open("wide.wav");
  EXPECT_TRUE(browser.comes_true("byId('call-notes').textContent === 'microphone converted from 48000 to 16000 Hz"
                                 "reference converted from 48000 to 16000 Hz'"));
  put_wav("narrow.wav", 8000, noise_samples(5, 2 * 2 * 8000, 3000), 2);
  open("narrow.wav");
  ASSERT_TRUE(browser.comes_true("!byId('rate-notice').hidden && !player.buffers.has('a')"));
  EXPECT_NE(said("byId('rate-notice')").find("Set A is for 16000 Hz, the call runs at 8000 Hz"), std::string::npos);
  EXPECT_TRUE(output_after("byId('fit-rate').click()") ==
              native(para::load("clear-8k-20ms").image, "--stereo narrow.wav"));
  EXPECT_EQ(browser.evaluate("byId('rate-notice').hidden"), true);
}

/// The page that a report opens, and the one that the command serves: with the call and the parameters given.
class GivenPage : public TunerPage {
protected:
  GivenPage() {
    const auto noise = noise_samples(6, 4 * 16000, 3000);
    put_wav("mic.wav", 16000, noise);
    put_wav("ref.wav", 16000, std::vector<int16_t>(noise.rbegin(), noise.rend()));
    set("tx.anr.noise_scale", 0.5);
    put("board.para", para::packed_bytes(image));
  }
  void expect_given(const std::string &name) {
    settle();
    EXPECT_EQ(said("byId('call-about')"), name + ": 4.0 s at 16000 Hz");
    EXPECT_TRUE(packed("board") == para::packed_bytes(image));
    EXPECT_TRUE(output() == native(image, "--mic mic.wav --ref ref.wav"));
    EXPECT_EQ(browser.evaluate("byId('open-built-in').hidden"), name != "served");
  }
};

TEST_F(GivenPage, is_opened_by_a_report) {
  const CommandResult report =
      run_command(folder, "report --mic mic.wav --ref ref.wav --para board.para --out page.html");
  ASSERT_EQ(report.status, 0) << report.err;
  browser.open(at("page.html"));
  const std::string name = browser.evaluate("data.name");
  browser.enter("byId('tune')");
  expect_given(name);
}

TEST_F(GivenPage, is_served_to_this_machine_under_its_own_name_alone) {
  const std::string command = "cd " + folder.string() +
                              " && mkdir served && cp mic.wav ref.wav served && echo $$ && exec " + QVVOICE_COMMAND +
                              " tuner served --para board.para --no-browser 2>messages";
  std::FILE *server = popen(command.c_str(), "r");
  pid_t process = 0;
  char address[64] = "";
  ASSERT_EQ(std::fscanf(server, "%d %63s", &process, address), 2) << bytes_of(at("messages"));
  const std::string url = address, port = url.substr(url.rfind(':'));
  EXPECT_EQ(url.substr(0, url.rfind(':')), "http://127.0.0.1");
  for (const std::string &host : {std::string("http://127.0.0.1"), std::string("http://localhost")}) {
    browser.open(host + port);
    expect_given("served");
  }
  Browser other("--host-resolver-rules='MAP elsewhere.example 127.0.0.1'");
  const Json answer = other.call("Page.navigate", {{"url", "http://elsewhere.example" + port}});
  EXPECT_EQ(answer.value("errorText", "answered"), "net::ERR_HTTP_RESPONSE_CODE_FAILURE");
  kill(process, SIGTERM);
  pclose(server);
}

TEST_F(TunerPage, is_there_for_keyboard_screen_reader_phone_and_night) {
  settle();
  browser.evaluate("document.querySelectorAll('details').forEach(details => { details.open = true; })");
  const std::set<std::string> controls = {"button",  "slider",    "spinbutton", "checkbox",
                                          "switch",  "combobox",  "tab",        "radio",
                                          "textbox", "searchbox", "link",       "DisclosureTriangle"};
  std::map<std::string, int> seen;
  const Json tree = browser.call("Accessibility.getFullAXTree");
  for (const Json &node : tree["nodes"]) {
    const std::string role = node.value("/role/value"_json_pointer, "");
    if (node.value("ignored", false) || !controls.contains(role))
      continue;
    ++seen[role];
    EXPECT_NE(node.value("/name/value"_json_pointer, ""), "") << node;
  }
  EXPECT_GT(seen["slider"], 100);
  EXPECT_GT(seen["switch"], 8);
  EXPECT_EQ(seen["tab"], 2);
  EXPECT_EQ(seen["radio"], 4);

  EXPECT_EQ(
      browser.evaluate("[...document.querySelectorAll('button, input, select, textarea, summary, a, .handle')].filter("
                       "one => one.tabIndex < 0 && !one.closest('#sets, #choices') && one.checkVisibility()).length"),
      0);
  // By the tabulator from the top to the end: what must come, in this order.
  browser.evaluate("document.activeElement.blur(), window.scrollTo(0, 0)");
  const std::string slide = "field-tx.anr.noise_scale";
  std::vector<std::string> wanted = {"theme", "tab-a",   "preset", "search",    slide,
                                     "play",  "choices", "charts", "live-start"};
  for (int tabs = 0; !wanted.empty() && tabs < 900; ++tabs) {
    browser.key("Tab");
    if (browser.evaluate("document.activeElement.closest('#' + CSS.escape('" + wanted.front() + "')) !== null") != true)
      continue;
    const std::string reached = wanted.front();
    wanted.erase(wanted.begin());
    if (reached == "tab-a") {
      browser.key("ArrowRight");
      EXPECT_EQ(browser.evaluate("byId('parameters').dataset.slot"), "b");
      browser.key("ArrowLeft");
      EXPECT_EQ(browser.evaluate("document.activeElement.id"), "tab-a");
    } else if (reached == slide) {
      const double before =
          std::stod(browser.evaluate(control("tx.anr.noise_scale", box) + ".value").get<std::string>());
      browser.key("ArrowRight");
      EXPECT_TRUE(browser.comes_true(control("tx.anr.noise_scale", box) + ".value > " + std::to_string(before)));
    } else if (reached == "choices") {
      browser.key("ArrowRight");
      EXPECT_NE(browser.evaluate("player.chosen"), "a");
    } else if (reached == "charts") {
      browser.key(" ");
      EXPECT_TRUE(browser.comes_true("player.playing"));
      browser.key(" ");
      EXPECT_TRUE(browser.comes_true("!player.playing"));
    }
  }
  EXPECT_TRUE(wanted.empty()) << "not reached: " << wanted.front();

  browser.call("Emulation.setDeviceMetricsOverride",
               {{"width", 360}, {"height", 740}, {"deviceScaleFactor", 2}, {"mobile", true}});
  browser.evaluate("document.querySelectorAll('details').forEach(details => { details.open = true; })");
  EXPECT_TRUE(browser.comes_true("innerWidth === 360 && document.documentElement.scrollWidth <= 360"))
      << browser.evaluate("[innerWidth, document.documentElement.scrollWidth]");
  const auto brightness =
      "getComputedStyle(document.body).backgroundColor.match(/\\d+/g).slice(0, 3).reduce((a, b) => a + +b, 0)";
  const auto prefer = [&](const char *scheme) {
    browser.call("Emulation.setEmulatedMedia", {{"features", {{{"name", "prefers-color-scheme"}, {"value", scheme}}}}});
  };
  prefer("dark");
  browser.open(QVVOICE_PAGE);
  EXPECT_TRUE(browser.comes_true(brightness + std::string(" < 200")));
  prefer("light");
  EXPECT_TRUE(browser.comes_true(brightness + std::string(" > 600")));
}

} // namespace
} // namespace qv::tool
