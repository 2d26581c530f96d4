#include "reference.h"

#include <algorithm>

namespace qv::gst {
namespace {

struct Probes {
  std::mutex guard;
  std::vector<std::shared_ptr<Reference>> all;
};

Probes &probes() {
  static Probes instance;
  return instance;
}

} // namespace

const void *top_of(GstElement *element) {
  GstObject *top = GST_OBJECT(gst_object_ref(element));
  while (GstObject *parent = gst_object_get_parent(top)) {
    gst_object_unref(top);
    top = parent;
  }
  gst_object_unref(top);
  return top;
}

void Reference::begin(int rate) {
  const std::lock_guard lock(guard_);
  ended_ = false;
  if (rate == rate_)
    return;
  rate_ = rate;
  ring_.assign(size_t(rate) * kept_seconds, 0);
  begin_ = end_ = 0;
}

void Reference::put(int64_t at, std::span<const int16_t> samples) {
  const auto capacity = int64_t(ring_.size());
  if (begin_ == end_ || at < end_ || at - end_ > capacity) // the first, a jump back or far ahead
    begin_ = end_ = at;
  for (; end_ < at; ++end_)
    ring_[size_t(end_ % capacity)] = 0;
  for (const int16_t sample : samples)
    ring_[size_t(end_++ % capacity)] = sample;
  begin_ = std::max(begin_, end_ - capacity);
}

void Reference::write(int64_t at, std::span<const int16_t> samples) {
  std::unique_lock lock(guard_);
  changed_.wait(lock, [&] { return flushing_ || !reader_ || at < *reader_ + int64_t(rate_) * ahead_seconds; });
  if (flushing_ || at < 0)
    return;
  put(at, samples);
  changed_.notify_all();
}

void Reference::silence_until(int64_t at) {
  const std::lock_guard lock(guard_);
  if (!flushing_ && at > end_)
    put(at, {});
  changed_.notify_all();
}

void Reference::end() {
  const std::lock_guard lock(guard_);
  ended_ = true;
  changed_.notify_all();
}

void Reference::flush(bool on) {
  const std::lock_guard lock(guard_);
  flushing_ = on;
  ended_ = false;
  begin_ = end_ = 0;
  changed_.notify_all();
}

void Reference::set_times(GstClockTime base, GstClockTime latency) {
  const std::lock_guard lock(guard_);
  base_ = base;
  latency_ = latency;
}

int Reference::rate() const {
  const std::lock_guard lock(guard_);
  return rate_;
}

GstClockTime Reference::base_time() const {
  const std::lock_guard lock(guard_);
  return base_;
}

GstClockTime Reference::latency() const {
  const std::lock_guard lock(guard_);
  return latency_;
}

void Reference::keep_step(std::optional<int64_t> at) {
  const std::lock_guard lock(guard_);
  reader_ = at;
  changed_.notify_all();
}

size_t Reference::read(int64_t at, std::span<int16_t> samples, const std::atomic<bool> &stopped) {
  std::unique_lock lock(guard_);
  const int64_t until = at + int64_t(samples.size());
  if (reader_) {
    reader_ = at;
    changed_.notify_all();
    changed_.wait(lock, [&] { return stopped || ended_ || !reader_ || end_ >= until; });
  }
  std::ranges::fill(samples, 0);
  const int64_t from = std::max(at, begin_), to = std::min(until, end_);
  for (int64_t i = from; i < to; ++i)
    samples[size_t(i - at)] = ring_[size_t(i % int64_t(ring_.size()))];
  return size_t(std::max<int64_t>(to - from, 0));
}

void Reference::wake() {
  const std::lock_guard lock(guard_);
  changed_.notify_all();
}

void add_probe(const std::shared_ptr<Reference> &reference) {
  const std::lock_guard lock(probes().guard);
  probes().all.push_back(reference);
}

void remove_probe(const std::shared_ptr<Reference> &reference) {
  reference->end();
  const std::lock_guard lock(probes().guard);
  std::erase(probes().all, reference);
}

std::shared_ptr<Reference> find_probe(const char *name, const void *top) {
  const std::lock_guard lock(probes().guard);
  std::vector<std::shared_ptr<Reference>> found, near;
  for (const auto &reference : probes().all)
    if (!name || reference->name() == name) {
      found.push_back(reference);
      if (reference->top() == top)
        near.push_back(reference);
    }
  const auto &choice = near.empty() ? found : near;
  return choice.size() == 1 || (name && !choice.empty()) ? choice.front() : nullptr;
}

std::string probe_names() {
  const std::lock_guard lock(probes().guard);
  std::string names;
  for (const auto &reference : probes().all)
    names += (names.empty() ? "" : ", ") + reference->name();
  return names.empty() ? "none" : names;
}

} // namespace qv::gst
