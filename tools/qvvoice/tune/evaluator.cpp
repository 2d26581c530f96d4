#include "tune/evaluator.h"

#include <cstring>

#include "support/error.h"
#include "support/progress.h"
#include "support/worker_pool.h"

namespace qv::tool::tune {
namespace {

struct Order {
  config::Image image;
  size_t recording;
};

template <class Record> std::string_view bytes_of(const Record &record) {
  return {reinterpret_cast<const char *>(&record), sizeof record};
}

class InMemory : public Evaluator {
public:
  InMemory(const std::string &set, int rate, int frame_ms, int parallel) : rate_(rate), frame_ms_(frame_ms) {
    read(set);
    pool_.emplace(parallel, [this](std::string_view bytes) { return numbers_for(bytes); });
  }

  const std::vector<std::string> &names() const override { return names_; }

  /// FNV-1a of all samples.
  Json identity() const override {
    uint64_t hash = 0xCBF29CE484222325;
    for (const measure::Subject &subject : subjects_)
      for (const auto *samples : {&subject.mic, &subject.ref})
        for (const int16_t sample : *samples)
          hash = (hash ^ uint16_t(sample)) * 0x100000001B3;
    return {{"recordings", names_}, {"samples", hash}};
  }

  void evaluate(const std::vector<config::Image> &images, const Done &done) override {
    const size_t count = known_.size(), jobs = images.size() * count;
    std::vector<Reply> replies(jobs, Reply{false, ""});
    std::vector<size_t> left(images.size(), count);
    size_t reported = 0;
    const auto order = [&](size_t job) { return std::string(bytes_of(Order{images[job / count], job % count})); };
    pool_->run(jobs, order, [&](size_t job, const Reply &reply) {
      replies[job] = reply;
      --left[job / count];
      for (; reported < images.size() && left[reported] == 0; ++reported)
        done(reported, evaluation_of({&replies[reported * count], count}));
    });
  }

private:
  void read(const std::string &set) {
    const Progress bar("reading calls");
    sets::Reader reader;
    for (const sets::Entry &entry : recordings_at(set, rate_)) {
      names_.push_back(entry.name);
      subjects_.push_back(reader.read(entry));
    }
    for (const measure::Subject &subject : subjects_)
      known_.emplace_back(subject);
  }

  std::string numbers_for(std::string_view bytes) const {
    Order order;
    std::memcpy(&order, bytes.data(), sizeof order);
    const measure::Known &known = known_[order.recording];
    const Setup setup{order.image, "", rate_, rate_ / 1000 * frame_ms_};
    const Numbers numbers = numbers_of(measure::measure(known, measure::run_library(known.subject, setup)));
    return std::string(reinterpret_cast<const char *>(numbers.data()), numbers.size() * sizeof(double));
  }

  /// @param replies  a recording each
  Evaluation evaluation_of(std::span<const Reply> replies) const {
    Evaluation evaluation;
    for (size_t i = 0; i < replies.size(); ++i) {
      Numbers &numbers = evaluation.by_recording.emplace_back(measure::measures().size(), std::nan(""));
      if (replies[i].fine)
        std::memcpy(numbers.data(), replies[i].text.data(), numbers.size() * sizeof(double));
      else if (evaluation.failed.empty())
        evaluation.failed = fmt::format("{}: {}", names_[i], replies[i].text);
    }
    return evaluation;
  }

  int rate_, frame_ms_;
  std::vector<std::string> names_;
  std::vector<measure::Subject> subjects_;
  std::vector<measure::Known> known_;
  std::optional<WorkerPool> pool_;
};

} // namespace

std::vector<sets::Entry> recordings_at(const std::string &set, int rate) {
  std::vector<sets::Entry> entries = sets::checked(set);
  std::erase_if(entries, [&](const sets::Entry &entry) { return entry.rate != rate; });
  if (entries.empty())
    throw InputError("{}: has no recording at {} Hz; the parameters are for that rate", set, rate);
  return entries;
}

std::unique_ptr<Evaluator> in_memory(const std::string &set, int rate, int frame_ms, int parallel) {
  return std::make_unique<InMemory>(set, rate, frame_ms, parallel);
}

} // namespace qv::tool::tune
