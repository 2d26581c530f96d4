// A result is whole or not there, and what stood in its place stays until then.
#include "support/output_file.h"

#include <csignal>

#include "files.h"
#include "support/error.h"

namespace qv::tool {
namespace {

using Output = InFolder;
using Names = std::vector<std::string>;

constexpr int terminations[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};

/// A shell in the background starts programs with some of them ignored, which OutputFile respects.
const bool not_ignored = [] {
  for (const int signal : terminations)
    std::signal(signal, SIG_DFL);
  return true;
}();

TEST_F(Output, appears_whole_on_commit_and_not_before) {
  const std::string place = put("result", "old");
  {
    OutputFile file(place);
    file.write("new");
  }
  EXPECT_EQ(bytes_of(place), "old");
  OutputFile file(place);
  file.write("new ");
  EXPECT_EQ(bytes_of(place), "old");
  file.write("result");
  file.commit();
  EXPECT_EQ(bytes_of(place), "new result");
  EXPECT_EQ(names(), Names{"result"});
}

TEST_F(Output, a_link_is_followed) {
  put("result", "old");
  fs::create_symlink("result", at("link"));
  OutputFile file(at("link"));
  file.write("new");
  file.commit();
  EXPECT_EQ(bytes_of(at("result")), "new");
  EXPECT_TRUE(fs::is_symlink(at("link")));
}

TEST_F(Output, a_signal_leaves_no_half_file) {
  const std::string place = put("result", "old");
  ASSERT_TRUE(not_ignored);
  for (const int signal : terminations) {
    const auto die_while_writing = [&] {
      OutputFile first(place), second(at("other"));
      first.write("half");
      raise(signal);
    };
    EXPECT_EXIT(die_while_writing(), testing::KilledBySignal(signal), "");
    EXPECT_EQ(names(), Names{"result"}) << "signal " << signal;
    EXPECT_EQ(bytes_of(place), "old");
  }
}

TEST_F(Output, a_place_that_would_lose_something_is_refused) {
  const std::vector<std::string> inputs = {put("input", "precious"), put("other", "")};
  fs::create_symlink("input", at("link"));
  fs::create_hard_link(at("input"), at("twin"));
  const OutputFile open(at("open"));
  const std::pair<std::string, const char *> cases[] = {
      {at("input"), "is the input"},
      {at("link"), "is the input"},
      {at("twin"), "is the input"},
      {at("../") + folder.filename().string() + "/input", "is the input"},
      {at("./open"), "for two results"},
      {folder.string(), "not a regular file"},
      {"/dev/null", "not a regular file"},
      {at("none/result"), "No such file or directory"},
      {"", "empty file name"},
  };
  for (const auto &[path, reason] : cases) {
    try {
      const OutputFile file(path, inputs);
      ADD_FAILURE() << path << " was opened";
    } catch (const InputError &error) {
      EXPECT_NE(std::string(error.what()).find(reason), std::string::npos) << error.what();
    }
  }
  EXPECT_EQ(bytes_of(at("input")), "precious");
}

} // namespace
} // namespace qv::tool
