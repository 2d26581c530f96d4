// What a plan says, and what it makes of parameters and means.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "support/error.h"
#include "tune/plan.h"

namespace qv::tool::tune {
namespace {

constexpr int rate = 8000;

const std::string text = R"(
title = "test"
[[set]]
field = "aec.suppressor.exponent"
value = 3
[[move]]
field = "aec.double_talk.ratio_low"
elements = [1, 20]
from = 0.01
to = 0.16
start = 0.08
scale = "log"
[[move]]
field = "aec.double_talk.ratio_high"
factor_of = "aec.double_talk.ratio_low"
from = 1
to = 5
[[move]]
field = "aec.double_talk.count_min"
from = 2
to = 12
[[want]]
measure = "erle_far_db"
at_least = 40
point = 2
[[want]]
measure = "near_lost_percent"
at_most = 10
)";

double value(const config::Image &image, const char *key, int element = 0) {
  for (const config::Field &field : config::fields)
    if (field.key == key)
      return decode(field, image[size_t(field.word(rate, element))]);
  throw std::out_of_range(key);
}

TEST(Plan, puts_numbers_into_words_and_finds_them_again) {
  const Plan plan = parse_plan(text, "p.toml", rate);
  const config::Image set = plan.with_set(config::default_image(rate));
  const config::Image image = plan.moved(set, {0.5, 0.5, 0.31});
  EXPECT_EQ(value(image, "exponent"), 3);
  EXPECT_NEAR(value(plan.moved(set, plan.start(set)), "ratio_low", 5), 0.08, 1e-4);
  EXPECT_NEAR(value(image, "ratio_low", 1), 0.04, 1e-4);
  EXPECT_NEAR(value(image, "ratio_low", 0), 0.0033, 1e-4);
  EXPECT_NEAR(value(image, "ratio_high", 2), 0.12, 1e-3);
  EXPECT_NEAR(value(image, "ratio_high", 0), 3 * value(image, "ratio_low", 0), 1e-4);
  EXPECT_EQ(value(image, "count_min"), 5);
  const Point place = plan.place_of(image);
  EXPECT_NEAR(place[0], 0.5, 0.01);
  EXPECT_NEAR(place[1], 0.5, 0.01);
  EXPECT_NEAR(place[2], 0.3, 1e-6);
  EXPECT_EQ(plan.moved(image, plan.place_of(image)), image);
  EXPECT_EQ(plan.place_of(config::default_image(rate))[0], 0) << "0.0033 lies below the range";
}

TEST(Plan, counts_what_is_missed_and_a_little_of_what_is_more_than_met) {
  const Plan plan = parse_plan(text, "p.toml", rate);
  Numbers means(measure::measures().size(), std::nan(""));
  const auto put = [&](const char *key, double number) {
    means[size_t(std::ranges::find(measure::measures(), std::string(key), &measure::Measure::key) -
                 measure::measures().begin())] = number;
  };
  EXPECT_THROW(plan.require(means), InputError);
  put("erle_far_db", 34);
  put("near_lost_percent", 10);
  EXPECT_NO_THROW(plan.require(means));
  EXPECT_NEAR(plan.cost(means), 3, 1e-9);
  put("near_lost_percent", 8);
  EXPECT_NEAR(plan.cost(means), 3 - 0.04, 1e-9);
  put("near_lost_percent", -100);
  EXPECT_NEAR(plan.cost(means), 3 - 0.1, 1e-9) << "no more for more than five points";
}

TEST(Plan, every_fault_is_named) {
  const std::string move = "[[move]]\nfield = 'aec.echo_delay'\nfrom = 0\nto = 9\n";
  const std::string want = "[[want]]\nmeasure = 'erle_far_db'\nat_least = 3\n";
  const std::pair<std::string, const char *> cases[] = {
      {"", "p.toml:1: move: found none"},
      {move + move, "want: found none"},
      {move + move + want + "[[wish]]\n", "wish: unknown key"},
      {"[[move]]\nfield = 'aec.echo'\n", "p.toml:2: move.field: found \"aec.echo\""},
      {"[[move]]\nfield = 'aec.echo_delay'\nfrom = 0\nto = 5000\n", "move.to: found 5000; a number from 0 to 4096"},
      {"[[move]]\nfield = 'aec.echo_delay'\nfrom = 0\nto = 9\nscale = 'log'\n", "move.from: found 0; more than 0"},
      {"[[move]]\nfield = 'aec.double_talk.judge'\nelements = [3, 1]\n",
       "move.elements: found [3, 1]; [first, last] of 0 to 5"},
      {move + move + "[[want]]\nmeasure = 'erle'\n", "want.measure: found \"erle\""},
      {move + move + "[[want]]\nmeasure = 'erle_far_db'\n", "found neither at_least nor at_most"},
      {move + move + want + "at_most = 9\n", "found at_most as well"},
  };
  for (const auto &[plan, message] : cases) {
    try {
      parse_plan(plan, "p.toml", rate);
      ADD_FAILURE() << "accepted: " << plan;
    } catch (const InputError &error) {
      EXPECT_NE(std::string(error.what()).find(message), std::string::npos) << error.what();
    }
  }
}

TEST(Plan, those_built_in_are_sound_at_both_rates) {
  EXPECT_EQ(built_in().size(), 4u);
  for (const BuiltIn &one : built_in())
    for (const int at : {8000, 16000})
      EXPECT_NO_THROW(parse_plan(one.text, std::string(one.name), at)) << one.name;
}

} // namespace
} // namespace qv::tool::tune
