'use strict';
// One signal is heard at a time, from any place; changing the signal keeps the place.

class Player {
  constructor(signals) {
    this.tracks = new Map(signals.map(signal => [signal.id, new Audio(URL.createObjectURL(
      new Blob([bytesOf(signal.audio)], {type: 'audio/flac'})))]));
    this.chosen = signals[0].id;
    this.boost = 0; // dB
  }

  get track() { return this.tracks.get(this.chosen); }
  get time() { return this.track.currentTime; }
  get playing() { return !this.track.paused; }

  seek(time) { this.track.currentTime = Math.min(Math.max(time, 0), data.sound_seconds); }

  /// While it plays, to be called again and again. @param range  [begin, end] s to be repeated, or null
  repeat(range) {
    if (range && this.playing && this.time > range[1]) this.seek(range[0]);
  }

  async play() {
    this.amplify();
    try {
      await this.track.play();
    } catch (error) {
      if (error.name !== 'AbortError') throw error; // a pause came before the first sound
    }
  }

  pause() { this.track.pause(); }

  async choose(id) {
    const {time, playing} = this;
    this.pause();
    this.chosen = id;
    this.seek(time);
    if (playing) await this.play();
  }

  /// Louder than the recording only by way of a gain node, which needs a context that a click has started.
  amplify() {
    if (this.boost > 0 && !this.gain) {
      const context = new AudioContext();
      this.gain = context.createGain();
      this.gain.connect(context.destination);
      for (const track of this.tracks.values()) context.createMediaElementSource(track).connect(this.gain);
    }
    if (this.gain) this.gain.gain.value = 10 ** (this.boost / 20);
  }
}
