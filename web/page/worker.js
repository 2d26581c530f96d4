'use strict';
// The engine's own thread. A request is {id, verb, args}, a reply {id, reply} or {id, error}; {cancel: id} ends a rendering.

let engine, module;
let openedCall; // last request of that kind: an engine that takes the place of a failed one needs it
const rendering = {}; // by slot: id of the request that is at work
const slice = 50;     // frames between two looks at what else has come; some ms

/// Lets what has come meanwhile be handled.
const breathe = () => new Promise(done => {
  const {port1, port2} = new MessageChannel();
  port1.onmessage = () => { port1.close(); done(); };
  port2.postMessage(0);
});

/// The newest request for a slot ends the older ones, whose promises are then nobody's.
async function render(id, args) {
  rendering[args.slot] = id;
  const {frames} = engine.ask('render', args);
  for (;;) {
    const step = engine.ask('step', {slot: args.slot, frames: slice});
    if (step.out) return step;
    postMessage({id, progress: step.done / frames});
    await breathe();
    if (rendering[args.slot] !== id) throw Object.assign(new Error('cancelled'), {name: 'AbortError'});
  }
}

function cancel(id) {
  for (const slot in rendering) if (rendering[slot] === id) delete rendering[slot];
}

/// A failed engine is of no more use.
function restart() {
  engine = new Engine(module);
  if (openedCall) engine.ask('call', openedCall);
}

async function answer({id, verb, args}) {
  try {
    if (verb === 'call') {
      openedCall = args;
      for (const slot in rendering) delete rendering[slot]; // what is at work is of the call before
    }
    const reply = verb === 'render' ? await render(id, args) : engine.ask(verb, args);
    postMessage({id, reply}, Object.values(reply).filter(ArrayBuffer.isView).map(array => array.buffer));
  } catch (error) {
    if (error instanceof WebAssembly.RuntimeError) restart();
    postMessage({id, error: error.message, name: error.name});
  }
}

const ready = new Promise(begin => {
  onmessage = async ({data}) => {
    if (data.module) begin(engine = new Engine(module = data.module));
    else if (data.cancel) cancel(data.cancel);
    else { await ready; answer(data); }
  };
});
