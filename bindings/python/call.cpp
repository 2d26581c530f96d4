#include "call.h"

#include <pybind11/stl.h>

#include <memory>
#include <mutex>
#include <numeric>
#include <optional>

#include <fmt/format.h>

#include "call/trace_table.h"
#include "parameters.h"
#include "qvvoice/stream.h"
#include "samples.h"

namespace qv::python {
namespace {

void require_ok(int32_t status) {
  if (status == QV_VOICE_OUT_OF_MEMORY)
    throw std::bad_alloc();
  if (status != QV_VOICE_OK)
    throw py::value_error(QV_VOICE_StatusText(status));
}

struct Destroy {
  void operator()(qv_call *call) const { qv_call_destroy(call); }
  void operator()(qv_stream *stream) const { qv_stream_destroy(stream); }
};

/// What a call of the library needs, and what keeps two threads of a Python program out of the same direction.
struct Running {
  std::unique_ptr<qv_call, Destroy> call;
  std::unique_ptr<qv_stream, Destroy> stream;
  std::mutex transmit, receive, replace;
  int rate;
  int grain; ///< samples of which every block is a multiple

  Running(const config::Image &image, int frame_ms, std::optional<int> block, uint32_t seed)
      : rate(image[config::rate_word]) {
    tool::check_layout(rate, frame_ms);
    const int frame = frame_length(rate, frame_ms), length = block.value_or(frame);
    if (length < 0)
      throw py::value_error(fmt::format("block: found {}; samples of a block are needed, or 0 for any", length));
    const qv_call_config config{sizeof config, rate, frame, seed};
    qv_call *made = nullptr;
    require_ok(qv_call_create(&config, image.data(), &made));
    call.reset(made);
    qv_stream *stream_made = nullptr;
    require_ok(qv_stream_create(made, length, &stream_made));
    stream.reset(stream_made);
    grain = length == 0 ? 1 : std::gcd(frame, length);
  }
};

/// The methods hold on to what runs, so a call may be closed while a frame of it runs in another thread.
class Call {
public:
  Call(const py::object &parameters, int frame_ms, std::optional<int> block, uint32_t seed)
      : running_(std::make_shared<Running>(image_of(parameters), frame_ms, block, seed)) {}

  py::array transmit(const py::object &mic_array, const py::object &ref_array) {
    const auto running = open();
    const Signal mic(mic_array, "mic"), ref(ref_array, "ref");
    ref.require_alike(mic);
    return pass(mic, *running, running->transmit, [&](auto *out) {
      if constexpr (std::is_same_v<decltype(out), float *>)
        return qv_stream_transmit_float(running->stream.get(), mic.floats(), ref.floats(), out, uint32_t(mic.size()));
      else
        return qv_stream_transmit(running->stream.get(), mic.words(), ref.words(), out, uint32_t(mic.size()));
    });
  }

  py::array receive(const py::object &far_array) {
    const auto running = open();
    const Signal far(far_array, "far");
    return pass(far, *running, running->receive, [&](auto *out) {
      if constexpr (std::is_same_v<decltype(out), float *>)
        return qv_stream_receive_float(running->stream.get(), far.floats(), out, uint32_t(far.size()));
      else
        return qv_stream_receive(running->stream.get(), far.words(), out, uint32_t(far.size()));
    });
  }

  py::frozenset replace_parameters(const py::object &parameters) {
    const auto running = open();
    const config::Image image = tool_setup(parameters, *running).para;
    uint32_t effects = 0;
    {
      const py::gil_scoped_release released;
      const std::lock_guard alone(running->replace);
      require_ok(qv_call_replace_parameters(running->call.get(), image.data(), &effects));
    }
    py::set names;
    for (const auto &[flag, name] : {std::pair(QV_CALL_TRANSMIT_PAUSES, "transmit_pauses"),
                                     {QV_CALL_RECEIVE_PAUSES, "receive_pauses"},
                                     {QV_CALL_ECHO_RELEARNED, "echo_relearned"}})
      if (effects & flag)
        names.add(name);
    return py::frozenset(names);
  }

