// Sets, comparisons and print-outs.

#include "measure/print.h"
#include "process/files.h"
#include "support/error.h"

namespace qv::tool::measure {
namespace {

Json recording(const std::string &name, double erle, double frame_ms = 20) {
  Json values = Json::object(), gaps = Json::object();
  for (const Measure &one : measures()) {
    values[one.key] = Json();
    gaps[one.key] = text_of(Gap::unknown);
  }
  values["erle_far_db"] = erle;
  gaps["time_to_20_db_s"] = text_of(Gap::never);
  return {{"name", name},        {"rate", 8000},       {"frame_ms", frame_ms},
          {"source", "default"}, {"measures", values}, {"gaps", gaps}};
}

TEST(Print, shows_numbers_and_why_there_are_none_differences_and_means_layout_by_layout) {
  Json set = as_set({recording("a", 25.06), recording("b", 20), recording("c", 10, 16)});
  Json other = as_set({recording("b", 22.5), recording("a", 24.06)});
  other["recordings"][0]["frame_ms"] = Json(); // made elsewhere
  other["recordings"][1]["measures"]["delay_true_ms"] = 60;
  const std::string one = as_text(as_set({recording("a", 25.06)}));
  EXPECT_EQ(compare(set, other), std::vector<std::string>{"c 16 ms"});
  EXPECT_TRUE(set["recordings"][0]["difference"]["delay_true_ms"].is_null()) << "only one has a number";
  EXPECT_EQ(set["recordings"][1]["difference"]["erle_far_db"], -2.5);
  const Json all = means(set["recordings"]);
  ASSERT_EQ(all.size(), 2u);
  EXPECT_EQ(all[0]["measures"]["erle_far_db"], (25.06 + 20) / 2);
  EXPECT_TRUE(all[0]["measures"]["delay_true_ms"].is_null());
  const std::string text = one + as_text(set) + as_csv(set);
  EXPECT_EQ(one.find('?'), std::string::npos) << "rows that need the truth are counted, not printed\n" << one;
  EXPECT_NE(one.find(fmt::format("{} more measures", measures().size() - 2)), std::string::npos) << one;
  for (const char *part : {"25.1 dB", "never s", "a 20 ms, 8000 Hz: default", "+1.0", "mean at 8 kHz, 20 ms",
                           "\"a\",8000,20,\"default\",25.06,,"})
    EXPECT_NE(text.find(part), std::string::npos) << part << "\n" << text;
}

// Echo that is left can be judged by itself where there is little noise; a mean over both kinds says less.
TEST(Print, means_are_split_by_the_noise_where_there_is_both) {
  std::vector<Json> recordings = {recording("a", 10), recording("b", 20), recording("c", 30), recording("d", 50)};
  for (size_t i = 0; i < 3; ++i)
    recordings[i]["noise"] = i < 2 ? "high" : "low";
  Json set = as_set(recordings);
  const Json mean = means(set["recordings"])[0];
  EXPECT_EQ(mean["recordings"], 4u);
  EXPECT_EQ(mean["low_noise"]["recordings"], 1u);
  EXPECT_EQ(mean["low_noise"]["measures"]["erle_far_db"], 30);
  EXPECT_EQ(mean["high_noise"]["measures"]["erle_far_db"], 15);
  EXPECT_NE(as_text(set).find("  2 with high noise"), std::string::npos) << as_text(set);
  set["recordings"].erase(2);
  EXPECT_FALSE(means(set["recordings"])[0].contains("high_noise"));
}

// Numbers of another run come from a file that anybody may have edited.
using Against = InFolder;
TEST_F(Against, results_of_a_wrong_shape_are_refused_by_file_and_field) {
  for (const char *name : {"mic.wav", "ref.wav"})
    put_wav(name, 8000, std::vector<int16_t>(16000, 100));
  const std::string row = R"({"name": "x", "source": "y", "measures": {}, "frame_ms": null)";
  const std::string command = "measure --mic mic.wav --ref ref.wav --against ";
  const std::pair<std::string, const char *> cases[] = {
      {"[]", "top: found array; an object"},
      {"{}", "recordings: found nothing; an array"},
      {R"({"recordings": [4]})", "recordings[0]: found number; an object"},
      {R"({"recordings": [)" + row + R"(}, {"name": 3}]})", "recordings[1].name: found number; a string"},
      {R"({"recordings": [{"name": "x", "source": "y", "measures": 1}]})", "recordings[0].measures: found number"},
      {R"({"recordings": [], "failed": [1]})", "failed: found number"},
  };
  for (const auto &[text, message] : cases) {
    put("other.json", text);
    expect_refused(command, {{"other.json", message}});
  }
  put("other.json", R"({"recordings": [)" + row + "}]}");
  EXPECT_EQ(run_command(folder, command + "other.json").status, 0);
}

} // namespace
} // namespace qv::tool::measure
