#include <algorithm>
#include <filesystem>

#include "fleet/shard.h"
#include "support/checksum.h"
#include "support/error.h"
#include "tune/evaluator.h"

namespace qv::tool::tune {
namespace {

class OnFleet : public Evaluator {
public:
  OnFleet(const std::string &set, int rate, int frame_ms, const std::string &folder, const fleet::Workers &workers)
      : rate_(rate), frame_ms_(frame_ms), folder_(folder), workers_(workers), set_(recordings_at(set, rate)) {
    for (const sets::Entry &entry : set_)
      names_.push_back(entry.name);
  }

  const std::vector<std::string> &names() const override { return names_; }

  Json identity() const override {
    std::string lines;
    for (const sets::Entry &entry : set_)
      lines += sets::line_of(entry).dump();
    return {{"recordings", set_.size()}, {"set", checksum_of(lines)}};
  }

  void evaluate(const std::vector<config::Image> &images, const Done &done) override {
    if (images.empty())
      return;
    std::vector<Setup> setups;
    for (const config::Image &image : images)
      setups.push_back(setup_of(image, "", rate_, frame_ms_));
    const double shard_seconds = fleet::shard_seconds(workers_, fleet::cost_of(set_, images.size()));
    const std::string folder = fmt::format("{}/{}", folder_, checksum_of(Json(images).dump()));
    const fleet::Run run = fleet::take_up(folder, set_, setups, shard_seconds);
    fleet::measure_missing(run, workers_);
    std::vector<Evaluation> evaluations = results_of(run);
    if (evaluations.size() > 1 && std::ranges::none_of(evaluations, &std::string::empty, &Evaluation::failed))
      throw InputError("{}: no parameters could be measured, the first on {}", folder, evaluations[0].failed);
    for (size_t i = 0; i < images.size(); ++i)
      done(i, std::move(evaluations[i]));
    std::filesystem::remove_all(folder);
  }

private:
  static std::vector<Evaluation> results_of(const fleet::Run &run) {
    std::vector<Evaluation> evaluations(run.per_recording());
    size_t number = 0;
    for (size_t shard = 0; shard < run.shard_count(); ++shard)
      for (const std::string &line : fleet::read_shard(run, shard).lines) {
        const Json result = Json::parse(line);
        Evaluation &evaluation = evaluations[number++ % evaluations.size()];
        const bool failed = fleet::is_failed(result);
        evaluation.by_recording.push_back(numbers_of(failed ? Json::object() : result["measures"]));
        if (failed && evaluation.failed.empty())
          evaluation.failed = fmt::format("{}: {}", std::string(result["name"]), std::string(result["failed"]));
      }
    return evaluations;
  }

  int rate_, frame_ms_;
  std::string folder_;
  fleet::Workers workers_;
  std::vector<sets::Entry> set_;
  std::vector<std::string> names_;
};

} // namespace

std::unique_ptr<Evaluator> on_fleet(const std::string &set, int rate, int frame_ms, const std::string &folder,
                                    const fleet::Workers &workers) {
  return std::make_unique<OnFleet>(set, rate, frame_ms, folder, workers);
}

} // namespace qv::tool::tune
