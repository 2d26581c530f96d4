#include "tune/evaluator.h"

#include <cstring>

#include "sets/set.h"
#include "support/error.h"
#include "support/progress.h"

namespace qv::tool::tune {
namespace {

Numbers numbers_of(const measure::Results &results) {
  Numbers numbers;
  for (const measure::Measure &measure : measure::measures()) {
    const bool speed =
        measure.value == &measure::Results::real_time_factor || measure.value == &measure::Results::worst_frame_percent;
    const measure::Value &value = results.*measure.value;
    numbers.push_back(speed ? std::nan("") : value.number());
  }
  return numbers;
}

struct Order {
  config::Image image;
  size_t recording;
};

template <class Record> std::string_view bytes_of(const Record &record) {
  return {reinterpret_cast<const char *>(&record), sizeof record};
}

} // namespace

void Evaluator::read(const std::string &set) {
  const Progress bar("reading calls");
  sets::Reader reader;
  for (const sets::Entry &entry : sets::checked(set)) {
    if (entry.rate != rate_)
      continue;
    names_.push_back(entry.name);
    subjects_.push_back(reader.read(entry));
  }
  if (subjects_.empty())
    throw InputError("{}: has no recording at {} Hz; the parameters are for that rate", set, rate_);
  for (const measure::Subject &subject : subjects_)
    known_.emplace_back(subject);
}

Evaluator::Evaluator(const std::string &set, int rate, int frame_ms, int parallel) : rate_(rate), frame_ms_(frame_ms) {
  read(set);
  pool_.emplace(parallel, [this](std::string_view bytes) {
    Order order;
    std::memcpy(&order, bytes.data(), sizeof order);
    const measure::Known &known = known_[order.recording];
    const Setup setup{order.image, "", rate_, rate_ / 1000 * frame_ms_};
    const Numbers numbers = numbers_of(measure::measure(known, measure::run_library(known.subject, setup)));
    return std::string(reinterpret_cast<const char *>(numbers.data()), numbers.size() * sizeof(double));
  });
}

uint64_t Evaluator::checksum() const {
  uint64_t hash = 0xCBF29CE484222325;
  for (const measure::Subject &subject : subjects_)
    for (const auto *samples : {&subject.mic, &subject.ref})
      for (const int16_t sample : *samples)
        hash = (hash ^ uint16_t(sample)) * 0x100000001B3;
  return hash;
}

void Evaluator::evaluate(const std::vector<config::Image> &images, const Done &done) {
  const size_t count = known_.size(), jobs = images.size() * count;
  std::vector<Numbers> results(jobs);
  size_t reported = 0;
  const auto order = [&](size_t job) { return std::string(bytes_of(Order{images[job / count], job % count})); };
  const auto through = [&](size_t image) {
    const auto begin = results.begin() + std::ptrdiff_t(image * count);
    return std::none_of(begin, begin + std::ptrdiff_t(count), [](const Numbers &numbers) { return numbers.empty(); });
  };
  pool_->run(jobs, order, [&](size_t job, const Reply &reply) {
    if (!reply.fine)
      throw std::runtime_error(fmt::format("{}: {}", names_[job % count], reply.text));
    results[job].resize(measure::measures().size());
    std::memcpy(results[job].data(), reply.text.data(), results[job].size() * sizeof(double));
    for (; reported < images.size() && through(reported); ++reported)
      done(reported, {results.begin() + std::ptrdiff_t(reported * count),
                      results.begin() + std::ptrdiff_t((reported + 1) * count)});
  });
}

} // namespace qv::tool::tune
