'use strict';
// Parameter sets A and B: their words, what the library makes of them, and every step that led there.

/// The two sets and their history. A set is never changed in place: {words, name, rate, frame_ms, points, begin}, where
/// points are the wanted responses of equalisers that were drawn here ({tx: {points: [[hz, db], ...], taps, lowered}}, as
/// the curve hands them over; the words hold the coefficients only), and begin is what one started from: {words, name,
/// values}.
/// Events, with {detail: {slot}}: 'words' (another sound), 'view' (views[slot] is new); 'sets' (what is shown, names,
/// steps to undo); 'failed' with {detail: {message}}.
class State extends EventTarget {
  sets = {};
  views = {};
  slot = 'a';
  callRate = 0; // Hz, 0 while there is no call
  #past = [];
  #future = [];
  #gesture = '';
  #batch;
  #known = new WeakMap(); // what the library makes of words, so that steps back show at once
  #last = Promise.resolve();

  constructor(client, hello) {
    super();
    this.client = client;
    this.hello = hello;
    this.fields = new Map(hello.fields.map(field => [field.key, field]));
  }

  get set() { return this.sets[this.slot]; }
  get view() { return this.views[this.slot]; }
  get other() { return this.slot === 'a' ? 'b' : 'a'; }
  get undone() { return this.#future.at(-1)?.label; }
  get done() { return this.#past.at(-1)?.label; }

  #tell(type, detail = {}) { this.dispatchEvent(new CustomEvent(type, {detail})); }

  /// One operation after the other, in the order in which they were asked for.
  #inTurn(operation) {
    this.#last = this.#last.then(operation).catch(error => {
      this.#tell('failed', {message: error.message});
      this.#tell('view', {slot: this.slot}); // controls go back to what holds
    });
    return this.#last;
  }

  /// Shows other sets, and asks what the library makes of those that sound otherwise.
  async #show(sets) {
    const changed = ['a', 'b'].filter(slot => sets[slot].words !== this.sets[slot]?.words);
    const renders = ['a', 'b'].filter(slot => changed.includes(slot) || sets[slot].frame_ms !== this.sets[slot].frame_ms);
    this.sets = sets;
    this.#tell('sets');
    for (const slot of renders) this.#tell('words', {slot});
    await Promise.all(changed.map(async slot => {
      this.views[slot] = await this.#look(sets[slot].words);
    }));
    for (const slot of changed) this.#tell('view', {slot});
  }

  async #look(words) {
    if (!this.#known.has(words)) this.#known.set(words, await this.client.ask('view', {words}));
    return this.#known.get(words);
  }

  /// A step that can be undone; one of the same gesture as the last goes on with that one.
  #step(sets, label, gesture = '') {
    if (!gesture || gesture !== this.#gesture) this.#past.push({sets: this.sets, label});
    this.#future = [];
    this.#gesture = gesture;
    return this.#show({...this.sets, ...sets});
  }

  /// Changes values of the set that is shown. What comes while an earlier change waits for the engine goes with it.
  /// @param changes  [{key, element, value}], of a drawn equaliser with what was drawn
  /// @param gesture  name of a drag, whose changes are one step until `settle`
  edit(changes, gesture = '') {
    clearTimeout(this.settling);
    const waits = gesture && this.#batch?.gesture === gesture && this.#batch.slot === this.slot;
    const batch = waits ? this.#batch : {slot: this.slot, gesture, changes: new Map()};
    for (const change of changes) batch.changes.set(`${change.key} ${change.element ?? 0}`, change);
    if (waits) return this.#last;
    this.#batch = batch;
    return this.#inTurn(() => this.#apply(batch));
  }

  async #apply(batch) {
    if (this.#batch === batch) this.#batch = undefined;
    const set = this.sets[batch.slot], changes = [...batch.changes.values()], points = {...set.points};
    const {words, findings = []} = await this.client.ask('edit', {words: set.words, changes});
    const wrong = findings.find(({severity}) => severity === 'error');
    if (wrong) throw new Error(`${wrong.key}: ${wrong.message}`);
    if (words.every((word, k) => word === set.words[k]) && !changes.some(({drawn}) => drawn)) return;
    for (const {key, drawn} of changes) {
      const [path, module, name] = key.split('.');
      if (module === 'eq' && name !== 'enable') points[path] = drawn;
    }
    const label = changes.length === 1 ? changes[0].key : `${changes[0].key} …`;
    await this.#step({[batch.slot]: {...set, words, points}}, label, batch.gesture);
  }

  /// A drag has ended; what follows within the time of a double click or of a held key still belongs to it.
  settle() {
    clearTimeout(this.settling);
    this.settling = setTimeout(() => this.#inTurn(() => {
      this.#gesture = '';
      this.#tell('view', {slot: this.slot}); // what was set and not stored goes back
    }), 500);
  }

  /// Begins anew from words that were read. @param slots  which sets take them
  load({words, name, rate, frame_ms}, slots = [this.slot]) {
    return this.#inTurn(async () => {
      const {values} = await this.#look(words);
      const set = {words, name, rate, points: {}, begin: {words, name, values},
        frame_ms: frame_ms || this.sets[slots[0]]?.frame_ms || 20};
      const sets = Object.fromEntries(slots.map(slot => [slot, set]));
      if (this.sets.a) await this.#step(sets, `start from ${name}`);
      else await this.#show(sets);
    });
  }

  #travel(from, to) {
    return this.#inTurn(async () => {
      const step = from.pop();
      if (!step) return;
      to.push({sets: this.sets, label: step.label});
      this.#gesture = '';
      await this.#show(step.sets);
    });
  }
  undo() { return this.#travel(this.#past, this.#future); }
  redo() { return this.#travel(this.#future, this.#past); }

  #inOneStep(label, makeSets) { return this.#inTurn(() => this.#step(makeSets(), label)); }
  copyToOther() { return this.#inOneStep(`copy ${this.slot} to ${this.other}`, () => ({[this.other]: this.set})); }
  swap() { return this.#inOneStep('swap A and B', () => ({a: this.sets.b, b: this.sets.a})); }
  revert() {
    return this.#inOneStep('back to the start',
      () => ({[this.slot]: {...this.set, words: this.set.begin.words, points: {}}}));
  }
  setFrame(frame_ms) { return this.#inOneStep('frame length', () => ({[this.slot]: {...this.set, frame_ms}})); }

  choose(slot) {
    this.slot = slot;
    this.#tell('sets');
    this.#tell('view', {slot});
  }

  setCallRate(rate) {
    this.callRate = rate;
    this.#tell('sets');
  }

  /// Rows {key, a, b, unit, meaning}. @param against  'begin' or 'other'
  async diff(against) {
    const {differences} = await this.client.ask('diff', against === 'begin'
      ? {a: this.set.begin.words, b: this.set.words} : {a: this.sets.a.words, b: this.sets.b.words});
    return differences;
  }
}
