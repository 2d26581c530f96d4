#include "tune/tuner.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>

#include "inspect/check.h"
#include "support/error.h"
#include "tune/search.h"

namespace qv::tool::tune {
namespace {

using config::Field;
using config::Image;

constexpr double nothing = 0.01; ///< points that a field must buy to stay changed

int faults(const Image &image) {
  const para::Findings findings = inspect::check(image);
  return int(findings.size() - count(findings, para::Severity::note));
}

class Tuner {
public:
  Tuner(const Plan &plan, Evaluator &evaluator, History &history)
      : plan_(plan), evaluator_(evaluator), history_(history) {}

  std::vector<Candidate> evaluate(const std::vector<Image> &images) {
    std::vector<Image> fresh;
    for (const Image &image : images)
      if (!history_.find(image) && std::ranges::find(fresh, image) == fresh.end())
        fresh.push_back(image);
    evaluator_.evaluate(fresh, [&](size_t i, const Evaluation &found) {
      history_.add(fresh[i], {mean_of(found.by_recording), found.failed});
    });
    std::vector<Candidate> candidates;
    for (const Image &image : images) {
      const Measured &measured = *history_.find(image);
      const double cost =
          measured.failed.empty() ? plan_.cost(measured.means) : std::numeric_limits<double>::infinity();
      candidates.push_back({image, measured, cost, faults(image)});
    }
    return candidates;
  }

private:
  const Plan &plan_;
  Evaluator &evaluator_;
  History &history_;
};

/// What the log has is taken beyond the budget too: with a smaller budget, what an earlier run has found is kept.
class Search {
public:
  Search(Tuner &tuner, const Plan &plan, const History &history, const SearchOptions &options, Result &result,
         const Evaluated &evaluated)
      : tuner_(tuner), plan_(plan), history_(history), options_(options), result_(result), evaluated_(evaluated),
        from_(plan.with_set(result.before.image)) {}

  void run() {
    const Point start = plan_.start(from_);
    const Heights heights = [this](const std::vector<Point> &places) { return heights_of(places); };
    switch (options_.method) {
    case Method::subplex:
      return search_subplex(start, options_.step, options_.seed, heights);
    case Method::population:
      return search_population(start, options_.step, options_.seed,
                               options_.generation > 0 ? options_.generation : usual_generation(start.size()), heights);
    case Method::random:
      return search_randomly(start.size(), options_.seed, heights);
    }
  }

private:
  /// Those of the first places that may be evaluated.
  std::vector<double> heights_of(const std::vector<Point> &places) {
    std::vector<Image> images;
    for (const Point &place : places) {
      const Image image = plan_.moved(from_, place);
      const size_t evaluations = result_.course.size() + images.size();
      const bool free = history_.find(image) && evaluations < history_.taken_up();
      if (!free && (evaluations >= options_.budget || std::chrono::steady_clock::now() > end_))
        break;
      images.push_back(image);
    }
    std::vector<bool> known;
    for (const Image &image : images)
      known.push_back(history_.find(image));
    const std::vector<Candidate> candidates = tuner_.evaluate(images);
    std::vector<double> ranks;
    for (size_t i = 0; i < images.size(); ++i)
      ranks.push_back(take(candidates[i], known[i]));
    return ranks;
  }

  double take(const Candidate &candidate, bool known) {
    if (candidate.rank() < result_.after.rank())
      result_.after = candidate;
    result_.course.push_back(result_.after.cost);
    if (!known)
      evaluated_(candidate, result_.after, result_.course.size());
    return candidate.rank();
  }

