'use strict';
// The call that is open: its signals, what each set of parameters makes of it, and what was measured of that.

const sameSet = (one, two) =>
  one && two && one.frame_ms === two.frame_ms && one.words.every((word, i) => word === two.words[i]);

/// Shows and plays a call. Event 'call' with {detail: {rate, seconds, name}}: another one is open.
class View extends EventTarget {
  call = null;    // {name, rate, seconds, mic, ref, diagnosed}
  outputs = {};   // by slot: {out, latency, words, frame_ms, pictured}
  #wanted = {};   // by slot: {words, frame_ms} as asked for last
  #charts = new SignalCharts();
  #lastOpening = Promise.resolve();
  #rendering = new Set();
  #stop = new AbortController();        // of what is being rendered
  #examination = new AbortController(); // of what is being measured

  constructor(client) {
    super();
    this.client = client;
    player = new Player();
    player.addEventListener('pause', drawPlayhead);
    buildTransport(signalsOf, {e: () => byId('equal').click()});
    startPictures();
    this.#buildTools();
  }

  #buildTools() {
    const on = (id, type, action) => byId(id).addEventListener(type, action);
    on('open-built-in', 'click', () => this.openBuiltIn());
    byId('open-built-in').hidden = !byId('call-mic').textContent;
    for (const kind of ['files', 'folder']) {
      on(`open-${kind}`, 'click', () => byId(`pick-${kind}`).click());
      on(`pick-${kind}`, 'change', event => {
        this.open([...event.target.files]);
        event.target.value = '';
      });
    }
    on('cancel', 'click', () => this.#stop.abort());
    on('equal', 'change', event => { player.equal = event.target.checked; player.amplify(); });
    on('boost', 'input', () => this.#charts.scale());
    on('mark-from', 'click', markFrom);
    on('mark-to', 'click', markTo);
    for (const slot of ['a', 'b'])
      on(`save-${slot}`, 'click', () => saveFile(wavFile(this.outputs[slot].out, this.call.rate), `output-${slot}.wav`));
  }

  /// Opens the call that the page was given, else its own.
  begin() {
    const call = data.given?.call;
    return call ? this.open(givenFiles(call), call.name) : this.openBuiltIn();
  }

  openBuiltIn() { return this.open(builtInFiles(), 'The built-in call'); }

  /// @param files  as for readRecordings; what is wrong with them is said, and the call that was open stays
  async open(files, name) {
    try {
      const recordings = await readRecordings(files);
      showMessage('');
      await this.openRecordings({...recordings, name: name ?? recordings.name});
    } catch (error) {
      showMessage(error.message, 'wrong');
    }
  }

  /// One after the other. @param recordings  {name, mic: {samples, rate}, ref, notes}
  openRecordings(recordings) {
    const opening = this.#lastOpening.then(() => this.#openNow(recordings));
    this.#lastOpening = opening.catch(() => {});
    return opening;
  }

  async #openNow({name, mic, ref, notes}) {
    const before = this.call;
    this.#examination.abort();
    this.call = null; // nothing is rendered until there is a place for it
    const call = await this.client.ask('call', {mic, ref, rate: 0}).catch(error => {
      this.call = before;
      throw error;
    });
    player.pause();
    player.seek(0);
    mark(0, 0);
    forgetFindings();
    byId('signals').dataset.state = 'opening';
    Object.assign(data, {rate: call.rate, seconds: call.seconds, sound_seconds: call.seconds});
    byId('call-about').textContent = `${name}: ${call.seconds.toFixed(1)} s at ${call.rate} Hz`;
    byId('call-notes').replaceChildren(...[...notes, ...call.notes].map(note => create('li', {}, note)));
    await this.#charts.build();
    this.call = {...call, name};
    this.outputs = {};
    for (const id of ['a', 'b']) await this.#put(id, null);
    for (const id of ['mic', 'ref']) await this.#put(id, call[id]);
    choose(player.chosen);
    this.dispatchEvent(new CustomEvent('call', {detail: {rate: call.rate, seconds: call.seconds, name}}));
    for (const id of ['mic', 'ref']) await this.#showPicture(id);
  }

