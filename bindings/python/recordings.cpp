#include "recordings.h"

#include <pybind11/stl.h>

#include <optional>

#include "call/run.h"
#include "call/trace_table.h"
#include "measure/print.h"
#include "parameters.h"
#include "samples.h"

namespace qv::python {
namespace {

namespace measure = tool::measure;

std::optional<Signal> given(const py::object &array, const char *name) {
  if (array.is_none())
    return std::nullopt;
  return Signal(array, name);
}

/// A column per field, a row per frame.
py::dict columns_of(const std::vector<QvVoiceTrace> &trace) {
  py::dict columns;
  tool::for_each_field({}, [&](const char *name, auto value) {
    columns[name] = py::array_t<decltype(value)>(py::ssize_t(trace.size()));
  });
  for (size_t k = 0; k < trace.size(); ++k)
    tool::for_each_field(trace[k], [&](const char *name, auto value) {
      py::cast<py::array_t<decltype(value)>>(columns[name]).mutable_at(k) = value;
    });
  return columns;
}

tool::Run run(const tool::Setup &setup, const std::optional<Signal> &mic, const std::optional<Signal> &ref,
              const std::optional<Signal> &far, bool compensate) {
  const auto words = [](const std::optional<Signal> &signal) {
    return signal ? signal->to_words() : std::vector<int16_t>();
  };
  const auto mic_words = words(mic), ref_words = words(ref), far_words = words(far);
  const tool::RunOptions options{.compensate = compensate, .progress = {}};
  const py::gil_scoped_release released;
  if (far)
    return mic ? run_both(setup, far_words, mic_words, options) : run_rx(setup, far_words, options);
  return run_tx(setup, mic_words, ref_words, options);
}

py::dict process(const py::object &mic_array, const py::object &ref_array, const py::object &far_array,
                 const py::object &parameters, int rate, int frame_ms, bool compensate) {
  const auto mic = given(mic_array, "mic"), ref = given(ref_array, "ref"), far = given(far_array, "far");
  if (far ? bool(ref) : !(mic && ref))
    throw py::value_error("mic, ref, far: found another choice; right would be mic and ref, or far with or without mic "
                          "(then what the receive path plays is the reference)");
  for (const auto *other : {&ref, &far})
    if (mic && *other)
      (*other)->require_same_type(*mic);
  const tool::Run done = run(setup_of(parameters, rate, frame_ms), mic, ref, far, compensate);
  const bool as_float = (mic ? *mic : *far).is_float();
  py::dict result;
  result["sent"] = mic ? py::object(to_array(done.sent, as_float)) : py::none();
  result["played"] = far ? py::object(to_array(done.played, as_float)) : py::none();
  result["latency"] = py::make_tuple(done.latency.tx, done.latency.rx);
  result["trace"] = columns_of(done.trace);
  return result;
}

/// The results of one recording as `qvvoice measure --json` prints them.
py::object measure_subject(const measure::Subject &subject, const py::object &parameters, int frame_ms) {
  const tool::Setup setup = setup_of(parameters, subject.rate, frame_ms);
  const std::string text = [&] {
    const py::gil_scoped_release released;
    const measure::Output output = measure::run_library(subject, setup);
    return to_json(subject, output, measure::measure(measure::Known(subject), output))
        .dump(-1, ' ', false, measure::Json::error_handler_t::replace);
  }();
  return py::module_::import("json").attr("loads")(text);
}

py::object measure_arrays(const py::object &mic_array, const py::object &ref_array, const py::object &near_array,
                          const py::object &echo_array, const py::object &noise_array, const py::object &parameters,
                          int rate, int frame_ms, const std::string &name) {
  const Signal mic(mic_array, "mic"), ref(ref_array, "ref");
  ref.require_alike(mic);
  const auto part = [&](const py::object &array, const char *role) -> std::optional<tool::Signal> {
    const auto signal = given(array, role);
    if (!signal)
      return std::nullopt;
    signal->require_alike(mic);
    return tool::to_signal(signal->to_words());
  };
  const measure::Subject subject{name,
                                 rate,
                                 mic.to_words(),
                                 ref.to_words(),
                                 part(near_array, "near"),
                                 part(echo_array, "echo"),
                                 {},
                                 part(noise_array, "noise")};
  return measure_subject(subject, parameters, frame_ms);
}

py::object measure_folder(const py::object &folder, const py::object &parameters, int frame_ms) {
  const std::string path = py::str(py::module_::import("os").attr("fspath")(folder));
  return measure_subject(measure::read_folder(path), parameters, frame_ms);
}

} // namespace

void bind_recordings(py::module_ &module) {
  module.def("process", process, py::arg("mic") = py::none(), py::arg("ref") = py::none(), py::arg("far") = py::none(),
             py::kw_only(), py::arg("parameters") = py::none(), py::arg("rate") = 16000, py::arg("frame_ms") = 20,
             py::arg("compensate") = false,
             "A whole recording through the library, as `qvvoice process` does it: the shorter array is continued with "
             "zeros. Returns a dictionary: sent and played (arrays of the inputs' type, or None), latency (transmit, "
             "receive; samples), trace (an array per column, a row per frame). compensate takes the latency out.");
  module.def(
      "measure", measure_arrays, py::arg("mic"), py::arg("ref"), py::arg("near") = py::none(),
      py::arg("echo") = py::none(), py::arg("noise") = py::none(), py::kw_only(), py::arg("parameters") = py::none(),
      py::arg("rate") = 16000, py::arg("frame_ms") = 20, py::arg("name") = "recording",
      "What `qvvoice measure --json` gives for a recording, as a dictionary; near, echo and noise are the parts of "
      "the microphone's signal, as far as they are known.");
  module.def("measure_folder", measure_folder, py::arg("folder"), py::kw_only(), py::arg("parameters") = py::none(),
             py::arg("frame_ms") = 20,
             "The same for a folder with mic.wav, ref.wav and what else is known, as `qvvoice scene` writes it.");
}

} // namespace qv::python
