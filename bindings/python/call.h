/// @file call.h  A call for Python.
#pragma once

#include <pybind11/pybind11.h>

namespace qv::python {

void bind_call(pybind11::module_ &module);

} // namespace qv::python