  /// Samples of a signal, to be seen and heard; null when there are none.
  async #put(id, samples) {
    const {call} = this;
    await this.#hear(id, samples);
    const wave = samples && await Wave.of(samples, call.rate);
    if (this.call !== call) return;
    this.#charts.put(id, wave);
    if (byId(`save-${id}`)) byId(`save-${id}`).disabled = !samples;
  }

  async #hear(id, samples) {
    await player.put(id, samples, this.call.rate);
    [...byId('choices').children].find(button => button.dataset.id === id).disabled = !samples;
    if (!samples && id === 'b' && player.chosen === 'b') choose('a');
  }

  async #showPicture(id, signal) {
    this.#charts.putPicture(id, await this.client.ask('picture', {signal: id}, {signal}));
  }

  /// Brings the output of a set up to date, then what is measured of it. A set B that is the same as A has no output of
  /// its own until one of them changes.
  async render(slot, words, frame_ms, signal) {
    this.#wanted[slot] = {words, frame_ms};
    if (!this.call) return;
    const same = () => sameSet(this.#wanted.a, this.#wanted.b);
    if (slot === 'b' && same() && !this.outputs.b) return;
    if (!await this.#renderOne(slot, signal)) return;
    if (!this.outputs.b && same()) await this.#hear('b', this.outputs.a.out);
    else if (!this.outputs.b && this.#wanted.b) await this.#renderOne('b', signal);
    this.#examine().catch(error => showMessage(error.message, 'wrong')); // until the next rendering begins
  }

  /// A set that cannot be heard in the call, being for another rate, has no output.
  drop(slot) {
    delete this.#wanted[slot];
    delete this.outputs[slot];
    if (slot === 'a') forgetFindings();
    if (this.call) this.#put(slot, null);
  }

  /// @return whether there is a new output
  async #renderOne(slot, signal) {
    const {words, frame_ms} = this.#wanted[slot], call = this.call;
    this.#examination.abort();
    this.#setRendering(slot, true);
    try {
      const {out, latency} = await this.client.ask('render', {slot, words, frame_ms}, {
        signal: AbortSignal.any([signal, this.#stop.signal].filter(Boolean)),
        onProgress: done => { byId('progress').value = done; }});
      if (call !== this.call) return false;
      this.outputs[slot] = {out, latency, words, frame_ms};
      await this.#put(slot, out);
      return true;
    } catch (error) {
      if (error.name !== 'AbortError') throw error;
      if (this.#stop.signal.aborted) showMessage(`Rendering was cancelled: output ${slot.toUpperCase()} is still that of before.`, 'note');
      return false;
    } finally {
      this.#setRendering(slot, false);
    }
  }

  #setRendering(slot, on) {
    this.#rendering[on ? 'add' : 'delete'](slot);
    if (on && this.#stop.signal.aborted) this.#stop = new AbortController();
    if (on) byId('progress').value = 0;
    byId('signals').ariaBusy = String(this.#rendering.size > 0);
    byId('signals').dataset.state = this.#rendering.size > 0 ? 'rendering' : this.#stop.signal.aborted ? 'cancelled' : 'measuring';
    clearTimeout(this.patience);
    this.patience = setTimeout(() => { byId('rendering').hidden = this.#rendering.size === 0; }, 200); // ms; most are done by then
  }

  /// Pictures, measures and diagnosis of what has been rendered; while more is rendered they wait for that.
  async #examine() {
    if (this.#rendering.size > 0 || !this.call) return;
    this.#examination.abort();
    const {signal} = this.#examination = new AbortController();
    try {
      for (const [slot, output] of Object.entries(this.outputs)) {
        if (!output.pictured) await this.#showPicture(slot, signal);
        output.pictured = true;
      }
      const steps = this.outputs.a ? [() => this.#measure(signal), () => this.#diagnose(signal)] : [];
      if (!this.call.diagnosed) steps.reverse(); // finds the echo's delays, which the measures then show
      for (const step of steps) await step();
      byId('signals').dataset.state = 'done';
    } catch (error) {
      if (error.name !== 'AbortError') throw error;
    }
  }

  async #measure(signal) {
    const measured = await this.client.ask('measure', {}, {signal});
    player.loudness = measured.loudness;
    player.amplify();
    await showMeasures(measured, signal);
  }

  async #diagnose(signal) {
    showDiagnosis(await this.client.ask('diagnose', {}, {signal}));
    this.call.diagnosed = true;
  }
}
