/// @file recordings.h  Whole recordings for Python: processed, and measured.
#pragma once

#include <pybind11/pybind11.h>

namespace qv::python {

void bind_recordings(pybind11::module_ &module);

} // namespace qv::python
