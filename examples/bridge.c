/* Two calls in one process, each with a thread that receives and a thread that transmits.
 *
 *   cc bridge.c $(pkg-config --cflags --libs qvvoice) -pthread -o bridge && ./bridge
 */
#include <qvvoice/call.h>

#include <pthread.h>
#include <stdio.h>

enum { RATE = 16000, FRAME = 320, FRAMES = 200, CALLS = 2 };

/* Noise reducers of both paths and the canceller on; every other word 0. */
static const int16_t words[QV_VOICE_PARA_WORDS] = {
    [0] = RATE, [9] = 1111, [10] = 1, [100] = 1, [101] = 31130, [110] = 1, [111] = 31130,
};

static void sound(int16_t *frame, uint32_t *random) {
  for (int i = 0; i < FRAME; ++i) {
    *random = *random * 1664525u + 1013904223u;
    frame[i] = (int16_t)((int32_t)(*random >> 18) - 8192);
  }
}

static void *receive(void *call) {
  int16_t in[FRAME], out[FRAME];
  uint32_t random = 1;
  for (int k = 0; k < FRAMES; ++k) {
    sound(in, &random);
    qv_call_receive(call, in, out);
  }
  return NULL;
}

static void *transmit(void *call) {
  int16_t mic[FRAME], ref[FRAME], out[FRAME];
  uint32_t random = 1;
  for (int k = 0; k < FRAMES; ++k) {
    sound(ref, &random);
    for (int i = 0; i < FRAME; ++i)
      mic[i] = ref[i] / 2;
    qv_call_transmit(call, mic, ref, out);
  }
  return NULL;
}

int main(void) {
  qv_call *calls[CALLS];
  pthread_t threads[2 * CALLS];
  for (int c = 0; c < CALLS; ++c) {
    const qv_call_config config = {sizeof config, RATE, FRAME, (uint32_t)c};
    const int32_t status = qv_call_create(&config, words, &calls[c]);
    if (status != QV_VOICE_OK) {
      fprintf(stderr, "qvvoice: %s\n", QV_VOICE_StatusText(status));
      return 1;
    }
    pthread_create(&threads[2 * c], NULL, receive, calls[c]);
    pthread_create(&threads[2 * c + 1], NULL, transmit, calls[c]);
  }
  for (int t = 0; t < 2 * CALLS; ++t)
    pthread_join(threads[t], NULL);
  for (int c = 0; c < CALLS; ++c) {
    QvVoiceTrace trace = {.size = sizeof trace};
    qv_call_trace(calls[c], &trace);
    printf("call %d: %u frames sent, echo %.0f dB down in the last one\n", c, trace.tx_frame, trace.erle_db);
    qv_call_destroy(calls[c]);
  }
  return 0;
}
