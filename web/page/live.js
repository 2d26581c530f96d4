'use strict';
// Live: this device's microphone through the library, while the page plays a far end.

const longestLive = 600; // s that are kept

const microphoneErrors = {
  NotAllowedError: 'the microphone was refused; allow it for this page, in the settings beside the address',
  NotFoundError: 'no microphone was found; connect one',
  NotReadableError: 'the microphone does not open; another program may have it',
  OverconstrainedError: 'the chosen microphone is gone; choose another one'};

class Live {
  #pieces = {mic: [], ref: [], out: []};

  /// @param view  of the call, whose reference is played and which takes a recording
  /// @param state  has the parameters: state.set is {words, rate, frame_ms}; its events say when they change
  constructor(view, state) {
    Object.assign(this, {view, state});
    const on = (id, type, action) => byId(id).addEventListener(type, action);
    on('live-start', 'click', () => this.context ? this.stop() : this.start());
    on('live-source', 'change', event => { if (event.target.value === 'file') byId('live-file').click(); else this.#restart(); });
    on('live-file', 'change', () => this.#restart());
    on('live-device', 'change', () => this.#restart());
    on('live-volume', 'input', () => this.#setVolumes());
    on('live-headphones', 'change', () => this.#setVolumes());
    on('live-take', 'click', () => this.#take());
    for (const name of ['mic', 'ref', 'out'])
      on(`live-save-${name}`, 'click', () => saveFile(wavFile(this.recorded(name), this.rate), `live-${name}.wav`));
    for (const type of ['words', 'sets']) state.addEventListener(type, () => this.#follow());
  }

  #say(text, kind = 'ok') {
    byId('live-state').textContent = text;
    byId('live-state').className = kind;
  }

  async start() {
    byId('live-start').disabled = true;
    try {
      await this.#begin();
    } catch (error) {
      await this.stop();
      this.#say(`Live: ${microphoneErrors[error.name] ?? error.message}.`, 'wrong');
    } finally {
      byId('live-start').disabled = false;
    }
  }

  async #begin() {
    const {words, rate, frame_ms} = this.state.set;
    if (!navigator.mediaDevices?.getUserMedia)
      throw new Error('this browser gives no microphone to a page of this address; open it from disk, https or localhost');
    const deviceId = byId('live-device').value;
    this.microphone = await navigator.mediaDevices.getUserMedia({audio: {echoCancellation: false, noiseSuppression: false,
      autoGainControl: false, channelCount: 1, ...(deviceId && {deviceId: {exact: deviceId}})}});
    await this.#listDevices();
    const context = this.context = new AudioContext({sampleRate: rate, latencyHint: 'interactive'});
    Object.assign(this, {rate, frame_ms, words, heard: 0, trace: {}});
    for (const name in this.#pieces) this.#pieces[name] = [];
    // Not a blob's address: to a page from disk browsers do not give those as modules.
    await context.audioWorklet.addModule(`data:text/javascript,${encodeURIComponent(byId('worklet').textContent)}`);
    this.node = new AudioWorkletNode(context, 'qv-live', {numberOfInputs: 2, outputChannelCount: [1], channelCount: 1,
      channelCountMode: 'explicit', processorOptions: {engine: await engineBytes(), words, frame_ms}});
    this.node.port.onmessage = ({data}) => this.#hear(data);
    this.node.onprocessorerror = () => { this.stop(); this.#say('Live: the library stopped; start again.', 'wrong'); };
    await this.#connect(context);
    await context.resume();
    byId('live-running').hidden = false;
    this.screen ??= new LiveView(); // charts take their size from the page when they are made
    this.screen.begin();
    byId('live-start').textContent = 'Stop';
    byId('live-start').ariaPressed = 'true';
    this.#say(`Live at ${rate} Hz, frames of ${frame_ms} ms.${this.#deviceWarning()}`);
  }

  /// Microphone and far end into the library; the far end into the loudspeaker, the output only into headphones.
  async #connect(context) {
    this.farGain = new GainNode(context, {gain: 0});
    this.outGain = new GainNode(context, {gain: 0});
    context.createMediaStreamSource(this.microphone).connect(this.node, 0, 0);
    this.farGain.connect(this.node, 0, 1);
    this.farGain.connect(context.destination);
    this.node.connect(this.outGain).connect(context.destination);
    const buffer = await this.#farEnd();
    if (buffer) {
      this.player = new AudioBufferSourceNode(context, {buffer, loop: true});
      this.player.connect(this.farGain);
      this.player.start();
    }
    this.#setVolumes();
  }

  async #farEnd() {
    const source = byId('live-source').value, file = byId('live-file').files[0];
    const sound = source === 'file' && file
      ? mixedDown(await decodeSound(file.name, new Uint8Array(await file.arrayBuffer())))
      : source === 'ref' && this.view.call ? {samples: this.view.call.ref, rate: this.view.call.rate} : null;
    if (!sound?.samples.length) return null;
    const buffer = new AudioBuffer({length: sound.samples.length, sampleRate: sound.rate}), floats = buffer.getChannelData(0);
    const unit = sound.samples instanceof Int16Array ? 1 / 32768 : 1;
    for (let i = 0; i < floats.length; ++i) floats[i] = sound.samples[i] * unit;
    return buffer;
  }

  #setVolumes() {
    const volume = +byId('live-volume').value;
    byId('live-volume-value').textContent = `${volume} dB`;
    this.farGain?.gain.setTargetAtTime(fromDb(volume), this.context.currentTime, 0.01);
    this.outGain?.gain.setTargetAtTime(byId('live-headphones').checked ? 1 : 0, this.context.currentTime, 0.01);
  }

  async #listDevices() {
    const chosen = byId('live-device').value;
    const microphones = (await navigator.mediaDevices.enumerateDevices()).filter(device => device.kind === 'audioinput' && device.deviceId);
    byId('live-device').replaceChildren(create('option', {value: ''}, "the system's choice"),
      ...microphones.map(device => create('option', {value: device.deviceId}, device.label || 'microphone')));
    byId('live-device').value = microphones.some(device => device.deviceId === chosen) ? chosen : '';
  }

  /// What the browser does to the microphone in spite of having been asked not to.
  #deviceWarning() {
    const settings = this.microphone.getAudioTracks()[0].getSettings();
    const on = [['echoCancellation', 'echo cancellation'], ['noiseSuppression', 'noise suppression'], ['autoGainControl', 'gain control']]
      .filter(([name]) => settings[name]).map(([, text]) => text);
    return on.length ? ` The browser's own ${on.join(' and ')} cannot be switched off here: what is heard is not the library alone.` : '';
  }

  async stop() {
    this.microphone?.getTracks().forEach(track => track.stop());
    this.node?.port.close();
    await this.context?.close();
    this.context = this.node = this.farGain = this.outGain = this.microphone = undefined;
    byId('live-start').textContent = 'Start';
    byId('live-start').ariaPressed = 'false';
    this.#say('');
  }

  async #restart() {
    if (!this.context) return;
    await this.stop();
    await this.start();
  }

  /// The parameters of the set that is shown, at once; another rate needs another audio context.
  #follow() {
    const {words, rate, frame_ms} = this.state.set;
    if (!this.node || (words === this.words && frame_ms === this.frame_ms)) return;
    Object.assign(this, {words, frame_ms});
    if (rate !== this.rate) this.#restart();
    else this.node.port.postMessage({words, frame_ms});
  }

  #hear({trace, recorded, latency, refused, taken, effects}) {
    if (latency) this.latency = latency;
    if (refused) this.#say(`Live: the library refuses these parameters (status ${refused}); the last ones go on.`, 'wrong');
    if (taken) this.#say(taken === 'anew' ? 'A new call was begun: these parameters cannot be taken up by a running one.'
      : effects & 4 ? 'Taken up; the echo has to be learnt again.' : effects & 1 ? 'Taken up, with a short pause.' : 'Taken up.');
    if (!recorded || !this.screen) return;
    this.trace = trace;
    this.heard += recorded.mic.length / this.rate;
    if (this.heard <= longestLive) for (const name in recorded) this.#pieces[name].push(recorded[name]);
    this.screen.show(this.heard, this.rate, trace, Object.fromEntries(Object.entries(recorded).map(([name, samples]) => [name, levelOf(samples)])));
    this.#showDelays();
    byId('live-recorded').hidden = false;
    byId('live-length').textContent = this.heard <= longestLive ? `${this.heard.toFixed(1)} s recorded`
      : `the first ${longestLive / 60} minutes recorded`;
  }

  #showDelays() {
    const {library, stream, frame, quantum, rate} = this.latency, ms = samples => 1000 * samples / rate;
    const track = this.microphone?.getAudioTracks()[0].getSettings().latency;
    this.screen.showDelays([
      ['Library', ms(library), `as configured: ${library} samples from its input to its output`],
      ['Frames', ms(stream - library), `as configured: frames of ${frame} samples collected from blocks of ${quantum}`],
      ['Microphone', track === undefined ? null : 1000 * track, 'as the browser says'],
      ['Page to loudspeaker', this.context ? 1000 * (this.context.baseLatency + (this.context.outputLatency || 0)) : null,
        'as the browser says: base and output latency'],
      ['Loudspeaker to microphone and back', this.trace.echo_delay > 0 ? ms(this.trace.echo_delay) : null,
        'as the echo canceller finds it: from the far end in the page until its echo comes back to the page']]);
  }

  /// [samples] of what was recorded of 'mic', 'ref' or 'out'.
  recorded(name) {
    const pieces = this.#pieces[name], all = new Int16Array(pieces.reduce((sum, piece) => sum + piece.length, 0));
    pieces.reduce((at, piece) => { all.set(piece, at); return at + piece.length; }, 0);
    return all;
  }

  async #take() {
    try {
      if (this.context) await this.stop();
      await this.view.openRecordings({name: 'The live recording', notes: [],
        mic: {samples: this.recorded('mic'), rate: this.rate}, ref: {samples: this.recorded('ref'), rate: this.rate}});
      byId('recordings').scrollIntoView();
    } catch (error) {
      this.#say(error.message, 'wrong');
    }
  }
}
