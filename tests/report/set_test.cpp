// The command: one page, a set with its front page, another run beside it, and what it refuses.

#include <fstream>

#include <gtest/gtest.h>

#include "process/files.h"
#include "report/browser.h"
#include "report/calls.h"

namespace qv::tool::report {
namespace {

class ReportCommand : public InFolder {
protected:
  void put_call(const std::string &name, const test::Call &call) const {
    fs::create_directories(folder / name);
    put_wav(name + "/mic.wav", call.rate, call.mic);
    put_wav(name + "/ref.wav", call.rate, call.ref);
  }
};

// A broken recording is named on the front page and does not keep the others from theirs; every page leads to its
// neighbours and back.
TEST_F(ReportCommand, makes_a_set_of_pages_that_lead_to_each_other) {
  put_call("calls/first one", test::tones(4));
  put_call("calls/deeper/second", test::noise(4, 8000));
  fs::create_directories(folder / "calls/broken");
  put("calls/broken/mic.wav", "no audio");
  put("calls/broken/ref.wav", "no audio");
  const CommandResult result = run_command(folder, "report --set calls --out pages");
  EXPECT_EQ(result.status, 2) << result.err;
  EXPECT_NE(result.err.find("calls/broken/mic.wav"), std::string::npos) << result.err;
  EXPECT_EQ(result.out, "pages/index.html\n");

  qv::test::Browser browser;
  browser.open(at("pages/index.html"));
  EXPECT_EQ(browser.evaluate("document.querySelectorAll('tbody tr').length"), 3);
  EXPECT_EQ(
      browser.evaluate("[...document.querySelectorAll('tbody tr')].find(row => row.textContent.startsWith('broken'))"
                       ".querySelector('.verdict').textContent.includes('mic.wav')"),
      true);
  const auto row = "[...document.querySelectorAll('tbody tr')].map(row => row.children[0].textContent).join()";
  EXPECT_EQ(browser.evaluate(row), "broken,deeper/second,first one");
  browser.evaluate("document.querySelector('th').click(); document.querySelector('th').click()");
  EXPECT_EQ(browser.evaluate(row), "first one,deeper/second,broken");
  browser.follow("[...document.querySelectorAll('a')].find(link => link.textContent === 'first one')",
                 "first%20one.html");
  browser.follow("document.getElementById('link-previous')", "deeper/second.html");
  browser.follow("document.getElementById('link-next')", "first%20one.html");
  browser.follow("document.getElementById('link-front')", "pages/index.html");
  EXPECT_EQ(browser.problems(), std::vector<std::string>{});
}

TEST_F(ReportCommand, puts_another_run_beside) {
  const test::Call call = test::tones(4);
  put_call("calls/one", call);
  fs::create_directories(folder / "others");
  put_wav("others/one.wav", call.rate, call.mic); // a system that does nothing
  ASSERT_EQ(run_command(folder, "report --set calls --out pages --against others").status, 0);
  qv::test::Browser browser;
  browser.open(at("pages/one.html"));
  EXPECT_EQ(browser.evaluate("data.signals.map(signal => signal.id).join()"), "mic,ref,out,other");
  EXPECT_EQ(browser.evaluate("document.querySelectorAll('#numbers thead th').length"), 6);
  browser.open(at("pages/index.html"));
  EXPECT_EQ(browser.evaluate("data.calls[0].other.length === data.columns.length"), true);

  put("deep.toml", "rate = 8000\nframe_ms = 20\n[aec.suppressor]\nexponent = 8\n");
  ASSERT_EQ(run_command(folder, "report calls/one --out one.html --against-para deep.toml").status, 0);
  browser.open(at("one.html"));
  EXPECT_EQ(
      browser.evaluate("data.strips.rows.map(row => row.label).filter(label => label.endsWith(', other')).length"), 3);
  EXPECT_EQ(browser.problems(), std::vector<std::string>{});
}

TEST_F(ReportCommand, refuses_what_it_cannot_do) {
  put_call("one", test::tones(1));
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"report one", "--out"},
      {"report --out page.html", "required"},
      {"report nowhere --out page.html", "nowhere/mic.wav"},
      {"report one --out missing/page.html", "missing"},
      {"report one --out page.html --against other.wav", "other.wav"},
      {"report --set nothing --out pages", "nothing"},
      {"report one --out page.html --para none.toml", "none.toml"},
  };
  for (const auto &[words, named] : cases) {
    const CommandResult result = run_command(folder, words);
    EXPECT_EQ(result.status, 2) << words << result.out;
    EXPECT_NE(result.err.find(named), std::string::npos) << words << ": " << result.err;
    EXPECT_FALSE(fs::exists(folder / "page.html")) << words;
  }
}

} // namespace
} // namespace qv::tool::report
