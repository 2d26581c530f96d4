/// @file qvvoice.h  What an application includes: one call per frame and direction.
///
/// One transmit and one receive stream for the whole process; for more, and for parameters replaced while a call runs,
/// see call.h; for blocks of other lengths than a frame, stream.h.
///
/// Threads. One thread may transmit while another receives, and any number read the trace; no frame blocks, prints,
/// locks or touches the heap, with one exception: comfort noise is drawn from the C library's rand(), whose lock any
/// other thread of the process may hold (the calls of call.h have a generator of their own). Forbidden is
/// initialisation or tear-down while any other function runs, and two calls of the same direction at the same time.
///
/// Frames are mono signed 16-bit PCM of `frameLen` samples: 128 or 160 at 8000 Hz, 256 or 320 at
/// 16000 Hz (16 or 20 ms).
#ifndef QVVOICE_QVVOICE_H
#define QVVOICE_QVVOICE_H

#include <stdint.h>

#include "qvvoice/export.h"

QV_BEGIN_DECLS

#define QV_VOICE_PARA_WORDS 500 ///< signed 16-bit words of a parameter file that are read

enum QvVoiceStatus {
  QV_VOICE_OK = 0,            ///< done
  QV_VOICE_NO_FILE = 1,       ///< the parameter file cannot be opened
  QV_VOICE_REFUSED = 2,       ///< rate or frame length not served, or parameters that cannot be taken
  QV_VOICE_SHORT_FILE = 3,    ///< the parameter file holds fewer than 500 words
  QV_VOICE_NOT_READY = 4,     ///< frame call before initialisation or after tear-down
  QV_VOICE_BAD_ARGUMENT = 5,  ///< a null pointer, or a trace record without its size
  QV_VOICE_OUT_OF_MEMORY = 6, ///< initialisation ran out of memory; everything taken is returned
};

/// Reads the parameter file and initialises both paths. A second initialisation first releases what
/// the first one took, and so does one that is refused: a failed initialisation holds nothing.
/// @param path        NUL-terminated path of a file of at least 500 little-endian 16-bit words
/// @param sampleRate  8000 or 16000, in Hz
/// @param frameLen    128 or 160 at 8000 Hz, 256 or 320 at 16000 Hz, in samples
/// @return a QvVoiceStatus. A failure is kept: frame calls and tear-down return it until an
///         initialisation succeeds.
/// @note A file whose word 9 is not 1111 converts nothing and `sampleRate` and `frameLen` are then not looked at: the
///       values of the last converted file hold, with its rate and frame length, and frames have that length, whatever
///       was asked for. If there was none, frame calls return 0 and leave their buffers alone.
QV_API int32_t QV_VOICE_Init(const char *path, int32_t sampleRate, int32_t frameLen);

/// The same initialisation from 500 words in memory (firmware that keeps them in flash).
/// @param image  [500] words in the host's byte order, not kept
/// @return as above; QV_VOICE_REFUSED also for an image whose word 9 is not 1111 when the layout asked for is not
/// served,
///         or is another one than that of the last converted values
QV_API int32_t QV_VOICE_InitImage(const int16_t *image, int32_t sampleRate, int32_t frameLen);

/// One transmit frame: noise reduction, echo cancellation, AGC, equaliser, comfort noise.
/// @param mic    [frameLen] near-end microphone, read only
/// @param ref    [frameLen] what was just handed to the loudspeaker, read only
/// @param out    [frameLen] the frame to send, not `ref`. It should be `mic` only while the echo canceller is off: this
///               function does not refuse it, but the canceller reads `mic` after the noise reducer has written `out`,
///               and then works on its output (`qv_call_transmit` refuses it)
/// @param count  not read: the frame length of the initialisation holds
/// @return 0, the stored failure, QV_VOICE_NOT_READY or QV_VOICE_BAD_ARGUMENT (buffers untouched)
QV_API int32_t QV_VOICE_ProcessTx(const int16_t *mic, const int16_t *ref, int16_t *out, uint32_t count);

/// One receive frame: noise reduction, AGC, equaliser.
/// @param in   [frameLen] frame from the far end, read only
/// @param out  [frameLen] the frame to play; may be `in`
QV_API int32_t QV_VOICE_ProcessRx(const int16_t *in, int16_t *out, uint32_t count);