  py::dict trace() const {
    QvVoiceTrace trace{};
    trace.size = sizeof trace;
    require_ok(qv_call_trace(open()->call.get(), &trace));
    py::dict fields;
    tool::for_each_field(trace, [&](const char *name, auto value) { fields[name] = value; });
    return fields;
  }

  void reset() {
    const auto running = open();
    const py::gil_scoped_release released;
    const std::scoped_lock alone(running->transmit, running->receive);
    require_ok(qv_stream_reset(running->stream.get()));
  }

  std::pair<int, int> latency() const {
    int32_t tx = 0, rx = 0;
    require_ok(qv_stream_latency(open()->stream.get(), &tx, &rx));
    return {tx, rx};
  }
  int frame_length() const { return qv_call_frame_length(open()->call.get()); }
  int rate() const { return open()->rate; }
  bool closed() const { return !running_; }
  void close() { running_.reset(); }

private:
  std::shared_ptr<Running> open() const {
    if (!running_)
      throw py::value_error("the call is closed");
    return running_;
  }

  static tool::Setup tool_setup(const py::object &parameters, const Running &running) {
    const int frame_ms = 1000 * qv_call_frame_length(running.call.get()) / running.rate;
    return setup_of(parameters, running.rate, frame_ms);
  }

  /// Runs `frames` on an output like the input, without the interpreter's lock.
  template <class Frames>
  static py::array pass(const Signal &in, Running &running, std::mutex &direction, const Frames &frames) {
    in.require_multiple_of(running.grain, "the greatest common divisor of the call's frame and block");
    const auto run = [&](auto *out) {
      const py::gil_scoped_release released;
      const std::lock_guard alone(direction);
      return frames(out);
    };
    if (in.is_float()) {
      py::array_t<float> out{py::ssize_t(in.size())};
      require_ok(run(out.mutable_data()));
      return out;
    }
    py::array_t<int16_t> out{py::ssize_t(in.size())};
    require_ok(run(out.mutable_data()));
    return out;
  }

  std::shared_ptr<Running> running_;
};

} // namespace

void bind_call(py::module_ &module) {
  py::class_<Call>(module, "Call",
                   "One two-way call: transmit takes the echo and the noise out, receive the noise.\n"
                   "A context manager; two threads may transmit and receive at the same time.")
      .def(py::init<const py::object &, int, std::optional<int>, uint32_t>(), py::arg("parameters"), py::kw_only(),
           py::arg("frame_ms") = 20, py::arg("block") = py::none(), py::arg("noise_seed") = 0,
           "parameters: a preset's name, a path, or 500 words; they give the rate. frame_ms: 16 or 20. block: samples "
           "of which every array is a multiple (None: whole frames; 0: any length). noise_seed: of the comfort noise.")
      .def(
          "transmit", &Call::transmit, py::arg("mic"), py::arg("ref"),
          "What to send for what the microphone has picked up and what was played: arrays of the same length and type, "
          "int16 or float32 (1.0 is 32768), and so is the result.")
      .def("receive", &Call::receive, py::arg("far"), "What to play for what has come from the far end.")
      .def("trace", &Call::trace, "What the last frames did, as the columns of `qvvoice process --trace`.")
      .def("replace_parameters", &Call::replace_parameters, py::arg("parameters"),
           "New parameters, taken up between two frames; what was learnt stays. Returns what else happens: a set of "
           "'transmit_pauses', 'receive_pauses', 'echo_relearned'.")
      .def("reset", &Call::reset, "Forgets what waits in the buffers: the next sample begins a frame.")
      .def("close", &Call::close, "Gives back what the call holds; its other methods raise ValueError from then on.")
      .def_property_readonly("closed", &Call::closed)
      .def_property_readonly("rate", &Call::rate, "Hz.")
      .def_property_readonly("frame_length", &Call::frame_length, "Samples.")
      .def_property_readonly("latency", &Call::latency,
                             "Samples from input to output: (transmit, receive), with those that a block adds.")
      .def("__enter__", [](py::object self) { return self; })
      .def("__exit__", [](Call &call, const py::args &) { call.close(); });
}

} // namespace qv::python
