#include "tune/plan.h"

#include <algorithm>
#include <cmath>

#include "para/words.h"
#include "scene/section.h"

namespace qv::tool::tune {
namespace {

using config::Field;
using config::Image;
using scene::Section;

constexpr double reserve_counts = 0.02; ///< of a point, by which a want is more than met
constexpr double most_reserve = 5;      ///< points that count so

const Field &field_of(Section &section, const char *key) {
  const std::string path = section.text(key, "");
  const Field *field = para::find_field(path);
  if (!field)
    section.refuse(key, fmt::format("\"{}\"", path), "a field, as qvvoice para fields lists them");
  return *field;
}

Move read_move(Section &section, int rate) {
  const Field &field = field_of(section, "field");
  Move move{&field, 0, size_t(field.count(rate)) - 1, 0, 0, false, nullptr, {}};
  if (section.has("elements")) {
    const std::vector<double> ends = section.numbers("elements", 2, {0, EQ_MAX_HALF_TAPS, ""});
    if (ends[0] > ends[1] || size_t(ends[0]) > move.last)
      section.refuse("elements", fmt::format("[{}, {}]", ends[0], ends[1]),
                     fmt::format("[first, last] of 0 to {}", move.last));
    move.first = size_t(ends[0]);
    move.last = std::min(move.last, size_t(ends[1])); // fields have fewer elements at 8000 Hz
  }
  const double most = section.has("factor_of") ? 1e4 : double(field.greatest);
  if (section.has("factor_of"))
    move.factor_of = &field_of(section, "factor_of");
  const scene::Range range{move.factor_of ? 0 : double(field.least), most, ""};
  move.least = section.number("from", range);
  move.greatest = section.number("to", {move.least, most, ""});
  move.log = section.choice("scale", {"linear", "log"}, "linear") == "log";
  if (move.log && move.least <= 0)
    section.refuse("from", fmt::format("{}", move.least), "more than 0 on a log scale");
  move.start = section.optional_number("start", {move.least, move.greatest, ""});
  section.done();
  return move;
}

Want read_want(Section &section) {
  const std::string key = section.text("measure", "");
  const auto found = std::ranges::find(measure::measures(), key, &measure::Measure::key);
  if (found == measure::measures().end())
    section.refuse("measure", fmt::format("\"{}\"", key), "a measure, as qvvoice measure --list lists them");
  Want want{&*found, 0, section.has("at_least"), section.number("point", {1e-6, 1e6, ""}, 1)};
  if (want.at_least == section.has("at_most"))
    section.refuse("at_least", want.at_least ? "at_most as well" : "neither at_least nor at_most", "one of them");
  want.limit = section.number(want.at_least ? "at_least" : "at_most", {-1000, 1000, found->unit});
  section.done();
  return want;
}

double value_of(const Move &move, double place) {
  return move.log ? move.least * std::pow(move.greatest / move.least, place)
                  : std::lerp(move.least, move.greatest, place);
}

double place_in(const Move &move, double value) {
  const double bound = std::clamp(value, move.least, move.greatest);
  if (move.greatest == move.least)
    return 0;
  return move.log ? std::log(bound / move.least) / std::log(move.greatest / move.least)
                  : (bound - move.least) / (move.greatest - move.least);
}

double decoded(const Image &image, const Field &field, size_t element) {
  const auto last = size_t(field.count(image[config::rate_word])) - 1;
  return value_of(field, image, int32_t(std::min(element, last)));
}

/// What the number of a move multiplies, for one element.
double base_of(const Move &move, const Image &image, size_t element) {
  return move.factor_of ? decoded(image, *move.factor_of, element) : 1;
}

void put(Image &image, const Field &field, size_t element, double value) {
  set_value(field, image, int32_t(element), std::clamp(value, double(field.least), double(field.greatest)));
}

} // namespace

double Plan::cost(const Numbers &means) const {
  double cost = 0;
  for (const Want &want : wants) {
    const double missed = want.missed(want.in(means));
    if (!std::isnan(missed))
      cost += missed > 0 ? missed : reserve_counts * std::max(missed, -most_reserve);
  }
  return cost;
}

void Plan::require(const Numbers &means) const {
  for (const Want &want : wants)
    if (std::isnan(want.in(means)))
      throw InputError("plan {}: {} has a limit, but no recording gives a number for it; add recordings that do (their "
                       "truth known), or take the want out",
                       title, want.measure->key);
}

Image Plan::with_set(Image image) const {
  for (const auto &[field, value] : set)
    for (int32_t i = 0; i < field->count(image[config::rate_word]); ++i)
      put(image, *field, size_t(i), value);
  return image;
}

bool Plan::sets(const config::Field &field) const {
  return std::ranges::any_of(set, [&](const auto &one) { return one.first == &field; });
}

void Plan::require_words(const Image &image) const {
  const auto require = [&](const Field &field) {
    if (!config::owns_words(field, image) && !field.is_switch())
      throw InputError("plan {}: {} is off, so that {} has no effect; set it: [[set]] field = \"{}.enable\", value = 1",
                       title, std::string(field.section) + ".enable", para::path_of(field), field.section);
  };
  for (const auto &[field, value] : set)
    require(*field);
  for (const Move &move : moves)
    require(*move.field);
}

Point Plan::start(const Image &image) const {
  Point point = place_of(image);
  for (size_t m = 0; m < moves.size(); ++m)
    if (moves[m].start)
      point[m] = place_in(moves[m], *moves[m].start);
  return point;
}

Image Plan::moved(Image image, const Point &point) const {
  for (size_t m = 0; m < moves.size(); ++m)
    for (size_t i = moves[m].first; i <= moves[m].last; ++i)
      put(image, *moves[m].field, i, value_of(moves[m], point[m]) * base_of(moves[m], image, i));
  return image;
}

Point Plan::place_of(const Image &image) const {
  Point point;
  for (const Move &move : moves) {
    const double base = base_of(move, image, move.first);
    point.push_back(place_in(move, base > 0 ? decoded(image, *move.field, move.first) / base : move.least));
  }
  return point;
}

Plan parse_plan(std::string_view text, const std::string &path, int rate) {
  const toml::table table = scene::parse_toml(text, path);
  Section top(path, "", table);
  Plan plan;
  plan.title = top.text("title", path);
  plan.about = top.text("about", "");
  for (Section &section : top.sections("set")) {
    const Field &field = field_of(section, "field");
    plan.set.emplace_back(&field, section.number("value", {field.least, field.greatest, ""}));
    section.done();
  }
  std::ranges::stable_partition(plan.set,
                                [](const auto &one) { return one.first->is_switch(); }); // then what they bring
  for (Section &section : top.sections("move"))
    plan.moves.push_back(read_move(section, rate));
  for (Section &section : top.sections("want"))
    plan.wants.push_back(read_want(section));
  if (plan.moves.empty())
    top.refuse("move", "none", "at least one [[move]]");
  if (plan.wants.empty())
    top.refuse("want", "none", "at least one [[want]]");
  top.done();
  return plan;
}

Plan read_plan(const std::string &name, int rate) {
  for (const BuiltIn &one : built_in())
    if (one.name == name)
      return parse_plan(one.text, fmt::format("plan {}", name), rate);
  return parse_plan(scene::read_text(name), name, rate);
}

} // namespace qv::tool::tune
