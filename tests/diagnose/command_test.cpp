// The command: its exit status, its JSON and what it refuses.

#include <nlohmann/json.hpp>

#include "diagnose/recordings.h"
#include "process/files.h"

namespace qv::tool::diagnose {
namespace {

class DiagnoseCommand : public InFolder {
protected:
  void put_call(const test::Recording &call) const {
    put_wav("mic.wav", test::rate, to_samples(call.mic));
    put_wav("ref.wav", test::rate, to_samples(call.ref));
  }
};

TEST_F(DiagnoseCommand, exits_with_1_when_something_is_wrong) {
  put_call(test::Recording());
  const CommandResult good = run_command(folder, "diagnose --mic mic.wav --ref ref.wav --frame-ms 16");
  EXPECT_EQ(good.status, 0) << good.out;
  EXPECT_EQ(good.out.rfind("Nothing wrong found", 0), 0u) << good.out;

  const CommandResult swapped = run_command(folder, "diagnose --mic ref.wav --ref mic.wav --json");
  EXPECT_EQ(swapped.status, 1);
  const auto report = nlohmann::json::parse(swapped.out);
  EXPECT_EQ(report.at("state"), "wrong");
  EXPECT_EQ(report.at("frame_samples"), 160);
  EXPECT_NE(report.at("verdict").get<std::string>().find("swapped"), std::string::npos);
  EXPECT_EQ(run_command(folder, "diagnose . --json").out,
            run_command(folder, "diagnose --mic mic.wav --ref ref.wav --json").out);
}

TEST_F(DiagnoseCommand, refuses_what_it_cannot_judge) {
  put_call(test::Recording());
  for (const auto &[words, named] : {std::pair("", "--mic"),
                                     {"--mic mic.wav", "--ref"},
                                     {"nowhere", "nowhere/mic.wav"},
                                     {"--mic mic.wav --ref none.wav", "none.wav"},
                                     {"--stereo mic.wav", "mic.wav"},
                                     {". --mic mic.wav", "--mic"}}) {
    const CommandResult result = run_command(folder, std::string("diagnose ") + words);
    EXPECT_EQ(result.status, 2) << words << result.out;
    EXPECT_NE(result.err.find(named), std::string::npos) << words << ": " << result.err;
    EXPECT_EQ(result.out, "");
  }
}

} // namespace
} // namespace qv::tool::diagnose