/// Receive, then transmit with this frame's receive output as the echo reference. Right when the
/// loudspeaker plays `rxOut` unchanged.
/// @return the status of the transmit call; QV_VOICE_BAD_ARGUMENT for any null buffer, both paths untouched
QV_API int32_t VOICE_Process(const int16_t *rxIn, int16_t *rxOut, const int16_t *txMic, int16_t *txOut, uint32_t count);

/// Releases everything that the initialisation took; a second call has no effect.
/// @return the stored status
QV_API int32_t QV_VOICE_Destory(void);

/// Returns its argument; kept for applications that link to it.
QV_API void *VOICE_GetPara(void *value);

/// "major.minor.patch" of the library at hand, a static string.
QV_API const char *QV_VOICE_Version(void);

/// One English sentence for a status, a static string; "unknown status" for any other number.
QV_API const char *QV_VOICE_StatusText(int32_t status);

/// Delay of each path in samples as configured, input to output of the frame calls: what a click
/// shows. The frame that the application collects before a call comes on top.
/// @param tx,rx  written; with `mic` and `out` of the transmit call being different buffers
QV_API int32_t QV_VOICE_GetLatency(int32_t *tx, int32_t *rx);

/// One path's noise reducer in its last frame.
typedef struct QvVoiceNoiseTrace {
  float noise_db;  ///< mean noise power of the bands, 10 log10, 16-bit scale; -100 when none
  float mean_gain; ///< mean band gain, linear, 0 and up; the log-spectral estimator lifts bands above 1; 1 while off
  float speech_presence; ///< mean probability of speech over the bands, 0..1; 1 while off
} QvVoiceNoiseTrace;

/// What the library did in its last frames. The application sets `size` to sizeof(QvVoiceTrace)
/// before the call; a later library with more fields then fills those that the application knows.
typedef struct QvVoiceTrace {
  uint32_t size;     ///< bytes of the caller's record
  uint32_t tx_frame; ///< transmit frames since initialisation
  uint32_t rx_frame; ///< receive frames since initialisation

  int32_t echo_delay;           ///< delay of the aligned reference, samples, 0..4096
  int32_t delay_changed;        ///< 1 when the delay estimate moved in this frame
  int32_t talk_state;           ///< 0 far end silent, 1 far-end single talk, 2 double talk or undecided
  float leakage;                ///< echo leakage estimate of the adaptive filter, 0..1
  int32_t filter_adapted;       ///< 1 once the adaptive filter is trained
  int32_t foreground_refreshed; ///< 1 when the output filter took over the adapting one in this frame
  int32_t background_reset;     ///< 1 when the adapting filter was thrown back in this frame
  int32_t filter_reset;         ///< 1 when the divergence watchdog reset the filter in this frame
  float linear_erle_db;         ///< microphone over linear-filter output energy of this frame, dB
  float erle_db;                ///< the same over the suppressor's output (noise reduction included), dB
  float suppressor_gain;        ///< mean gain over the bins before noise reduction; 1 when passing
  int32_t muted;                ///< 1 when the suppressor muted this frame

  QvVoiceNoiseTrace tx_noise;
  QvVoiceNoiseTrace rx_noise;
  float tx_agc_gain;     ///< linear gain at the end of the frame; 1 while off
  float rx_agc_gain;     ///< linear gain at the end of the frame; 1 while off
  int32_t comfort_noise; ///< 1 when comfort noise was added to this frame

  /// 1 while the state-space echo canceller runs; else the fields behind it are 0. Of those above, `echo_delay` is then
  /// where the echo is, `filter_adapted`, the level ratios, `suppressor_gain`, `muted` and `talk_state` mean what they
  /// say, and the others of the echo canceller are 0.
  int32_t state_space;
  int32_t filter_delay;       ///< samples of bulk delay in front of its filter
  int32_t filter_length;      ///< samples of its filter behind that: there an echo is in reach
  int32_t path_changed;       ///< 1 when it found in this frame that the echo path has changed
  int32_t single_talk;        ///< 1 while it hears nobody but the far end, and sends the room's background
  float drift_ppm;            ///< by which it finds the microphone's clock faster than the loudspeaker's
  float explained;            ///< share of the microphone's power that its filter takes off, lately, 0..1
  float expected_residual_db; ///< echo that it expects the filter to leave, 10 log10, 16-bit scale; -100 when none
} QvVoiceTrace;

/// Fills the trace of the last frames.
/// @return 0, QV_VOICE_NOT_READY, or QV_VOICE_BAD_ARGUMENT for a null record or a `size` below 12
QV_API int32_t QV_VOICE_GetTrace(QvVoiceTrace *trace);

QV_END_DECLS

#endif
