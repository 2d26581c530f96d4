'use strict';
// The page's side of the engine's thread.

/// The engine as it stands in the page: gzip in base64.
async function engineBytes() {
  return new Uint8Array(await unpacked(bytesOf(byId('engine').textContent)).arrayBuffer());
}

const scriptUrl = id => URL.createObjectURL(new Blob([byId(id).textContent], {type: 'text/javascript'}));

class Client {
  #asked = new Map(); // by id: what is under way
  #lastId = 0;

  /// @param module  the compiled engine; each client has one of its own to run
  constructor(module) {
    this.worker = new Worker(scriptUrl('worker'));
    this.worker.onmessage = ({data}) => this.#hear(data);
    this.worker.postMessage({module});
  }

  #hear({id, reply, error, name, progress}) {
    const asked = this.#asked.get(id);
    if (!asked) return; // given up
    if (progress !== undefined) return asked.onProgress?.(progress);
    this.#asked.delete(id);
    if (error === undefined) asked.done(reply);
    else asked.failed(Object.assign(new Error(error), {name}));
  }

  /// @param onProgress  called with 0 .. 1   @param signal  AbortSignal: rejects with an AbortError
  /// @return the reply; rejects with an Error that says what was wrong
  ask(verb, args = {}, {transfer = [], onProgress, signal} = {}) {
    const id = ++this.#lastId;
    return new Promise((done, failed) => {
      const stop = () => {
        this.#asked.delete(id);
        this.worker.postMessage({cancel: id});
        failed(new DOMException('cancelled', 'AbortError'));
      };
      if (signal?.aborted) return stop();
      signal?.addEventListener('abort', stop, {once: true});
      this.#asked.set(id, {done, failed, onProgress});
      this.worker.postMessage({id, verb, args}, transfer);
    });
  }
}
