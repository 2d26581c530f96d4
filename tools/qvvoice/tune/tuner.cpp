#include "tune/tuner.h"

#include <algorithm>
#include <chrono>
#include <cmath>

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
    evaluator_.evaluate(fresh, [&](size_t i, const auto &numbers) { history_.add(fresh[i], mean_of(numbers)); });
    std::vector<Candidate> candidates;
    for (const Image &image : images) {
      const Numbers &means = *history_.find(image);
      candidates.push_back({image, means, plan_.cost(means), faults(image)});
    }
    return candidates;
  }

private:
  const Plan &plan_;
  Evaluator &evaluator_;
  History &history_;
};

/// What the log has is taken beyond the budget too: with a smaller budget, what an earlier run has found is kept.
void search(Tuner &tuner, const Plan &plan, const History &history, const SearchOptions &options, Result &result,
            const Evaluated &evaluated) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(60 * options.minutes);
  const Image from = plan.with_set(result.before.image);
  const Height height = [&](const Point &place) -> std::optional<double> {
    const Image image = plan.moved(from, place);
    const bool known = history.find(image) != nullptr, free = known && result.course.size() < history.taken_up();
    if (!free && (result.course.size() >= options.budget || std::chrono::steady_clock::now() > end))
      return {};
    const Candidate candidate = tuner.evaluate({image})[0];
    const bool improved = candidate.rank() < result.after.rank();
    if (improved)
      result.after = candidate;
    result.course.push_back(result.after.cost);
    if (!known)
      evaluated(result.after, improved, result.course.size());
    return candidate.rank();
  };
  if (options.method == Method::random)
    search_randomly(plan.moves.size(), options.seed, height);
  else
    search_subplex(plan.start(from), options.step, options.seed, height);
}

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

/// Puts back, one after the other, what is missed least, as long as nothing gets worse. What the plan sets stays.
void put_back(Tuner &tuner, const Plan &plan, Result &result) {
  auto changed = changed_fields(result.before.image, result.after.image);
  std::erase_if(changed, [&](const Field *field) { return plan.sets(*field); });
  const auto alone = without_each(tuner, result, changed);
  std::vector<size_t> order(changed.size());
  for (size_t i = 0; i < order.size(); ++i)
    order[i] = i;
  std::ranges::stable_sort(order, {}, [&](size_t i) { return alone[i].rank(); });
  for (const size_t i : order) {
    const Image image = with_field_of(*changed[i], result.after.image, result.before.image);
    const Candidate candidate = tuner.evaluate({image})[0];
    if (candidate.rank() <= result.after.rank() + nothing)
      result.after = candidate;
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

Numbers mean_of(const std::vector<Numbers> &by_recording) {
  Numbers means;
  for (size_t i = 0; i < measure::measures().size(); ++i) {
    double sum = 0;
    int count = 0;
    for (const Numbers &numbers : by_recording)
      if (!std::isnan(numbers[i])) {
        sum += numbers[i];
        ++count;
      }
    means.push_back(count > 0 ? sum / count : std::nan(""));
  }
  return means;
}

Result tune(const Plan &plan, const Image &before, Evaluator &evaluator, History &history, const SearchOptions &options,
            const Evaluated &evaluated) {
  Tuner tuner(plan, evaluator, history);
  Result result;
  const Image set = plan.with_set(before);
  plan.require_words(set);
  result.before = tuner.evaluate({before})[0];
  plan.require(result.before.means);
  const auto first = tuner.evaluate({set, plan.moved(set, plan.start(set))});
  if (first[1].findings > std::max(first[0].findings, result.before.findings))
    refuse_start(plan, first[1].image);
  result.after = *std::ranges::min_element(first, {}, &Candidate::rank);
  if (history.taken_up() == 0)
    evaluated(result.after, true, 0);
  search(tuner, plan, history, options, result, evaluated);
  put_back(tuner, plan, result);
  const auto changed = changed_fields(before, result.after.image);
  const auto without = without_each(tuner, result, changed);
  for (size_t i = 0; i < changed.size(); ++i)
    result.effects.push_back({changed[i], without[i].cost - result.after.cost, without[i].image, result.after.means,
                              without[i].means, at_bound(plan, *changed[i], result.after.image)});
  std::ranges::stable_sort(result.effects, std::greater(), &Effect::lost);
  return result;
}

} // namespace qv::tool::tune
