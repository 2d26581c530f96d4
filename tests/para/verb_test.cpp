#include <gtest/gtest.h>

#include "folder.h"
#include "para/para_file.h"
#include "support/error.h"
#include "verbs.h"

namespace qv::tool::para {
namespace {

struct Outcome {
  int status;
  std::string out;
};

/// `qvvoice para` with these arguments, with the statuses that main gives.
Outcome para(std::vector<std::string> arguments) {
  CLI::App app;
  add_para(app);
  arguments.insert(arguments.begin(), "para");
  std::reverse(arguments.begin(), arguments.end());
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  int status = 0;
  try {
    app.parse(arguments);
  } catch (const CLI::RuntimeError &found) {
    status = found.get_exit_code();
  } catch (const std::exception &) {
    status = 2;
  }
  testing::internal::GetCapturedStderr();
  return {status, testing::internal::GetCapturedStdout()};
}

TEST(ParaVerb, from_nothing_to_a_packed_file_and_back) {
  const Folder folder;
  const std::string text = folder.file("my.toml"), packed = folder.file("my.para"), again = folder.file("again.toml");
  EXPECT_EQ(para({"new", "--base", "balanced-8k-20ms", "--out", text}).status, 0);
  EXPECT_EQ(para({"check", text, "--rate", "8000", "--strict"}).status, 0);
  EXPECT_EQ(para({"pack", text, "--out", packed}).status, 0);
  EXPECT_EQ(bytes_of(packed), packed_bytes(load_valid("balanced-8k-20ms").image));
  EXPECT_EQ(para({"show", packed, "--out", again}).status, 0);
  EXPECT_EQ(para({"diff", packed, again}).status, 0);
  EXPECT_EQ(para({"plot", text, "--out", folder.file("plots")}).status, 0);
  for (const char *picture : {"gain-control.svg", "equaliser.svg", "double-talk.svg"})
    EXPECT_EQ(bytes_of(folder.file("plots/") + picture).substr(0, 5), "<svg ") << picture;
  EXPECT_NE(para({"fields", "tx.agc"}).out.find("tx.agc.knee_low_db"), std::string::npos);
}

TEST(ParaVerb, statuses_tell_wanting_from_wrong_input) {
  const Folder folder;
  const std::string bad = folder.file("bad.toml", "rate = 8000\n[tx.eq]\nhalf_taps = 200\n"),
                    warned = folder.file("warned.toml", "rate = 8000\n[tx.cng]\nnoise_gain = 0\n"),
                    broken = folder.file("broken.toml", "rate = 8000\n[tx.eq]\nhalf = 2\n"),
                    packed = folder.file("out.para");
  const auto status = [](std::vector<std::string> arguments) { return para(std::move(arguments)).status; };
  EXPECT_EQ(status({"check", bad}), 1);
  EXPECT_EQ(status({"check", broken}), 1);
  EXPECT_EQ(status({"check", warned}), 0);
  EXPECT_EQ(status({"check", warned, "--strict"}), 1);
  EXPECT_EQ(status({"check", warned, "--rate", "16000"}), 1);
  EXPECT_EQ(status({"diff", bad, warned}), 1);
  EXPECT_EQ(status({"pack", bad, "--out", packed}), 1);
  EXPECT_EQ(status({"pack", broken, "--out", packed, "--force"}), 2);
  EXPECT_FALSE(std::filesystem::exists(packed)) << "nothing half right is written";
  EXPECT_EQ(status({"pack", bad, "--out", packed, "--force"}), 0);
  EXPECT_EQ(status({"pack", packed, "--out", folder.file("twice.para")}), 2);
  EXPECT_EQ(status({"show", packed, "--out", packed}), 2) << "an input is never overwritten";
  for (const std::vector<std::string> &arguments : {std::vector<std::string>{"new", "--base", "balanced"},
                                                    {"fields", "agc"},
                                                    {"plot", folder.file("zero", std::string(1000, 0)), "--out", "x"},
                                                    {"show", folder.file("none.toml")},
                                                    {}})
    EXPECT_EQ(status(arguments), 2);
  const std::string json = para({"check", bad, "--json"}).out;
  EXPECT_NE(json.find("\"line\": 3"), std::string::npos) << json;
}

} // namespace
} // namespace qv::tool::para
