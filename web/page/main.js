'use strict';
// Brings the parts of the tuner together: parameters on one side, the call that they are heard in on the other.

/// Runs `work(signal)` for the newest of a burst of calls, one at a time. One that runs ends first, so that a drag shows
/// what it does on its way, unless it takes longer than `patience` ms.
function newestWins(work, patience = 1000) {
  let wanted = false, running, began;
  return async () => {
    wanted = true;
    if (running) {
      const own = running;
      setTimeout(() => { if (wanted && running === own) own.abort(); }, began + patience - performance.now());
      return;
    }
    while (wanted) {
      wanted = false;
      began = performance.now();
      running = new AbortController();
      try {
        await work(running.signal);
      } catch (error) {
        if (error.name !== 'AbortError') showMessage(error.message, 'wrong');
      }
    }
    running = undefined;
  };
}

/// What the page has to say; errors interrupt a screen reader.
function showMessage(text, kind = 'ok') {
  byId('message').role = kind === 'wrong' ? 'alert' : 'status';
  byId('message').className = kind;
  byId('message').textContent = text;
}

const isParameterFile = file => /\.(toml|para|txt|bin)$/i.test(file.name);

/// Parameter files go to the set that is shown, everything else is a recording.
function takeDrops(files, view) {
  addEventListener('dragover', event => event.preventDefault());
  addEventListener('drop', async event => {
    event.preventDefault();
    const dropped = await droppedFiles(event.dataTransfer);
    const parameters = dropped.filter(isParameterFile), recordings = dropped.filter(file => !isParameterFile(file));
    if (parameters.length) files.open(parameters[0]);
    if (recordings.length) view.open(recordings);
  });
}

/// Keys of the parameters; boxes to write in keep theirs, but for undo, which goes through all changes.
function takeKeys(state, panel, files) {
  addEventListener('keydown', event => {
    const writing = event.target.matches('textarea, [type="search"], [type="text"]');
    const key = event.key.toLowerCase(), control = event.ctrlKey || event.metaKey;
    if (control && key === 'z' && !writing) event.shiftKey ? state.redo() : state.undo();
    else if (control && key === 'y' && !writing) state.redo();
    else if (control && key === 's') files.saveText();
    else if (!control && !event.altKey && key === '/' && !event.target.matches('input, textarea')) panel.search.focus();
    else return;
    event.preventDefault();
  });
}

/// Every change of a set, and every new call, is rendered.
function hearSets(state, view) {
  const render = Object.fromEntries(['a', 'b'].map(slot => [slot, newestWins(signal => {
    const {words, frame_ms, rate} = state.sets[slot];
    return rate === state.callRate ? view.render(slot, words, frame_ms, signal) : view.drop(slot);
  })]));
  state.addEventListener('words', event => { if (state.callRate) render[event.detail.slot](); });
  view.addEventListener('call', event => {
    state.setCallRate(event.detail.rate);
    for (const slot of ['a', 'b']) render[slot]();
  });
}

async function start() {
  startTheme();
  // Questions about parameters have an engine of their own, so that a moved slider never waits for what is rendered.
  const module = await WebAssembly.compile(await engineBytes());
  const parameters = new Client(module), client = new Client(module);
  const state = new State(parameters, await parameters.ask('hello'));
  const panel = new Panel(state, byId('panel'));
  addCurves(state, panel);
  const files = new Files(parameters, state);
  new SetBar(state, files, byId('panel'));
  takeKeys(state, panel, files);
  const view = new View(client);
  hearSets(state, view);
  new Live(view, state);
  state.addEventListener('failed', event => showMessage(event.detail.message, 'wrong'));
  takeDrops(files, view);
  await files.begin();
  await view.begin();
  document.documentElement.dataset.ready = 'yes';
}

start().catch(error => showMessage(error.message, 'wrong'));
