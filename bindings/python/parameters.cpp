#include "parameters.h"

#include <pybind11/stl.h>

#include <algorithm>

#include "inspect/check.h"
#include "para/presets.h"
#include "para/text_reader.h"
#include "para/text_writer.h"
#include "samples.h"
#include "support/error.h"

namespace qv::python {
namespace {

using tool::InputError;
using tool::para::Finding, tool::para::Findings, tool::para::ParaFile, tool::para::Severity;

void warn(const std::string &message) {
  if (PyErr_WarnEx(PyExc_UserWarning, message.c_str(), 1) != 0)
    throw py::error_already_set();
}

ParaFile from_array(const py::array &array) {
  if (!array.dtype().equal(py::dtype::of<int16_t>()) || array.ndim() != 1 || array.size() != config::word_count)
    throw InputError("parameters: found dtype {}, shape {}; needed: int16 of shape ({},)",
                     std::string(py::str(array.dtype())), std::string(py::str(array.attr("shape"))),
                     config::word_count);
  ParaFile file{.name = "parameters", .image = {}, .packed = true, .log = {}};
  const auto words = py::array_t<int16_t, py::array::c_style>::ensure(array);
  std::copy_n(words.data(), file.image.size(), file.image.begin());
  return file;
}

ParaFile file_of(const py::object &parameters) {
  if (py::isinstance<py::array>(parameters))
    return from_array(py::reinterpret_borrow<py::array>(parameters));
  const bool path = py::isinstance<py::str>(parameters) || py::hasattr(parameters, "__fspath__");
  if (!path)
    throw InputError("parameters: found {}; needed: the name of a preset, a path or an int16 array of {} words",
                     std::string(py::str(py::type::of(parameters).attr("__name__"))), config::word_count);
  return tool::para::load(py::str(py::module_::import("os").attr("fspath")(parameters)));
}

config::Image valid_image(const ParaFile &file) {
  std::string errors;
  for (const Finding &finding : file.log.findings())
    if (finding.severity == Severity::error)
      errors += (errors.empty() ? "" : "\n") + to_string(finding, file.name);
  if (!errors.empty())
    throw InputError("{}", errors);
  if (file.image[config::magic_word] != config::magic)
    throw InputError("{}: not a parameter file: word {} is {}; {} is needed", file.name, config::magic_word,
                     file.image[config::magic_word], config::magic);
  return file.image;
}

ParaFile from_text(const std::string &text, const std::string &folder) {
  tool::para::ReadText read = tool::para::read_text(text, folder);
  return {"text", read.image, false, 0, std::move(read.log)};
}

py::list check(const py::object &parameters) {
  py::list rows;
  const ParaFile file = file_of(parameters);
  for (const Finding &finding : tool::inspect::check_file(file)) {
    py::dict row;
    row["severity"] = finding.severity == Severity::error ? "error" : "warning";
    row["line"] = finding.line > 0 ? py::object(py::int_(finding.line)) : py::none();
    row["key"] = finding.key;
    row["message"] = finding.message;
    rows.append(row);
  }
  return rows;
}

} // namespace

config::Image image_of(const py::object &parameters) {
  const ParaFile file = file_of(parameters);
  const config::Image image = valid_image(file);
  const auto errors = std::ranges::count(tool::inspect::check_file(file), Severity::error, &Finding::severity);
  if (errors > 0)
    warn(fmt::format("{}: {} of its values are wrong: see qvvoice.check_parameters()", file.name, errors));
  return image;
}

tool::Setup setup_of(const py::object &parameters, int rate, int frame_ms) {
  tool::check_layout(rate, frame_ms);
  const auto name = [&]() -> std::string {
    if (parameters.is_none())
      return tool::para::preset_of(tool::para::default_family, rate, frame_length(rate, frame_ms));
    return py::isinstance<py::array>(parameters) ? std::string("parameters") : std::string(py::str(parameters));
  }();
  const config::Image image = image_of(parameters.is_none() ? py::str(name) : parameters);
  return tool::setup_of(image, name, rate, frame_ms);
}

void bind_parameters(py::module_ &module) {
  module.def(
      "presets", [] { return tool::para::preset_names(); }, "Names of the presets that are built in.");
  module.def(
      "load_parameters", [](const py::object &source) { return to_array(image_of(source)); }, py::arg("source"),
      "The 500 words, int16, of a preset or a file, packed or as text. ValueError with every error of a text.");
  module.def(
      "parameters_from_text",
      [](const std::string &text, const std::string &folder) { return to_array(valid_image(from_text(text, folder))); },
      py::arg("text"), py::arg("folder") = ".",
      "The 500 words, int16, of a text form (TOML); `folder` is where the coefficient files lie that it names. "
      "ValueError with every error and its line.");
  module.def(
      "parameters_to_text",
      [](const py::object &parameters) { return tool::para::write_text(valid_image(file_of(parameters))); },
      py::arg("parameters"), "The text form, with every word: parameters_from_text() gives the same words again.");
  module.def("check_parameters", check, py::arg("parameters"),
             "What `qvvoice para check` finds: a list of dictionaries with severity, line, key and message.");
}

} // namespace qv::python
