/* One call through QV Voice: what comes from the far end is played, the microphone hears its echo, and the echo is
 * taken out of what is sent back.
 *
 *   cc minimal.c $(pkg-config --cflags --libs qvvoice) -o minimal && ./minimal [parameter file for 16000 Hz]
 */
#include <qvvoice/qvvoice.h>

#include <stdio.h>
#include <stdlib.h>

enum { RATE = 16000, FRAME = 320, SECONDS = 4, ECHO_DELAY = 100 };

/* A parameter image in memory. Words that are not named are 0, and their stages off. */
static const int16_t image[QV_VOICE_PARA_WORDS] = {
    [0] = RATE,  [9] = 1111,    /* the rate, and the mark of an image that is to be read */
    [10] = 1,                   /* echo canceller on, the echo begins within its filter */
    [100] = 1,   [101] = 31130, /* noise reducer of the transmit path on, its noise level times 0.95 */
    [110] = 0,                  /* noise reducer of the receive path off */
};

static double energy(const int16_t *frame) {
  double sum = 0;
  for (int i = 0; i < FRAME; ++i)
    sum += (double)frame[i] * frame[i];
  return sum;
}

int main(int argc, char **argv) {
  const int32_t status = argc > 1 ? QV_VOICE_Init(argv[1], RATE, FRAME) : QV_VOICE_InitImage(image, RATE, FRAME);
  if (status != QV_VOICE_OK) {
    fprintf(stderr, "qvvoice: %s\n", QV_VOICE_StatusText(status));
    return 1;
  }

  int16_t room[ECHO_DELAY + FRAME] = {0}; /* what the loudspeaker has played: a delayed copy reaches the microphone */
  double heard = 0, sent = 0;
  for (int frame = 0; frame < SECONDS * RATE / FRAME; ++frame) {
    int16_t far_end[FRAME], played[FRAME], mic[FRAME], out[FRAME];
    for (int i = 0; i < FRAME; ++i)
      far_end[i] = (int16_t)(rand() % 8000 - 4000);

    QV_VOICE_ProcessRx(far_end, played, FRAME);
    for (int i = 0; i < FRAME; ++i)
      room[ECHO_DELAY + i] = played[i];
    for (int i = 0; i < FRAME; ++i)
      mic[i] = room[i] / 2;
    for (int i = 0; i < ECHO_DELAY; ++i)
      room[i] = room[FRAME + i];
    QV_VOICE_ProcessTx(mic, played, out, FRAME);

    heard += energy(mic);
    sent += energy(out);
  }

  printf("QV Voice %s: of the echo's energy, 1/%.0f is sent back\n", QV_VOICE_Version(), heard / (sent + 1));
  return QV_VOICE_Destory();
}
