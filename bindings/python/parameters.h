/// @file parameters.h  Parameters as Python gives them: a preset's name, a file, or the 500 words.
#pragma once

#include <pybind11/pybind11.h>

#include "call/setup.h"

namespace qv::python {

namespace py = pybind11;

/// Warns (UserWarning) about values that have errors.
/// @param parameters  str or path: a preset, else a file, packed or as text; numpy array: int16 [500]
/// @throws InputError, py::value_error naming what was found and what would be right
config::Image image_of(const py::object &parameters);

/// @param parameters  as above; None: the default preset of the layout
tool::Setup setup_of(const py::object &parameters, int rate, int frame_ms);

void bind_parameters(py::module_ &module);

} // namespace qv::python
