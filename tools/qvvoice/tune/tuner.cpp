#include "tune/tuner.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "tune/search.h"

namespace qv::tool::tune {
namespace {

using config::Field;
using config::Image;

constexpr double nothing = 0.01; ///< points that a field must buy to stay changed

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
      candidates.push_back({image, means, plan_.cost(means)});
    }
    return candidates;
  }

private:
  const Plan &plan_;
  Evaluator &evaluator_;
  History &history_;
};

/// @param ask   the next points
/// @param tell  takes points and costs
template <class Ask, class Tell>
void run_search(Tuner &tuner, const Plan &plan, const Image &from, const SearchOptions &options, Result &result,
                const Better &better, const Ask &ask, const Tell &tell) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(60 * options.minutes);
  while (result.course.size() < options.budget && std::chrono::steady_clock::now() < end) {
    const std::vector<Point> points = ask();
    std::vector<Image> images;
    for (const Point &point : points)
      images.push_back(plan.moved(from, point));
    std::vector<double> costs;
    for (const Candidate &candidate : tuner.evaluate(images)) {
      costs.push_back(candidate.cost);
      const bool improved = candidate.cost < result.after.cost;
      if (improved)
        result.after = candidate;
      result.course.push_back(result.after.cost);
      if (improved)
        better(result.after, result.course.size());
    }
    tell(points, costs);
  }
}

void search(Tuner &tuner, const Plan &plan, const SearchOptions &options, Result &result, const Better &better) {
  const Image from = plan.started(result.before.image);
  const Point start = plan.start(from);
  const auto run = [&](const auto &ask, const auto &tell) {
    run_search(tuner, plan, from, options, result, better, ask, tell);
  };
  if (options.method == Method::random) {
    RandomSearch random(plan.moves.size(), options.seed);
    run([&] { return random.ask(); }, [](const auto &, const auto &) {});
  } else {
    EvolutionStrategy strategy(start, options.step, options.seed);
    run([&] { return strategy.ask(); }, [&](const auto &points, const auto &costs) { strategy.tell(points, costs); });
  }
}

bool differs(const Field &field, const Image &a, const Image &b) {
  const int32_t rate = a[config::rate_word];
  for (int32_t i = 0; i < field.count(rate); ++i)
    if (a[size_t(field.word(rate, i))] != b[size_t(field.word(rate, i))])
      return true;
  return false;
}

Image with_field_of(const Field &field, Image image, const Image &other) {
  const int32_t rate = image[config::rate_word];
  for (int32_t i = 0; i < field.count(rate); ++i)
    image[size_t(field.word(rate, i))] = other[size_t(field.word(rate, i))];
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

/// Puts back, one after the other, what is missed least, as long as nothing gets worse.
void put_back(Tuner &tuner, Result &result) {
  const auto changed = changed_fields(result.before.image, result.after.image);
  const auto alone = without_each(tuner, result, changed);
  std::vector<size_t> order(changed.size());
  for (size_t i = 0; i < order.size(); ++i)
    order[i] = i;
  std::ranges::stable_sort(order, {}, [&](size_t i) { return alone[i].cost; });
  for (const size_t i : order) {
    const Image image = with_field_of(*changed[i], result.after.image, result.before.image);
    const Candidate candidate = tuner.evaluate({image})[0];
    if (candidate.cost <= result.after.cost + nothing)
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
            const Better &better) {
  Tuner tuner(plan, evaluator, history);
  Result result;
  result.before = result.after = tuner.evaluate({before})[0];
  plan.require(result.before.means);
  if (const Candidate started = tuner.evaluate({plan.started(before)})[0]; started.cost < result.after.cost)
    result.after = started;
  search(tuner, plan, options, result, better);
  put_back(tuner, result);
  const auto changed = changed_fields(before, result.after.image);
  const auto without = without_each(tuner, result, changed);
  for (size_t i = 0; i < changed.size(); ++i)
    result.effects.push_back({changed[i], without[i].cost - result.after.cost, without[i].means,
                              at_bound(plan, *changed[i], result.after.image)});
  std::ranges::stable_sort(result.effects, std::greater(), &Effect::lost);
  return result;
}

} // namespace qv::tool::tune
