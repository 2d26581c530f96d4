// The tuner's page as it is heard: one signal at a time without a gap, loops, and live through a microphone.

#include <cmath>

#include "audio/audio.h"
#include "measure/results.h"
#include "para/words.h"
#include "qvvoice/stream.h"
#include "tuner_page.h"

namespace qv::tool {
namespace {

using qv::test::Browser, qv::test::Json;

std::vector<int16_t> samples_of(const std::string &path) { return read_audio({path}).audio.samples; }

class Listening : public TunerPage {
protected:
  Listening() { settle(); }

  /// Plays from 1 s for 4 s into memory while things are done. @param done  {s: function}; press(key) makes one
  /// @param stretches  [[id, from, to, mark], ...]: in this time, s, that signal is expected, within that mark
  /// @return for each by how much it is heard, every sample at its own place in the call, and the share of all else
  Json heard(const std::string &done, const std::string &stretches) {
    return browser.evaluate(R"((async () => {
      const rate = 16000, start = 1, context = new OfflineAudioContext(1, 4 * rate, rate);
      const press = key => () => document.body.dispatchEvent(new KeyboardEvent('keydown', {key, bubbles: true}));
      for (const [time, act] of Object.entries()" +
                            done + R"())
        context.suspend(+time).then(act).then(() => new Promise(drawn => requestAnimationFrame(() => requestAnimationFrame(drawn))))
          .finally(() => context.resume());
      player.use(context);
      player.seek(start);
      await play();
      const all = (await context.startRendering()).getChannelData(0), lead = 0.02 * rate;
      player.pause();
      return )" + stretches +
                            R"(.map(([id, from, to, [low, high] = [0, Infinity]]) => {
        const signal = player.buffers.get(id).getChannelData(0);
        let dot = 0, power = 0, total = 0;
        for (let i = from * rate; i < to * rate; ++i) {
          let at = i - lead + start * rate;
          if (at >= high * rate) at = Math.round(low * rate + (at - low * rate) % Math.round((high - low) * rate));
          dot += all[i] * signal[at]; power += signal[at] ** 2; total += all[i] ** 2;
        }
        return [dot / power, 1 - dot * dot / (power * total)];
      });
    })())");
  }
};

// A key takes up to 60 ms of cross-fade. Catches a place that moves, a second signal that stays, a gain of another one.
TEST_F(Listening, changes_signals_at_the_same_place_and_equal_loudness) {
  const measure::Subject call{"", 16000, samples_of(QVVOICE_CALL "/mic.flac"), samples_of(QVVOICE_CALL "/ref.flac"), {},
                              {}, {}};
  const tool::Setup setup = setup_of(image, "", 16000, 20);
  const measure::Results results = measure::measure(measure::Known(call), measure::run_library(call, setup));
  const double mic = results.mic_level_dbfs.number(), ref = results.ref_level_dbfs.number(),
               out = results.out_level_dbfs.number(), quietest = std::min({mic, ref, out});
  const Json levels = browser.evaluate("player.loudness");
  EXPECT_NEAR(levels["mic"].get<double>(), mic, 1e-6);
  EXPECT_NEAR(levels["a"].get<double>(), out, 1e-6);
  const Json parts = heard("{0.8: press('m'), 1.6: press('r'), 2.4: press('b'), 3.2: press('e')}",
                           "[['a', 0.1, 0.8], ['mic', 0.9, 1.6], ['ref', 1.7, 2.4], ['b', 2.5, 3.2], ['b', 3.3, 4]]");
  const double gains[] = {quietest - out, quietest - mic, quietest - ref, quietest - out, 0};
  for (size_t k = 0; k < std::size(gains); ++k) {
    EXPECT_NEAR(20 * std::log10(parts.at(k).at(0).get<double>()), gains[k], 0.01) << k;
    EXPECT_LT(parts[k][1].get<double>(), 1e-6) << k;
  }
  EXPECT_EQ(browser.evaluate("document.querySelectorAll('#choices [aria-checked=true]').length"), 1);
}

