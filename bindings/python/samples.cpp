#include "samples.h"

#include <algorithm>

#include <fmt/format.h>

#include "dsp/sample.h"

namespace qv::python {
namespace {

constexpr float full_scale = 32768.f;

std::string text_of(const py::handle &value) { return py::str(value); }

} // namespace

Signal::Signal(const py::object &array, std::string name) : name_(std::move(name)) {
  constexpr const char *types = "a numpy array of int16, or of float32 whose full scale is 1.0";
  if (!py::isinstance<py::array>(array))
    refuse(text_of(py::type::of(array).attr("__name__")), types);
  array_ = py::reinterpret_borrow<py::array>(array);
  is_float_ = array_.dtype().equal(py::dtype::of<float>());
  if (!is_float_ && !array_.dtype().equal(py::dtype::of<int16_t>()))
    refuse("dtype " + text_of(array_.dtype()), types);
  if (array_.ndim() != 1)
    refuse("shape " + text_of(array_.attr("shape")), "one dimension: a channel by itself");
  array_ = is_float_ ? py::array(py::array_t<float, py::array::c_style>::ensure(array_))
                     : py::array(py::array_t<int16_t, py::array::c_style>::ensure(array_));
  size_ = size_t(array_.size());
}

void Signal::refuse(const std::string &found, const std::string &needed) const {
  throw py::value_error(fmt::format("{}: found {}; needed: {}", name_, found, needed));
}

std::vector<int16_t> Signal::to_words() const {
  if (!is_float_)
    return {words(), words() + size_};
  std::vector<int16_t> rounded(size_);
  std::transform(floats(), floats() + size_, rounded.begin(), [](float x) { return to_sample(x * full_scale); });
  return rounded;
}

void Signal::require_same_type(const Signal &other) const {
  if (is_float_ != other.is_float_)
    refuse("dtype " + text_of(array_.dtype()),
           fmt::format("{}, as {} has", text_of(other.array_.dtype()), other.name_));
}

void Signal::require_alike(const Signal &other) const {
  require_same_type(other);
  if (size_ != other.size_)
    refuse(fmt::format("{} samples", size_), fmt::format("{}, as {} has", other.size_, other.name_));
}

void Signal::require_multiple_of(int32_t count, const char *why) const {
  if (size_ % size_t(count) != 0)
    refuse(fmt::format("{} samples", size_), fmt::format("a multiple of {} ({})", count, why));
}

py::array to_array(const std::vector<int16_t> &words, bool as_float) {
  if (!as_float)
    return py::array_t<int16_t>(py::ssize_t(words.size()), words.data());
  py::array_t<float> floats{py::ssize_t(words.size())};
  std::ranges::transform(words, floats.mutable_data(), [](int16_t x) { return float(x) / full_scale; });
  return floats;
}

py::array_t<int16_t> to_array(const config::Image &words) {
  return py::array_t<int16_t>(py::ssize_t(words.size()), words.data());
}

} // namespace qv::python
