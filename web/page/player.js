'use strict';
// Signals of one length, of which one is heard. All of them run together, so that changing from one to another, or to a
// new rendering of the same, is a cross-fade at the same place: neither gap nor click.

const fadeTime = 0.003; // s, time constant of a cross-fade; its two sides add up to 1 all along
const startTime = 0.02; // s ahead of what is heard: sources that begin together are told so early
const farthest = 20;    // dB by which equal loudness lowers the loudest signal at most

const fromDb = db => 10 ** (db / 20);

class Player extends EventTarget {
  chosen = 'a';
  boost = 0;       // dB
  equal = true;    // all signals at the loudness of the quietest
  loudness = {};   // dB by signal
  buffers = new Map();
  #sources = new Map();
  #begun = {when: 0, place: 0};
  #range = null;

  /// A context of the signals' own rate, so that their samples are heard as they are; what resamples them for the
  /// loudspeaker then is the browser's best, not the straight line between two samples that its sources draw.
  #openContext() {
    const [{sampleRate}] = this.buffers.values();
    if (this.context?.sampleRate === sampleRate) return;
    this.context?.close();
    this.use(new AudioContext({sampleRate, latencyHint: 'interactive'}));
  }

  /// @param context  whose clock it plays by
  use(context) {
    this.context = context;
    this.volume = new GainNode(context);
    this.volume.connect(context.destination);
  }

  /// The next sample's time at least `startTime` from now: between two samples a source would draw the line.
  #soon() {
    const {currentTime, sampleRate} = this.context;
    return Math.ceil((currentTime + startTime) * sampleRate) / sampleRate;
  }
  #wholeSample(place) { return Math.round(place * this.context.sampleRate) / this.context.sampleRate; }

  get playing() { return this.#sources.size > 0; }
  get seconds() { return Math.max(0, ...[...this.buffers.values()].map(buffer => buffer.duration)); }
  get time() {
    return this.playing ? this.#placeAt(this.context.currentTime - (this.context.outputLatency || 0)) : this.#begun.place;
  }

  /// Place in the call, s, at a time of the context.
  #placeAt(now) {
    const place = this.#begun.place + Math.max(now - this.#begun.when, 0);
    if (!this.#range || place < this.#range[1]) return Math.min(place, this.seconds);
    const [begin, end] = this.#range;
    return begin + (place - begin) % (end - begin);
  }

  /// Gain by which a signal is heard.
  gainOf(id) {
    const known = Object.values(this.loudness).filter(Number.isFinite);
    if (!this.equal || !Number.isFinite(this.loudness[id])) return 1;
    const wanted = Math.max(Math.min(...known), Math.max(...known) - farthest);
    return fromDb(Math.min(wanted - this.loudness[id], 0));
  }

  /// New samples of a signal, heard at once at the same place; null takes the signal away.
  async put(id, samples, rate) {
    if (!samples) {
      this.buffers.delete(id);
      this.#fadeOut(id);
      return;
    }
    const buffer = new AudioBuffer({length: Math.max(samples.length, 1), sampleRate: rate});
    const floats = buffer.getChannelData(0);
    await inSlices(samples.length, (begin, end) => {
      for (let i = begin; i < end; ++i) floats[i] = samples[i] / 32768;
    });
    this.buffers.set(id, buffer);
    if (!this.playing) return;
    const when = this.#soon();
    this.#fadeOut(id, when);
    this.#fadeIn(id, when, this.#placeAt(when));
  }

  #fadeIn(id, when, place) {
    const [loopStart, loopEnd] = this.#range ?? [0, 0];
    const source = new AudioBufferSourceNode(this.context, {buffer: this.buffers.get(id), loop: !!this.#range, loopStart, loopEnd});
    const gain = new GainNode(this.context, {gain: 0});
    source.connect(gain).connect(this.volume);
    source.start(when, this.#wholeSample(place));
    source.onended = () => { if (this.#sources.get(id)?.source === source) this.#end(); };
    this.#sources.set(id, {source, gain});
    if (id === this.chosen) gain.gain.setTargetAtTime(this.gainOf(id), when, fadeTime);
  }

  #fadeOut(id, when = this.context?.currentTime) {
    const old = this.#sources.get(id);
    if (!old) return;
    this.#sources.delete(id);
    old.gain.gain.setTargetAtTime(0, when, fadeTime);
    old.source.stop(when + 10 * fadeTime);
  }

  #end() {
    for (const id of [...this.#sources.keys()]) this.#fadeOut(id);
    this.#begun.place = this.seconds;
    this.dispatchEvent(new Event('pause'));
  }

  /// All signals from one place on, those that run now fading out.
  #startAll(place) {
    const when = this.#soon();
    for (const id of [...this.#sources.keys()]) this.#fadeOut(id, when);
    this.#begun = {when, place: this.#wholeSample(place)};
    for (const id of this.buffers.keys()) this.#fadeIn(id, when, place);
  }

  async play() {
    if (this.buffers.size === 0) return;
    if (!(this.context instanceof OfflineAudioContext)) {
      this.#openContext();
      await this.context.resume();
    }
    this.amplify();
    this.#startAll(this.#begun.place);
  }

  pause() {
    const place = this.time;
    for (const id of [...this.#sources.keys()]) this.#fadeOut(id);
    this.#begun.place = place;
    this.dispatchEvent(new Event('pause'));
  }

  seek(time) {
    const place = Math.min(Math.max(time, 0), this.seconds);
    if (this.playing) this.#startAll(place);
    else this.#begun.place = place;
  }

  /// @param range  [begin, end] s that is repeated from now on, without a gap, or null
  repeat(range) {
    if (String(range) === String(this.#range)) return;
    const now = Math.max(this.context?.currentTime ?? 0, this.#begun.when); // not before what begins by and by
    const place = this.playing ? this.#placeAt(now) : this.#begun.place;
    this.#range = range;
    if (!this.playing) return;
    if (range && place > range[1]) return this.#startAll(range[0]);
    this.#begun = {when: now, place};
    for (const {source} of this.#sources.values()) {
      source.loop = !!range;
      [source.loopStart, source.loopEnd] = range ?? [0, 0];
    }
  }

  async choose(id) {
    this.chosen = id;
    this.amplify();
  }

  /// Brings what is heard to the gains that hold now.
  amplify() {
    if (!this.context) return;
    const now = this.context.currentTime;
    this.volume.gain.setTargetAtTime(fromDb(this.boost), now, fadeTime);
    for (const [id, {gain}] of this.#sources)
      gain.gain.setTargetAtTime(id === this.chosen ? this.gainOf(id) : 0, now, fadeTime);
  }
}