TEST_F(Listening, keeps_its_place_when_another_output_comes_and_stays_within_the_mark) {
  browser.evaluate("mark(1, 6), player.equal = false");
  const std::string moved = control("tx.anr.noise_scale", slider);
  const Json other = heard("{2: () => new Promise(done => { const before = player.buffers.get('a'); " + moved +
                               ".value = 0; " + moved +
                               ".dispatchEvent(new Event('input')); const look = () => "
                               "player.buffers.get('a') === before ? setTimeout(look, 20) : done(); look(); })}",
                           "[['a', 2.1, 4]]");
  EXPECT_LT(other[0][1].get<double>(), 1e-6);
  EXPECT_NEAR(other[0][0].get<double>(), 1, 1e-3);
  const Json loop = heard("{0.4: () => mark(1.2, 1.5)}", "[['a', 0.1, 0.4], ['a', 0.4, 4, [1.2, 1.5]]]");
  for (const Json &part : loop)
    EXPECT_LT(part[1].is_number() ? part[1].get<double>() : NAN, 1e-6) << loop;
}

// On the sound device: how far it comes is that one's affair.
TEST_F(Listening, goes_on_while_keys_change_what_is_heard) {
  browser.evaluate("document.activeElement.blur()");
  browser.key(" ");
  ASSERT_TRUE(browser.comes_true("player.playing && player.time > 0.05"));
  browser.evaluate("window.times = [], window.clock = setInterval(() => times.push(player.time), 5)");
  int keys = 0;
  for (const auto &[key, id] : {std::pair("m", "mic"), {"r", "ref"}, {"2", "ref"}, {"b", "b"}, {"a", "a"}}) {
    EXPECT_TRUE(browser.comes_true("times.length > " + std::to_string(20 * ++keys)));
    browser.key(key);
    EXPECT_TRUE(browser.comes_true("player.playing && player.chosen === '" + std::string(id) + "'")) << key;
  }
  click("tab-b");
  put_in(control("tx.anr.noise_scale", slider), "0");
  output_after("0", "b");
  browser.evaluate("clearInterval(clock)");
  EXPECT_EQ(browser.evaluate("player.playing"), true);
  EXPECT_EQ(browser.evaluate("times.filter((time, k) => time < times[k - 1] - 1e-3)"), Json::array());
  set("tx.anr.noise_scale", 0);
  EXPECT_TRUE(output("b") == native(image)) << "set B";
}

class Live : public TunerPage {
protected:
  /// 0.2 s of noise, again and again: as echo of itself it is late by less than that, whenever it was begun.
  Live() {
    const auto once = qv::test::noise_samples(8, 3200, 8000);
    std::vector<int16_t> all;
    for (int k = 0; k < 25; ++k)
      all.insert(all.end(), once.begin(), once.end());
    put_wav("far.wav", 16000, all);
    for (int16_t &sample : all)
      sample /= 4;
    put_wav("spoken.wav", 16000, all);
  }
  void wait_for(double seconds) {
    EXPECT_TRUE(browser.comes_true("parseFloat(byId('live-length').textContent) > " + std::to_string(seconds)));
  }
  std::vector<int16_t> recorded(const std::string &name) {
    const std::string file = "live-" + name + ".wav";
    put(file, browser.saved("byId('live-save-" + name + "').click()", file));
    return samples_of(at(file));
  }
};

