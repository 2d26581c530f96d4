'use strict';
// The library in the sound card's own rhythm: microphone and reference in, output out, 128 samples at a time.

// Fields of QvVoiceTrace (qvvoice.h), 4 bytes each; i: integer, f: float.
const traceFields = `i size, i tx_frame, i rx_frame, i echo_delay, i delay_changed, i talk_state, f leakage, i filter_adapted,
  i foreground_refreshed, i background_reset, i filter_reset, f linear_erle_db, f erle_db, f suppressor_gain, i muted,
  f tx_noise_db, f tx_noise_gain, f tx_speech_presence, f rx_noise_db, f rx_noise_gain, f rx_speech_presence,
  f tx_agc_gain, f rx_agc_gain, i comfort_noise, i state_space, i filter_delay, i filter_length, i path_changed,
  i single_talk, f drift_ppm, f explained, f expected_residual_db`.split(',').map(field => field.trim().split(' '));

const quantum = 128; // samples, of every audio context
const reportTime = 0.1; // s between two messages to the page

class LiveProcessor extends AudioWorkletProcessor {
  constructor({processorOptions: {engine, words, frame_ms}}) {
    super();
    this.engine = new Engine(engine);
    const {allocate} = this.engine.exports;
    this.at = {mic: allocate(4 * quantum), ref: allocate(4 * quantum), out: allocate(4 * quantum), words: allocate(1000),
      config: allocate(16), result: allocate(8), trace: allocate(4 * traceFields.length)};
    this.blocks = Math.max(Math.round(reportTime * sampleRate / quantum), 1); // of one message
    this.#beginMessage();
    this.call = this.stream = 0;
    this.#make(words, frame_ms);
    this.port.onmessage = ({data}) => this.#follow(data);
  }

  get #view() { return new DataView(this.engine.memory); }
  #floats(at) { return new Float32Array(this.engine.memory, at, quantum); }
  #beginMessage() {
    this.recorded = Object.fromEntries(['mic', 'ref', 'out'].map(name => [name, new Int16Array(this.blocks * quantum)]));
    this.filled = 0;
  }

  /// Another call in place of the one that runs, which stays when there can be none. @return whether there is one
  #make(words, frame_ms) {
    const {exports} = this.engine, {at} = this;
    new Int16Array(this.engine.memory, at.words, 500).set(words);
    [16, sampleRate, sampleRate * frame_ms / 1000, 1].forEach((value, k) => this.#view.setInt32(at.config + 4 * k, value, true));
    let status = exports.qv_call_create(at.config, at.words, at.result);
    const call = this.#view.getUint32(at.result, true);
    if (status === 0) status = exports.qv_stream_create(call, quantum, at.result);
    if (status !== 0) {
      exports.qv_call_destroy(call);
      this.port.postMessage({refused: status});
      return false;
    }
    exports.qv_stream_destroy(this.stream);
    exports.qv_call_destroy(this.call);
    Object.assign(this, {call, stream: this.#view.getUint32(at.result, true), frame_ms});
    this.#tellLatency();
    return true;
  }

  /// Parameters of the page: into the running call if that can take them, else into a new one, which is said.
  #follow({words, frame_ms}) {
    const {exports, memory} = this.engine;
    new Int16Array(memory, this.at.words, 500).set(words);
    const taken = this.stream && frame_ms === this.frame_ms &&
      exports.qv_call_replace_parameters(this.call, this.at.words, this.at.result) === 0;
    if (!taken && !this.#make(words, frame_ms)) return;
    if (!taken) return this.port.postMessage({taken: 'anew'});
    this.port.postMessage({taken: 'on', effects: this.#view.getUint32(this.at.result, true)});
    this.#tellLatency();
  }

  /// Samples of delay as configured: in the library, and with the collecting of frames.
  #tellLatency() {
    const read = (get, owner) => {
      get(owner, this.at.result, this.at.result + 4);
      return this.#view.getInt32(this.at.result, true);
    };
    const {qv_call_latency, qv_stream_latency} = this.engine.exports;
    this.port.postMessage({latency: {library: read(qv_call_latency, this.call), stream: read(qv_stream_latency, this.stream),
      frame: sampleRate * this.frame_ms / 1000, quantum, rate: sampleRate}});
  }

  #traced() {
    const {at} = this, view = this.#view;
    view.setUint32(at.trace, 4 * traceFields.length, true);
    if (this.engine.exports.qv_call_trace(this.call, at.trace) !== 0) return {};
    return Object.fromEntries(traceFields.map(([type, name], k) =>
      [name, type === 'f' ? view.getFloat32(at.trace + 4 * k, true) : view.getInt32(at.trace + 4 * k, true)]));
  }

  process([mic, ref], [[out]]) {
    if (!this.stream) return true;
    const {at} = this;
    for (const [place, input] of [[at.mic, mic[0]], [at.ref, ref[0]]])
      input ? this.#floats(place).set(input) : this.#floats(place).fill(0); // nothing is connected, or it has ended
    this.engine.exports.qv_stream_transmit_float(this.stream, at.mic, at.ref, at.out, quantum);
    out.set(this.#floats(at.out));
    for (const name of ['mic', 'ref', 'out']) this.#record(this.recorded[name], this.#floats(at[name]));
    this.filled += quantum;
    if (this.filled === this.blocks * quantum) {
      const {recorded} = this;
      this.port.postMessage({trace: this.#traced(), recorded}, Object.values(recorded).map(samples => samples.buffer));
      this.#beginMessage();
    }
    return true;
  }

  /// Rounded as the library rounds; NaN is 0.
  #record(samples, floats) {
    for (let i = 0; i < quantum; ++i)
      samples[this.filled + i] = Math.min(Math.max(Math.round(floats[i] * 32768), -32768), 32767);
  }
}

registerProcessor('qv-live', LiveProcessor);
