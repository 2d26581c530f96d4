// The Python module qvvoice._qvvoice; qvvoice/__init__.py names what is public.

#include "call.h"
#include "parameters.h"
#include "qvvoice/qvvoice.h"
#include "recordings.h"
#include "support/error.h"

PYBIND11_MODULE(_qvvoice, module) {
  namespace py = pybind11;
  module.attr("__version__") = QV_VOICE_Version();
  py::register_exception_translator([](std::exception_ptr thrown) {
    try {
      std::rethrow_exception(thrown);
    } catch (const qv::tool::InputError &error) {
      PyErr_SetString(PyExc_ValueError, error.what());
    }
  });
  qv::python::bind_parameters(module);
  qv::python::bind_call(module);
  qv::python::bind_recordings(module);
}
