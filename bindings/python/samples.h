/// @file samples.h  Signals and parameters as numpy has them.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <string>
#include <vector>

#include "config/fields.h"

namespace qv::python {

namespace py = pybind11;

/// A mono signal, checked: int16, or float32 with 1.0 as 32768. Holds the array, contiguous, for as long as it lives.
class Signal {
public:
  /// @param name  of the argument, for messages
  /// @throws py::value_error that says what was found and what is expected, unless it is an array of one dimension and
  ///         one of the two types
  Signal(const py::object &array, std::string name);

  bool is_float() const { return is_float_; }
  size_t size() const { return size_; }
  const int16_t *words() const { return static_cast<const int16_t *>(array_.data()); } ///< unless is_float()
  const float *floats() const { return static_cast<const float *>(array_.data()); }    ///< if is_float()
  std::vector<int16_t> to_words() const; ///< floats rounded, those beyond full scale clipped, NaN as 0

  /// @throws py::value_error unless `other` has the same type, and the same length
  void require_alike(const Signal &other) const;
  void require_same_type(const Signal &other) const;

  /// @throws py::value_error unless the length is a multiple @param why  "the call's frame"
  void require_multiple_of(int32_t count, const char *why) const;

private:
  [[noreturn]] void refuse(const std::string &found, const std::string &needed) const;

  std::string name_;
  py::array array_;
  bool is_float_ = false;
  size_t size_ = 0;
};

/// An array of the signal's type and length. @param words  16-bit samples
py::array to_array(const std::vector<int16_t> &words, bool as_float);

/// int16 [500]
py::array_t<int16_t> to_array(const config::Image &words);

} // namespace qv::python
