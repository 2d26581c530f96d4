// Sets as folders and manifests, and scenes made where they are used.

#include <fmt/ranges.h>

#include "measure/print.h"
#include "process/files.h"
#include "sets/set.h"

namespace qv::tool::sets {
namespace {

class Sets : public InFolder {
protected:
  Sets() {
    for (const char *name : {"a", "b"}) {
      fs::create_directories(folder / name);
      for (const char *file : {"/mic.wav", "/ref.wav"})
        put_wav(std::string(name) + file, 8000, std::vector<int16_t>(16000, 100));
    }
    put_wav("b/near.wav", 8000, std::vector<int16_t>(16000, 10));
  }
  Faults faults_of(const std::string &path) const {
    Faults faults;
    std::vector<Entry> found = entries(path, faults);
    check(found, faults);
    return faults;
  }
};

std::string lines(const std::vector<Entry> &entries) {
  std::string text;
  for (const Entry &entry : entries)
    text += line_of(entry).dump() + "\n";
  return text;
}

// A reader who knows one form knows the other, and what is written down is read again as it was.
TEST_F(Sets, csv_json_lines_and_a_folder_name_the_same_recordings) {
  const std::string csv = put("set.csv", "\xEF\xBB\xBFname,folder,device,family,part,seed,index,rate\r\n"
                                         "\"a \"\"1\"\", left\",a,\"x,y\",,,,,\r\n\n"
                                         ",,,hard,check,3,7,16000\r\n");
  const std::string json = put("set.jsonl", R"({"name":"a \"1\", left","folder":"a","tags":{"device":"x,y"}})"
                                            "\n"
                                            R"({"family":"hard","part":"check","seed":3,"index":7,"rate":16000})"
                                            "\n");
  Faults faults;
  const std::vector<Entry> from_csv = entries(csv, faults), from_json = entries(json, faults);
  ASSERT_EQ(faults, Faults());
  ASSERT_EQ(from_csv.size(), 2u);
  EXPECT_EQ(from_csv[0].tags.at("device"), "x,y");
  EXPECT_EQ(from_csv[1].name, "hard-check-3-00007-16k");
  EXPECT_EQ(lines(from_csv), lines(from_json));
  EXPECT_EQ(lines(entries(put("again.jsonl", lines(from_csv)), faults)), lines(from_csv));
  const std::vector<Entry> in_folder = entries(folder.string(), faults);
  ASSERT_EQ(in_folder.size(), 2u);
  EXPECT_EQ(std::get<measure::RecordingFiles>(in_folder[1].source).near, at("b/near.wav"));
  const std::string by_files = put("files.csv", "mic,ref,near\nb/mic.wav,b/ref.wav,b/near.wav\n");
  EXPECT_EQ(lines({in_folder[1]}), lines(entries(by_files, faults)));
}

