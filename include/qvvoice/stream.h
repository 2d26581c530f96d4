/// @file stream.h  A call for blocks of any length, 16-bit or float: exact frames inside.
///
/// Sound systems hand over 10 ms, 128, 441 or 1024 samples, not the frames of a call. A stream cuts them into frames
/// and gives back as many samples as it got, `frame length - greatest common divisor of frame and block length` samples
/// later. Nothing is allocated after creation; each direction is a buffer of its own, so the two may run on two
/// threads, as those of the call.
///
/// Float samples: 1.0 is 32768. They are rounded to 16 bits on the way in, those beyond full scale clip, and NaN is 0.
#ifndef QVVOICE_STREAM_H
#define QVVOICE_STREAM_H

#include "qvvoice/call.h"

QV_BEGIN_DECLS

typedef struct qv_stream qv_stream;

/// @param call    runs the frames; stays the caller's, outlives the stream, and is used by nobody else meanwhile
/// @param block   samples per block where every block is a multiple of it; 0 where they are not: any length then
/// @param stream  written: the stream, or null on failure
/// @return QV_VOICE_BAD_ARGUMENT for a null pointer or a negative block, QV_VOICE_OUT_OF_MEMORY
QV_API int32_t qv_stream_create(qv_call *call, int32_t block, qv_stream **stream);

/// Returns what the stream holds, not the call; null is ignored.
QV_API void qv_stream_destroy(qv_stream *stream);

/// @param mic,ref  [count] microphone and what is played
/// @param out      [count] written; may be `mic` or `ref`
/// @param count    any number, 0 included; a multiple of the frame's and the block's greatest common divisor
/// @return QV_VOICE_BAD_ARGUMENT for a null pointer or another count: nothing has been read or written
QV_API int32_t qv_stream_transmit(qv_stream *stream, const int16_t *mic, const int16_t *ref, int16_t *out,
                                  uint32_t count);
QV_API int32_t qv_stream_transmit_float(qv_stream *stream, const float *mic, const float *ref, float *out,
                                        uint32_t count);

/// @param in   [count] from the far end
/// @param out  [count] to be played; may be `in`
QV_API int32_t qv_stream_receive(qv_stream *stream, const int16_t *in, int16_t *out, uint32_t count);
QV_API int32_t qv_stream_receive_float(qv_stream *stream, const float *in, float *out, uint32_t count);

/// Delay of each path in samples, input to output of the functions above: the call's and the stream's.
QV_API int32_t qv_stream_latency(const qv_stream *stream, int32_t *tx, int32_t *rx);

/// Forgets what waits in the buffers: after a gap or a seek the next sample begins a frame.
/// Not while transmit or receive run.
QV_API int32_t qv_stream_reset(qv_stream *stream);

QV_END_DECLS

#endif
