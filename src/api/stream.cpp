// Blocks of any length over the frames of a call.

#include "qvvoice/stream.h"

#include <algorithm>
#include <new>
#include <numeric>

#include "dsp/sample.h"
#include "qvvoice/dsp/filter_bank.h"
#include "qvvoice/dsp/memory.h"

namespace {

constexpr float full_scale = 32768.f;

int16_t to_frame(int16_t x) { return x; }
int16_t to_frame(float x) { return qv::to_sample(x * full_scale); }
void from_frame(int16_t x, int16_t &out) { out = x; }
void from_frame(int16_t x, float &out) { out = float(x) / full_scale; }

/// One direction. While a frame fills, the one before it is given back, `grain` samples ahead: the frame's delay is
/// then N - grain, and no block ever waits for samples.
struct Direction {
  int32_t filled = 0; ///< samples of the frame at hand, a multiple of the grain
  int16_t in[2][QV_MAX_FRAME] = {};
  int16_t out[QV_MAX_FRAME] = {};

  /// @param inputs  one or two signals of `count` samples  @param run  processes `in` into `out`
  template <size_t signals, class Sample, class Run>
  void pass(const Sample *const (&inputs)[signals], Sample *output, int32_t count, int32_t n, int32_t grain, Run run) {
    for (int32_t done = 0; done < count;) {
      const int32_t width = std::min(count - done, n - filled);
      for (size_t s = 0; s < signals; ++s)
        for (int32_t i = 0; i < width; ++i)
          in[s][filled + i] = to_frame(inputs[s][done + i]);
      const int32_t held = std::min(width, n - grain - filled); // of the former frame
      for (int32_t i = 0; i < held; ++i)
        from_frame(out[filled + grain + i], output[done + i]);
      if (filled + width == n)
        run();
      for (int32_t i = held; i < width; ++i)
        from_frame(out[i - held], output[done + i]);
      filled = (filled + width) % n;
      done += width;
    }
  }
};

} // namespace

struct qv_stream {
  qv_call *call;
  int32_t frame_length;
  int32_t grain; ///< greatest common divisor of frame and block
  Direction tx, rx;

  bool takes(uint32_t count) const { return count <= INT32_MAX && int32_t(count) % grain == 0; }
};

namespace {

template <class Sample>
int32_t transmit(qv_stream *stream, const Sample *mic, const Sample *ref, Sample *out, uint32_t count) {
  if (!stream || !mic || !ref || !out || !stream->takes(count))
    return QV_VOICE_BAD_ARGUMENT;
  Direction &tx = stream->tx;
  tx.pass<2, Sample>({mic, ref}, out, int32_t(count), stream->frame_length, stream->grain,
                     [&] { qv_call_transmit(stream->call, tx.in[0], tx.in[1], tx.out); });
  return QV_VOICE_OK;
}

template <class Sample> int32_t receive(qv_stream *stream, const Sample *in, Sample *out, uint32_t count) {
  if (!stream || !in || !out || !stream->takes(count))
    return QV_VOICE_BAD_ARGUMENT;
  Direction &rx = stream->rx;
  rx.pass<1, Sample>({in}, out, int32_t(count), stream->frame_length, stream->grain,
                     [&] { qv_call_receive(stream->call, rx.in[0], rx.out); });
  return QV_VOICE_OK;
}

} // namespace

int32_t qv_stream_create(qv_call *call, int32_t block, qv_stream **stream) {
  if (stream)
    *stream = nullptr;
  if (!call || !stream || block < 0)
    return QV_VOICE_BAD_ARGUMENT;
  void *memory = VOICE_Alloc(sizeof(qv_stream));
  if (!memory)
    return QV_VOICE_OUT_OF_MEMORY;
  const int32_t n = qv_call_frame_length(call);
  *stream = new (memory) qv_stream{call, n, block == 0 ? 1 : std::gcd(n, block), {}, {}};
  return QV_VOICE_OK;
}

void qv_stream_destroy(qv_stream *stream) { VOICE_Free(stream); }

int32_t qv_stream_transmit(qv_stream *stream, const int16_t *mic, const int16_t *ref, int16_t *out, uint32_t count) {
  return transmit(stream, mic, ref, out, count);
}

int32_t qv_stream_transmit_float(qv_stream *stream, const float *mic, const float *ref, float *out, uint32_t count) {
  return transmit(stream, mic, ref, out, count);
}

int32_t qv_stream_receive(qv_stream *stream, const int16_t *in, int16_t *out, uint32_t count) {
  return receive(stream, in, out, count);
}

int32_t qv_stream_receive_float(qv_stream *stream, const float *in, float *out, uint32_t count) {
  return receive(stream, in, out, count);
}

int32_t qv_stream_latency(const qv_stream *stream, int32_t *tx, int32_t *rx) {
  if (!stream)
    return QV_VOICE_BAD_ARGUMENT;
  const int32_t status = qv_call_latency(stream->call, tx, rx);
  if (status != QV_VOICE_OK)
    return status;
  *tx += stream->frame_length - stream->grain;
  *rx += stream->frame_length - stream->grain;
  return QV_VOICE_OK;
}

int32_t qv_stream_reset(qv_stream *stream) {
  if (!stream)
    return QV_VOICE_BAD_ARGUMENT;
  stream->tx = {};
  stream->rx = {};
  return QV_VOICE_OK;
}