  Tuner &tuner_;
  const Plan &plan_;
  const History &history_;
  const SearchOptions &options_;
  Result &result_;
  const Evaluated &evaluated_;
  const Image from_;
  const std::chrono::time_point<std::chrono::steady_clock, std::chrono::duration<double>> end_ =
      std::chrono::steady_clock::now() + std::chrono::duration<double>(60 * options_.minutes);
};

[[noreturn]] void refuse_start(const Plan &plan, const Image &start) {
  const para::Findings findings = inspect::check(start);
  const para::Finding &finding =
      *std::ranges::find_if(findings, [](const para::Finding &f) { return f.severity != para::Severity::note; });
  throw InputError("plan {}: its moves start at parameters that nobody should use: {}: {}", plan.title, finding.key,
                   finding.message);
}

bool differs(const Field &field, const Image &a, const Image &b) {
  const int32_t rate = a[config::rate_word];
  for (int32_t i = 0; i < field.count(rate); ++i)
    if (value_of(field, a, i) != value_of(field, b, i))
      return true;
  return false;
}

Image with_field_of(const Field &field, Image image, const Image &other) {
  const int32_t rate = image[config::rate_word];
  for (int32_t i = 0; i < field.count(rate); ++i)
    set_value(field, image, i, value_of(field, other, i));
  return image;
}

std::vector<const Field *> changed_fields(const Image &before, const Image &after) {
  std::vector<const Field *> changed;
  for (const Field &field : config::fields)
    if (differs(field, before, after))
      changed.push_back(&field);
  return changed;
}

/// The result with each of its changed fields put back.
std::vector<Candidate> without_each(Tuner &tuner, const Result &result, const std::vector<const Field *> &changed) {
  std::vector<Image> images;
  for (const Field *field : changed)
    images.push_back(with_field_of(*field, result.after.image, result.before.image));
  return tuner.evaluate(images);
}

/// Puts fields back until each that is left buys something: those that buy nothing by themselves one on top of the
/// other, what is missed least first, as far as nothing gets worse. What the plan sets stays.
void put_back(Tuner &tuner, const Plan &plan, Result &result) {
  for (;;) {
    auto changed = changed_fields(result.before.image, result.after.image);
    std::erase_if(changed, [&](const Field *field) { return plan.sets(*field); });
    const auto alone = without_each(tuner, result, changed);
    const double most = result.after.rank() + nothing;
    std::vector<size_t> idle;
    for (size_t i = 0; i < changed.size(); ++i)
      if (alone[i].rank() <= most)
        idle.push_back(i);
    if (idle.empty())
      return;
    std::ranges::stable_sort(idle, {}, [&](size_t i) { return alone[i].rank(); });
    std::vector<Image> together;
    for (const size_t i : idle)
      together.push_back(
          with_field_of(*changed[i], together.empty() ? result.after.image : together.back(), result.before.image));
    for (const Candidate &candidate : tuner.evaluate(together)) {
      if (candidate.rank() > result.after.rank() + nothing)
        break;
      result.after = candidate;
    }
  }
}

bool at_bound(const Plan &plan, const Field &field, const Image &image) {
  const Point place = plan.place_of(image);
  for (size_t m = 0; m < plan.moves.size(); ++m)
    if (plan.moves[m].field == &field && (place[m] < 1e-3 || place[m] > 1 - 1e-3))
      return true;
  return false;
}

} // namespace

Result tune(const Plan &plan, const Image &before, Evaluator &evaluator, History &history, const SearchOptions &options,
            const Evaluated &evaluated) {
  Tuner tuner(plan, evaluator, history);
  Result result;
  const Image set = plan.with_set(before);
  plan.require_words(set);
  result.before = tuner.evaluate({before})[0];
  if (const std::string &failed = result.before.measured.failed; !failed.empty())
    throw InputError("{}; with the parameters that the search starts from", failed);
  plan.require(result.before.measured.means);
  const auto first = tuner.evaluate({set, plan.moved(set, plan.start(set))});
  if (first[1].findings > std::max(first[0].findings, result.before.findings))
    refuse_start(plan, first[1].image);
  result.after = *std::ranges::min_element(first, {}, &Candidate::rank);
  if (history.taken_up() == 0)
    evaluated(result.after, result.after, 0);
  Search(tuner, plan, history, options, result, evaluated).run();
  put_back(tuner, plan, result);
  const auto changed = changed_fields(before, result.after.image);
  const auto without = without_each(tuner, result, changed);
  for (size_t i = 0; i < changed.size(); ++i)
    result.effects.push_back({changed[i], without[i].cost - result.after.cost, without[i].image,
                              result.after.measured.means, without[i].measured.means,
                              at_bound(plan, *changed[i], result.after.image)});
  std::ranges::stable_sort(result.effects, std::greater(), &Effect::lost);
  return result;
}

} // namespace qv::tool::tune
