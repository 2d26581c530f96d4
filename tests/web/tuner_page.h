/// @file tuner_page.h  The tuner's page in a browser, and what the command makes of the same parameters and call.
#pragma once

#include "inspect/diff.h"
#include "para/para_file.h"
#include "process/files.h"
#include "report/browser.h"
#include "support.h"

namespace qv::tool {

inline const std::string first_name = "clear-16k-20ms"; ///< what the page begins with

/// A string of JavaScript.
inline std::string js_text(const std::string &text) { return qv::test::Json(text).dump(); }

class TunerPage : public InFolder {
protected:
  TunerPage() { browser.open(QVVOICE_PAGE); }
  void TearDown() override { EXPECT_EQ(browser.problems(), std::vector<std::string>{}); }

  /// What the page says to an expression.
  std::string said(const std::string &element) { return browser.evaluate(element + ".textContent"); }
  std::string message() { return said("byId('message')"); }

  /// Controls of a field: slider and box in turn, or its one control.
  static std::string control(const std::string &key, int number = 0) {
    return "document.querySelectorAll('[aria-describedby~=\"field-" + key + "-meaning\"]')[" + std::to_string(number) +
           "]";
  }
  static constexpr int slider = 0, box = 1;

  /// Gives a control another value, as a hand does.
  void put_in(const std::string &element, const std::string &value) {
    browser.evaluate(
        "(control => { control.value = " + js_text(value) +
        "; for (const type of ['input', 'change']) control.dispatchEvent(new Event(type, {bubbles: true})); })(" +
        element + ")");
  }
  void click(const std::string &id) { browser.evaluate("byId('" + id + "').click()"); }

  std::string packed(const std::string &name = first_name) {
    return browser.saved("byId('save-packed').click()", name + ".para");
  }
  /// Whether the set that is shown comes to have these words.
  testing::AssertionResult holds(const config::Image &words) {
    const std::string state = found("State"), wanted = qv::test::Json(words).dump();
    if (browser.comes_true("JSON.stringify([..." + state + ".set.words]) === '" + wanted + "'"))
      return testing::AssertionSuccess();
    auto result = testing::AssertionFailure();
    const config::Image held = browser.evaluate("[..." + state + ".set.words]");
    for (const auto &d : inspect::diff(words, held))
      result << d.key << " is " << d.b << ", not " << d.a << "; ";
    return result << message();
  }
  /// The page's one object of a class, which has no name there.
  std::string found(const std::string &kind) {
    const auto object_of = [](const qv::test::Json &answer, const char *where) { return answer[where]["objectId"]; };
    const auto prototype = object_of(browser.call("Runtime.evaluate", {{"expression", kind + ".prototype"}}), "result");
    const auto all = object_of(browser.call("Runtime.queryObjects", {{"prototypeObjectId", prototype}}), "objects");
    browser.call("Runtime.callFunctionOn",
                 {{"objectId", all}, {"functionDeclaration", "function() { window.found" + kind + " = this[0]; }"}});
    return "found" + kind;
  }

  /// All of a call and its parameters has been heard of and shown.
  void settle() { ASSERT_TRUE(browser.comes_true("byId('signals').dataset.state === 'done'")) << message(); }
  std::string output(const std::string &slot = "a") {
    return browser.saved("byId('save-" + slot + "').click()", "output-" + slot + ".wav");
  }
  /// Output of a set once something has led to another one.
  std::string output_after(const std::string &action, const std::string &slot = "a") {
    browser.evaluate("window.before = player.buffers.get('" + slot + "'); " + action);
    EXPECT_TRUE(
        browser.comes_true("player.buffers.get('" + slot + "') && player.buffers.get('" + slot + "') !== before"));
    settle();
    return output(slot);
  }

  /// What `qvvoice process --compensate` writes.
  std::string native(const config::Image &words, const std::string &inputs = built_in_call) {
    put("native.para", para::packed_bytes(words));
    const CommandResult run = run_command(folder, "process --compensate --para native.para --out native.wav " + inputs);
    EXPECT_EQ(run.status, 0) << run.err;
    return bytes_of(at("native.wav"));
  }
  void set(const std::string &key, double value, int element = 0) {
    set_value(*para::find_field(key), image, element, value);
  }

  static inline const std::string built_in_call = "--mic " QVVOICE_CALL "/mic.flac --ref " QVVOICE_CALL "/ref.flac";

  /// Its microphone plays a file.
  qv::test::Browser browser{"--use-fake-device-for-media-stream --use-fake-ui-for-media-stream "
                            "--use-file-for-fake-audio-capture=" +
                            at("spoken.wav")};
  config::Image image = para::load(first_name).image;
};

} // namespace qv::tool
