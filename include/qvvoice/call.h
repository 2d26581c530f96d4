/// @file call.h  Any number of calls in one process.
///
/// A call is what `qv_call_create` returns: transforms, filter bank, stages, comfort noise and counters of its own.
/// Two calls share nothing, so each may run on threads of its own.
///
/// Threads. In one call, one thread may transmit while another receives, a third hands over new parameters, and any
/// number read trace and latency; none of them waits for another, takes a lock or, but for create and destroy, touches
/// the heap. Forbidden is what would pull a frame's memory away from under it:
///   - two transmit calls, two receive calls or two replacements at the same time in one call;
///   - `qv_call_destroy` while any other function of the same call runs.
///
/// Samples are mono signed 16-bit PCM in frames of `frame_length`: 128 or 160 at 8000 Hz, 256 or 320 at 16000 Hz (16 or
/// 20 ms). For blocks of any other length, or float samples, see stream.h. Functions return a QvVoiceStatus; on any but
/// QV_VOICE_OK no samples or parameters have been taken or written.
#ifndef QVVOICE_CALL_H
#define QVVOICE_CALL_H

#include <stdint.h>

#include "qvvoice/export.h"
#include "qvvoice/qvvoice.h"

QV_BEGIN_DECLS

typedef struct qv_call qv_call;

/// Set `size` to sizeof(qv_call_config): a library that knows more fields takes those behind it as 0.
typedef struct qv_call_config {
  uint32_t size;        ///< bytes of the caller's record, at least 12
  int32_t sample_rate;  ///< 8000 or 16000, in Hz
  int32_t frame_length; ///< samples
  uint32_t noise_seed;  ///< of the comfort noise, any value. The same seed gives the same bytes; calls that are mixed
                        ///< want different ones, or their noises add in phase
} qv_call_config;

/// Makes a call from the 500 words of a parameter file in memory.
/// @param words  [500] in the host's byte order, not kept; word 0 is the rate, word 9 is 1111
/// @param call   written: the call, or null on failure
/// @return QV_VOICE_REFUSED for a layout that is not served, words for the other rate or without the mark;
///         QV_VOICE_BAD_ARGUMENT for a null pointer or a `size` below 12; QV_VOICE_OUT_OF_MEMORY
QV_API int32_t qv_call_create(const qv_call_config *config, const int16_t *words, qv_call **call);

/// The same from a parameter file of at least 500 little-endian words.
/// @return as above; QV_VOICE_NO_FILE, QV_VOICE_SHORT_FILE
QV_API int32_t qv_call_create_from_file(const qv_call_config *config, const char *path, qv_call **call);

/// Returns all that the call holds; null is ignored.
QV_API void qv_call_destroy(qv_call *call);

/// One transmit frame: noise reduction, echo cancellation, AGC, equaliser, comfort noise.
/// @param mic  [frame_length] microphone, read only
/// @param ref  [frame_length] what was just handed to the loudspeaker, read only
/// @param out  [frame_length] the frame to send. While the echo canceller is on it overlaps neither `mic` nor `ref`:
///             QV_VOICE_BAD_ARGUMENT; otherwise it may be `mic`
QV_API int32_t qv_call_transmit(qv_call *call, const int16_t *mic, const int16_t *ref, int16_t *out);

/// One receive frame: noise reduction, AGC, equaliser.
/// @param in   [frame_length] frame from the far end, read only
/// @param out  [frame_length] the frame to play; may be `in`
QV_API int32_t qv_call_receive(qv_call *call, const int16_t *in, int16_t *out);

/// What a replacement does beyond retuning.
enum QvCallEffects {
  QV_CALL_TRANSMIT_PAUSES = 1, ///< the transmit output fades out and in again, with three silent frames between
  QV_CALL_RECEIVE_PAUSES = 2,  ///< the receive output does
  QV_CALL_ECHO_RELEARNED = 4,  ///< the echo canceller's filter has to find the echo again
};

/// New parameters for a running call, from any thread. Each direction takes them up between two of its frames; of
/// several replacements the last one counts. No click, no heap, and what was learnt stays: filter, tracked delay, noise
/// levels, gains. A new equaliser is faded in over three frames. What cannot go on is said in `effects`: switching the
/// canceller, or a noise reducer whose output is heard without it, pauses that direction; another fixed delay, or
/// tracking switched, makes the filter learn anew.
/// @param words    [500] as for create, of the same rate
/// @param effects  null, or written: a sum of QvCallEffects
/// @return QV_VOICE_REFUSED as for create, and for words that switch the state-space echo canceller on or off
///         (echo_control.enable of docs/parameters.md): a call takes its memory when it is made, or never
QV_API int32_t qv_call_replace_parameters(qv_call *call, const int16_t *words, uint32_t *effects);

/// Delay of each path in samples with the parameters last given, input to output of the frame calls.
QV_API int32_t qv_call_latency(const qv_call *call, int32_t *tx, int32_t *rx);

/// Samples of a frame; 0 for null.
QV_API int32_t qv_call_frame_length(const qv_call *call);

/// The trace of the last frames: a copy that each frame publishes as a whole when it ends.
/// @param trace  with its `size` set, as for QV_VOICE_GetTrace
QV_API int32_t qv_call_trace(const qv_call *call, QvVoiceTrace *trace);

QV_END_DECLS

#endif
