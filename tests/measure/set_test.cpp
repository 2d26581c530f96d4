// Sets, comparisons and print-outs.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "measure/set.h"
#include "support/error.h"

namespace qv::tool::measure {
namespace {

Json recording(const std::string &name, double erle) {
  Json values = Json::object(), gaps = Json::object();
  for (const Measure &one : measures()) {
    values[one.key] = Json();
    gaps[one.key] = text_of(Gap::unknown);
  }
  values["erle_far_db"] = erle;
  gaps["time_to_20_db_s"] = text_of(Gap::never);
  return {{"name", name},        {"rate", 8000},       {"frame_ms", 20},
          {"source", "default"}, {"measures", values}, {"gaps", gaps}};
}

TEST(Compare, subtracts_where_both_have_a_number) {
  Json set = as_set({recording("a", 25), recording("b", 20), recording("c", 10)});
  Json other = as_set({recording("b", 22.5), recording("a", 24)});
  other["recordings"][0]["measures"]["delay_true_ms"] = 60;
  other["recordings"][1]["frame_ms"] = Json(); // made elsewhere
  EXPECT_EQ(compare(set, other), std::vector<std::string>{"c 20 ms"});
  EXPECT_EQ(set["recordings"][0]["difference"]["erle_far_db"], 1.0);
  EXPECT_EQ(set["recordings"][1]["difference"]["erle_far_db"], -2.5);
  EXPECT_TRUE(set["recordings"][1]["difference"]["delay_true_ms"].is_null());
  EXPECT_FALSE(set["recordings"][2].contains("difference"));
  EXPECT_NE(as_text(set).find("+1.0"), std::string::npos) << as_text(set);
}

TEST(Means, are_of_the_numbers_that_are_there_layout_by_layout) {
  Json recordings = {recording("a", 25), recording("b", 20), recording("c", 10)};
  recordings[1]["measures"]["near_level_db"] = -1;
  recordings[2]["frame_ms"] = 16;
  const Json all = means(recordings);
  ASSERT_EQ(all.size(), 2u);
  EXPECT_EQ(all[0]["recordings"], 2);
  EXPECT_EQ(all[0]["measures"]["erle_far_db"], 22.5);
  EXPECT_EQ(all[0]["measures"]["near_level_db"], -1.0);
  EXPECT_TRUE(all[0]["measures"]["delay_true_ms"].is_null());
  EXPECT_EQ(all[1]["measures"]["erle_far_db"], 10.0);
  EXPECT_NE(as_text(as_set(recordings)).find("mean at 8 kHz, 20 ms"), std::string::npos);
}

TEST(Print, shows_numbers_and_why_there_are_none) {
  const std::string one = as_text(as_set({recording("a", 25.06)}));
  for (const char *part : {"25.1 dB", "never s", "? dB", "a 20 ms, 8000 Hz: default"})
    EXPECT_NE(one.find(part), std::string::npos) << part << "\n" << one;
  const std::string csv = as_csv(as_set({recording("a", 25.06), recording("b", 3)}));
  EXPECT_EQ(std::count(csv.begin(), csv.end(), '\n'), 3);
  EXPECT_NE(csv.find("\"a\",8000,20,\"default\",25.06,,"), std::string::npos) << csv;
  const auto fields = [&](size_t line) {
    std::istringstream lines(csv);
    std::string text;
    for (size_t i = 0; i <= line; ++i)
      std::getline(lines, text);
    return std::count(text.begin(), text.end(), ',');
  };
  EXPECT_EQ(fields(0), fields(1));
}

// The program of a job is replaced by a script that does what its folder's name says.
TEST(Set, survives_broken_recordings_by_naming_them) {
  const std::filesystem::path folder = std::filesystem::path(::testing::TempDir()) / "qvvoice-set";
  for (const char *name : {"bad", "dead", "good-1", "good-2", "odd"}) {
    std::filesystem::create_directories(folder / name);
    std::ofstream(folder / name / "mic.wav") << "x";
  }
  const std::string program = folder / "tool";
  std::ofstream(program) << "#!/bin/sh\ncase $2 in\n"
                         << "*good*) echo progress >&2; echo '" << as_set({recording("x", 1)}).dump() << "' ;;\n"
                         << "*bad) echo 'qvvoice: mic.wav: is broken' >&2; exit 2 ;;\n"
                         << "*dead) kill -9 $$ ;;\n"
                         << "*odd) echo '{' ;;\nesac\n";
  std::filesystem::permissions(program, std::filesystem::perms::owner_all);
  std::vector<Job> jobs;
  for (const std::string &one : recording_folders(folder))
    jobs.push_back({std::filesystem::path(one).filename(), one, {}});
  ASSERT_EQ(jobs.size(), 5u);
  size_t reports = 0;
  const Json set = run_jobs(program, jobs, 3, [&](size_t, size_t total) { reports += total == 5; });
  EXPECT_EQ(reports, 5u);
  ASSERT_EQ(set["recordings"].size(), 2u);
  EXPECT_EQ(set["recordings"][1]["name"], "good-2");
  ASSERT_EQ(set["failed"].size(), 3u);
  EXPECT_EQ(set["failed"][0], Json({{"name", "bad"}, {"message", "mic.wav: is broken"}}));
  EXPECT_EQ(set["failed"][1], Json({{"name", "dead"}, {"message", "ended with status 137 and said nothing"}}));
  EXPECT_EQ(set["failed"][2]["name"], "odd");
  EXPECT_NE(as_text(set).find("FAILED bad: mic.wav: is broken"), std::string::npos);
  std::filesystem::remove_all(folder);
  EXPECT_THROW(recording_folders(folder), InputError);
}

} // namespace
} // namespace qv::tool::measure