/// Blocks of 128 through the library, with other words from a block on.
std::vector<int16_t> streamed(const std::vector<int16_t> &mic, const std::vector<int16_t> &ref,
                              const config::Image &words, const config::Image &next, size_t change) {
  constexpr size_t block = 128;
  const qv_call_config config{sizeof config, 16000, 320, 1};
  qv_call *call = nullptr;
  qv_stream *stream = nullptr;
  EXPECT_EQ(qv_call_create(&config, words.data(), &call), 0);
  EXPECT_EQ(qv_stream_create(call, block, &stream), 0);
  std::vector<int16_t> out;
  for (size_t begin = 0; begin + block <= mic.size(); begin += block) {
    if (begin == change * block) {
      EXPECT_EQ(qv_call_replace_parameters(call, next.data(), nullptr), 0);
    }
    float in[block], far[block];
    for (size_t i = 0; i < block; ++i) {
      in[i] = float(mic[begin + i]) / 32768;
      far[i] = float(ref[begin + i]) / 32768;
    }
    EXPECT_EQ(qv_stream_transmit_float(stream, in, far, in, block), 0);
    for (const float value : in)
      out.push_back(int16_t(std::lround(value * 32768)));
  }
  qv_stream_destroy(stream);
  qv_call_destroy(call);
  return out;
}

TEST_F(Live, is_the_library_itself_and_takes_up_a_slider_between_two_blocks) {
  browser.evaluate("byId('live-source').value = 'file'");
  browser.choose_files("byId('live-file')", {at("far.wav")});
  click("live-start");
  wait_for(3);
  EXPECT_NE(said("byId('live-state')").find("Live at 16000 Hz, frames of 20 ms."), std::string::npos);
  EXPECT_TRUE(
      browser.comes_true("[...document.querySelectorAll('[data-live]')].every(tile => /\\w/.test(tile.textContent))"));
  EXPECT_TRUE(browser.comes_true("/^[1-9]\\d* ms$/.test(document.querySelector('[data-live=delay]').textContent)"));
  const config::Image first = image;
  set("tx.anr.noise_scale", 0);
  put_in(control("tx.anr.noise_scale", slider), "0");
  EXPECT_TRUE(browser.comes_true("byId('live-state').textContent.startsWith('Taken up')"));
  wait_for(std::stod(said("byId('live-length')")) + 2);
  click("live-start");
  ASSERT_TRUE(browser.comes_true("byId('live-start').textContent === 'Start'"));

  const auto mic = recorded("mic"), ref = recorded("ref"), out = recorded("out");
  ASSERT_GT(out.size(), 5u * 16000);
  EXPECT_GT(qv::test::energy(mic), 0);
  EXPECT_GT(qv::test::energy(ref), 2 * qv::test::energy(mic)); // a half against a quarter
  const auto unchanged = streamed(mic, ref, first, first, 0);
  ASSERT_EQ(unchanged.size(), out.size());
  const auto parting = size_t(std::ranges::mismatch(out, unchanged).in1 - out.begin());
  ASSERT_GT(parting, 3u * 16000);
  ASSERT_LT(parting, out.size());
  // New words are heard from a frame on that was not yet full when they came.
  bool found = false;
  for (size_t blocks = 0; blocks < 8 && !found; ++blocks)
    found = streamed(mic, ref, first, image, parting / 128 - blocks) == out;
  EXPECT_TRUE(found) << "parted at " << parting;

  click("live-take");
  EXPECT_TRUE(browser.comes_true("byId('call-about').textContent.startsWith('The live recording')"));
  settle();
  EXPECT_TRUE(output_after("window.before = null") == native(image, "--mic live-mic.wav --ref live-ref.wav"));
}

TEST(LiveRefused, says_that_there_is_no_microphone) {
  const struct {
    const char *flags, *text;
  } cases[] = {{"--use-fake-device-for-media-stream --deny-permission-prompts",
                "the microphone was refused; allow it for this page"},
               {"--use-fake-ui-for-media-stream", "no microphone was found; connect one"}};
  for (const auto &one : cases) {
    Browser browser(one.flags);
    browser.open(QVVOICE_PAGE);
    browser.evaluate("byId('live-start').click()");
    EXPECT_TRUE(browser.comes_true("byId('live-state').textContent.includes('" + std::string(one.text) + "')"))
        << browser.evaluate("byId('live-state').textContent");
    EXPECT_EQ(browser.evaluate("byId('live-start').disabled || byId('live-start').textContent !== 'Start'"), false);
  }
}

} // namespace
} // namespace qv::tool
