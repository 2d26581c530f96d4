// Whether one run is better than another.

#include <cmath>

#include "fleet/compare.h"
#include "fleet/worker.h"
#include "process/files.h"
#include "scene/random.h"

namespace qv::tool::fleet {
namespace {

size_t place_of(const std::string &key) {
  return size_t(std::ranges::find(measure::measures(), key, &measure::Measure::key) - measure::measures().begin());
}

Row row(const std::string &name, int frame_ms, const std::string &device) {
  const size_t count = measure::measures().size();
  return {name, frame_ms, {{"device", device}}, std::vector<double>(count, std::nan("")), std::vector<bool>(count)};
}

const Difference &find(const std::vector<Difference> &all, const std::string &key, const std::string &tag = "") {
  const auto found =
      std::ranges::find_if(all, [&](const Difference &one) { return one.measure->key == key && one.tag == tag; });
  EXPECT_NE(found, all.end()) << key << tag;
  return found != all.end() ? *found : all.front();
}

// Of 300 sets drawn from a distribution whose mean is known, about the promised share of intervals hold it; those above
// and below the number that is resampled are as wide.
TEST(MeanInterval, holds_the_mean_as_often_as_it_says) {
  scene::Random random(5);
  int held = 0;
  for (int set = 0; set < 300; ++set) {
    std::vector<double> differences(60);
    for (double &one : differences)
      one = 2 + random.normal() * 3;
    const auto interval = mean_interval(differences, 0.9);
    ASSERT_TRUE(interval);
    held += interval->low <= 2 && 2 <= interval->high;
  }
  EXPECT_NEAR(held / 300.0, 0.9, 0.05); // three deviations of a share of 300
  std::vector<double> many(1000);
  for (double &one : many)
    one = random.normal();
  const auto resampled = mean_interval(many, 0.95);
  many.push_back(0);
  const auto normal = mean_interval(many, 0.95);
  EXPECT_NEAR((resampled->high - resampled->low) / (normal->high - normal->low), 1, 0.06);
  EXPECT_NEAR(normal->high - normal->low, 2 * 1.96 / std::sqrt(1000), 0.01);
  EXPECT_FALSE(mean_interval({1, 2, 3, 4}, 0.95)) << "four say nothing of their spread";
}

TEST(Compare, says_what_is_better_for_whom_and_which_recordings_got_worst) {
  const size_t erle = place_of("erle_settled_db"), bursts = place_of("echo_bursts_percent"),
               first = place_of("time_to_20_db_s");
  std::vector<Row> a, b;
  scene::Random random(1);
  for (int i = 0; i < 40; ++i)
    for (const int ms : {16, 20}) {
      const bool old_device = i % 2 == 0;
      a.push_back(row(fmt::format("call {}", i), ms, old_device ? "old" : "new"));
      b.push_back(a.back());
      a.back().values[erle] = 20 + random.normal();
      b.back().values[erle] = a.back().values[erle] + (old_device ? -2 : 2) + 0.1 * random.normal() - (i == 6 ? 9 : 0);
      a.back().values[bursts] = 5;
      b.back().values[bursts] = 5 - 0.5 * (1 + 0.1 * random.normal());
      b.back().never[first] = i == 3;
    }
  std::swap(b.front(), b.back()); // the order says nothing
  b.push_back(row("call of b", 20, "new"));
  const Comparison found = compare("a", a, "b", b, 0.95);
  EXPECT_EQ(found.recordings, 40u);
  EXPECT_EQ(found.only_b, 1u);
  const Difference &all = find(found.overall, "erle_settled_db");
  EXPECT_EQ(all.pairs, 40u) << "frame lengths of a recording are one observation";
  EXPECT_NEAR(all.mean, -9 / 40.0, 0.1);
  EXPECT_EQ(all.verdict(), Verdict::open);
  EXPECT_EQ(find(found.by_tag, "erle_settled_db", "device=old").verdict(), Verdict::worse);
  EXPECT_EQ(find(found.by_tag, "erle_settled_db", "device=new").verdict(), Verdict::better);
  EXPECT_EQ(find(found.overall, "echo_bursts_percent").verdict(), Verdict::better) << "less is better";
  EXPECT_EQ(find(found.overall, "time_to_20_db_s").never_b, 2u);
  ASSERT_FALSE(found.worst.empty());
  EXPECT_EQ(found.worst[0].name, "call 6");
  EXPECT_EQ(std::string(found.worst[0].measure->key), "erle_settled_db");
  for (const std::string &text : {as_text(found), as_csv(found), comparison_page(found, "pages")})
    for (const char *part : {"erle_settled_db", "device=old", "worse", "better"})
      EXPECT_NE(text.find(part), std::string::npos) << part;
  EXPECT_NE(comparison_page(found, "pages").find("href=\"pages/call%206.html\""), std::string::npos);
  EXPECT_NE(refusal([&] { compare("a", {a[0]}, "b", {b.back()}, 0.95); }).find("no recording in common"),
            std::string::npos);
}

class FleetDatabase : public InFolder {
protected:
  fleet::Run begin(const std::string &name, size_t recordings) const {
    std::vector<Entry> set;
    for (size_t i = 0; i < recordings; ++i)
      set.push_back(sets::drawn_entry({scene::Family::usual, scene::Part::tune, 1, i}, 8000));
    return take_up(at(name), set, {make_setup({}, 8000, 20)}, 60);
  }
  static Json result(size_t i, double erle) {
    return {{"name", fmt::format("usual-tune-1-{:05}-8k", i)},
            {"rate", 8000},
            {"frame_ms", 20},
            {"seconds", 24.0},
            {"tags", {{"device", i % 2 ? "x" : "y"}}},
            {"measures", {{"erle_far_db", erle}}},
            {"never", Json::array({"time_to_20_db_s"})}};
  }
};

// What is not finished is not there, what is there again replaces itself, and another run keeps its name.
TEST_F(FleetDatabase, keeps_runs_whole_and_apart) {
  const fleet::Run one = begin("one", 6), other = begin("other", 7);
  {
    Database database(at("fleet.db"), true);
    for (int again = 0; again < 2; ++again) {
      database.begin(one, "one");
      for (size_t i = 0; i < 6; ++i)
        database.add(result(i, 20.0 + double(i)));
      database.finish();
    }
    database.begin(other, "other");
    database.add(result(0, 1));
  }
  Database database(at("fleet.db"), false);
  EXPECT_EQ(database.runs(), std::vector<std::string>{"one"});
  const std::vector<Row> rows = database.rows("one");
  ASSERT_EQ(rows.size(), 6u);
  EXPECT_EQ(rows[3].values[place_of("erle_far_db")], 23.0);
  EXPECT_EQ(rows[3].tags, (std::map<std::string, std::string>{{"device", "x"}, {"rate", "8000"}}));
  EXPECT_TRUE(std::isnan(rows[3].values[place_of("time_to_20_db_s")]) && rows[3].never[place_of("time_to_20_db_s")]);
  EXPECT_FALSE(rows[3].never[place_of("erle_far_db")]);
  EXPECT_EQ(Json::parse(database.line_of(rows[3].name))["index"], 3);
  EXPECT_NE(refusal([&] { database.begin(other, "one"); }).find("another run called one"), std::string::npos);
  EXPECT_NE(refusal([&] { database.rows("two"); }).find("it has one"), std::string::npos);
}

TEST_F(FleetDatabase, a_broken_limit_is_exit_status_1) {
  {
    Database database(at("fleet.db"), true);
    for (const char *name : {"a", "b"}) {
      database.begin(begin(name, 6), name);
      for (size_t i = 0; i < 6; ++i)
        database.add(result(i, (*name == 'a' ? 20.0 : 19.0) + 0.1 * double(i)));
      database.finish();
    }
  }
  const std::tuple<const char *, int, const char *> cases[] = {
      {"", 0, ""},
      {"--limit erle_far_db=1.5", 0, ""},
      {"--limit erle_far_db=0.5 --page page.html --worst worst.jsonl", 1, "limit erle_far_db=0.5 is broken: -1.000 dB"},
      {"--limit estoi_near=1", 1, "no recording has it in both runs"},
      {"--limit erle_far_db", 2, "KEY=NUMBER is needed"},
      {"--limit erla_far_db=1", 2, "KEY=NUMBER is needed"},
      {"--db none.db", 2, "none.db: cannot be opened"},
  };
  for (const auto &[words, status, message] : cases) {
    const CommandResult result = run_command(folder, std::string("compare a b ") + words);
    EXPECT_EQ(result.status, status) << words << result.err;
    EXPECT_NE(result.err.find(message), std::string::npos) << words << result.err;
  }
  EXPECT_NE(bytes_of(at("page.html")).find("<polyline"), std::string::npos);
  EXPECT_FALSE(fs::exists(at("none.db")));
}

} // namespace
} // namespace qv::tool::fleet