TEST_F(Sets, every_fault_is_named_with_its_line) {
  put_wav("short.wav", 8000, std::vector<int16_t>(4000, 1));
  put_wav("wide.wav", 16000, std::vector<int16_t>(32000, 1));
  put_wav("odd.wav", 11025, std::vector<int16_t>(32000, 1));
  put_wav("two.wav", 8000, std::vector<int16_t>(32000, 1), 2);
  put("scene.toml", "[truth]\nfar = 3\n");
  const std::string path = put("set.csv", "mic,ref,near,scene,family,index,name\n"
                                          "a/mic.wav,a/ref.wav,,,,,fine\n"
                                          "a/none.wav,a/ref.wav,,,,,\n"
                                          "short.wav,a/ref.wav,,,,,\n"
                                          "odd.wav,a/ref.wav,,,,,\n"
                                          "a/mic.wav,wide.wav,,,,,\n"
                                          "a/mic.wav,short.wav,,,,,x\n"
                                          "a/mic.wav,two.wav,wide.wav,,,,y\n"
                                          "a/mic.wav,a/ref.wav,,scene.toml,,,fine\n"
                                          "a/mic.wav,,,,,,\n"
                                          ",,,,easy,-1,\n"
                                          "a/mic.wav,a/ref.wav,,,hard,1,\n"
                                          ",,,,,,\n"
                                          "a,\"b\n"
                                          "a,b\n");
  const std::pair<int, const char *> expected[] = {{3, "none.wav: no such file"},
                                                   {4, "short.wav: has 0.50 s; 1 s"},
                                                   {5, "odd.wav: has 11025 Hz"},
                                                   {6, "wide.wav: has 16000 Hz; the microphone has 8000"},
                                                   {7, "short.wav: has 0.50 s, the microphone has 2.00 s"},
                                                   {8, "two.wav"},
                                                   {8, "wide.wav: has 16000 Hz"},
                                                   {9, "scene.toml"},
                                                   {9, "name: fine is that of"},
                                                   {10, "ref: found nothing"},
                                                   {11, "family: found \"easy\"; hard or usual"},
                                                   {11, "index: found \"-1\"; a whole number"},
                                                   {12, "more than one recording"},
                                                   {13, "no recording"},
                                                   {14, "a quote is left open"},
                                                   {15, "found 2 fields; 7 are needed"}};
  const Faults faults = faults_of(path);
  for (const auto &[line, message] : expected) {
    const std::string place = fmt::format("{}:{}: ", path, line);
    EXPECT_TRUE(std::ranges::any_of(
        faults,
        [&](const std::string &fault) { return fault.starts_with(place) && fault.find(message) != std::string::npos; }))
        << place << message << "\n"
        << fmt::format("{}", fmt::join(faults, "\n"));
  }
  EXPECT_TRUE(std::ranges::none_of(faults, [&](const auto &fault) { return fault.starts_with(path + ":2:"); }));
  const CommandResult result = run_command(folder, "measure --set set.csv");
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.out, "") << "nothing is measured";
  EXPECT_EQ(size_t(std::ranges::count(result.err, '\n')), faults.size() + 1) << result.err;
}

TEST_F(Sets, what_is_no_manifest_is_refused) {
  const std::pair<const char *, const char *> cases[] = {
      {"", "names no recording"},
      {"mic,ref\n", "names no recording"},
      {"hello world\n", ":1: found \"hello world\"; CSV begins with the names of its columns"},
      {"mic,ref,mic\n", "every column needs a name of its own"},
  };
  for (const auto &[text, message] : cases) {
    const std::string path = put("set", text), refused = refusal([&] { faults_of(path); });
    EXPECT_NE(refused.find(message), std::string::npos) << text << ": " << refused;
  }
  EXPECT_NE(refusal([&] { faults_of(at("none")); }).find("holds no recordings"), std::string::npos);
  EXPECT_EQ(faults_of(put("keys.jsonl", R"({"folder":"a","devise":"x"})")).size(), 1u);
}

// 10,000 calls need no disk: the same numbers as of a scene that was stored, truth and all.
TEST_F(Sets, a_scene_made_where_it_is_used_measures_as_one_that_was_stored) {
  const std::string draw = "scene --draw 2 --seed 4 --rate 8000 --family usual --part check ";
  ASSERT_EQ(run_command(folder, draw + "--out calls").status, 0);
  ASSERT_EQ(run_command(folder, draw + "--manifest calls.jsonl").status, 0);
  Json results[2];
  for (const char *set : {"calls", "calls.jsonl"}) {
    const CommandResult result = run_command(folder, std::string("measure --json --set ") + set);
    ASSERT_EQ(result.status, 0) << result.err;
    Json &recordings = results[set == std::string("calls")] = Json::parse(result.out)["recordings"];
    for (Json &one : recordings) {
      one.erase("name");
      one.erase("tags");
      for (const char *speed : {"real_time_factor", "worst_frame_percent"})
        one["measures"].erase(speed);
    }
  }
  ASSERT_EQ(results[0].size(), 2u);
  EXPECT_TRUE(results[0] == results[1]) << "the numbers differ";
  EXPECT_FALSE(results[0][0] == results[0][1]) << "two different scenes";
}

} // namespace
} // namespace qv::tool::sets
