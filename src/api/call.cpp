// Calls that the application makes, each with everything of its own.

#include "qvvoice/call.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <new>

#include "api/image_file.h"
#include "api/trace_record.h"
#include "call/call.h"
#include "config/convert.h"
#include "qvvoice/dsp/memory.h"

struct qv_call {
  qv::Parameters parameters{}; ///< last given
  VoiceProcess state{};
  FftState tx_fft{};
  FilterBand band{};
  qv::FilterBank bank{band};
  qv::Call call;

  explicit qv_call(uint32_t seed) : call(state, {tx_fft, bank}, {seed}) {}
};

namespace {

using namespace qv::config;

constexpr uint32_t least_config = offsetof(qv_call_config, noise_seed);

/// The application's record as far as it goes, zeros behind it.
qv_call_config whole_config(const qv_call_config &given) {
  qv_call_config whole{};
  std::memcpy(&whole, &given, std::min<size_t>(given.size, sizeof whole));
  return whole;
}

/// The generator's states are 1 .. 2^31 - 2.
uint32_t generator_seed(uint32_t seed) { return seed % 2147483646u + 1; }

bool convert_marked(const int16_t *words, int32_t rate, int32_t frame_len, qv::Parameters &parameters) {
  return words[magic_word] == magic && convert(words, rate, frame_len, parameters);
}

bool start(qv_call &c) {
  const int32_t rate = c.parameters.block.swSampleRate, n = c.parameters.block.swFrameLen;
  const bool tracks_delay = c.parameters.echo_control.enable != 1; // by transforms of N points
  return qv::take_transforms(c.tx_fft, {2 * n}) && (!tracks_delay || qv::take_transforms(c.tx_fft, {n})) &&
         qv::take_bank(c.bank, float(rate), qv::band_count(rate), n) && c.call.init(c.parameters, true);
}

bool overlap(const int16_t *a, const int16_t *b, int32_t n) {
  const std::less<> before;
  return before(a, b + n) && before(b, a + n);
}

} // namespace

int32_t qv_call_create(const qv_call_config *config, const int16_t *words, qv_call **call) {
  if (call)
    *call = nullptr;
  if (!config || config->size < least_config || !words || !call)
    return QV_VOICE_BAD_ARGUMENT;
  const qv_call_config whole = whole_config(*config);
  qv::Parameters parameters{};
  if (!convert_marked(words, whole.sample_rate, whole.frame_length, parameters))
    return QV_VOICE_REFUSED;
  void *memory = VOICE_Alloc(sizeof(qv_call));
  if (!memory)
    return QV_VOICE_OUT_OF_MEMORY;
  auto *made = new (memory) qv_call(generator_seed(whole.noise_seed));
  made->parameters = parameters;
  if (!start(*made)) {
    qv_call_destroy(made);
    return QV_VOICE_OUT_OF_MEMORY;
  }
  *call = made;
  return QV_VOICE_OK;
}

int32_t qv_call_create_from_file(const qv_call_config *config, const char *path, qv_call **call) {
  if (call)
    *call = nullptr;
  if (!config || !path || !call)
    return QV_VOICE_BAD_ARGUMENT;
  Image image;
  const QvVoiceStatus status = qv::api::read_image(path, image);
  return status != QV_VOICE_OK ? status : qv_call_create(config, image.data(), call);
}

void qv_call_destroy(qv_call *call) {
  if (!call)
    return;
  call->call.destroy();
  qv::give_back_transforms(call->tx_fft);
  qv::give_back_bank(call->bank);
  VOICE_Free(call);
}

int32_t qv_call_transmit(qv_call *call, const int16_t *mic, const int16_t *ref, int16_t *out) {
  if (!call || !mic || !ref || !out)
    return QV_VOICE_BAD_ARGUMENT;
  const int32_t n = call->call.frame_len();
  if (call->call.cancels_echo() && (overlap(mic, out, n) || overlap(ref, out, n)))
    return QV_VOICE_BAD_ARGUMENT;
  call->call.transmit(mic, ref, out);
  return QV_VOICE_OK;
}

int32_t qv_call_receive(qv_call *call, const int16_t *in, int16_t *out) {
  if (!call || !in || !out)
    return QV_VOICE_BAD_ARGUMENT;
  call->call.receive(in, out);
  return QV_VOICE_OK;
}

int32_t qv_call_replace_parameters(qv_call *call, const int16_t *words, uint32_t *effects) {
  if (!call || !words)
    return QV_VOICE_BAD_ARGUMENT;
  const VoicePara &held = call->parameters.block;
  qv::Parameters parameters{};
  if (!convert_marked(words, held.swSampleRate, held.swFrameLen, parameters) ||
      !qv::replaceable(call->parameters, parameters))
    return QV_VOICE_REFUSED;
  if (effects)
    *effects = qv::effects_of_change(call->parameters, parameters);
  call->parameters = parameters;
  call->call.replace(parameters);
  return QV_VOICE_OK;
}

int32_t qv_call_latency(const qv_call *call, int32_t *tx, int32_t *rx) {
  if (!call || !tx || !rx)
    return QV_VOICE_BAD_ARGUMENT;
  const qv::Latency latency = call->call.latency();
  *tx = latency.tx;
  *rx = latency.rx;
  return QV_VOICE_OK;
}

int32_t qv_call_frame_length(const qv_call *call) { return call ? call->call.frame_len() : 0; }

int32_t qv_call_trace(const qv_call *call, QvVoiceTrace *trace) {
  if (!call || !qv::api::has_size(trace))
    return QV_VOICE_BAD_ARGUMENT;
  qv::api::fill(call->call.trace(), *trace);
  return QV_VOICE_OK;
}
