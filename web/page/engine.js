'use strict';
// The WebAssembly module: the library's C functions, and `ask`, which answers questions in JSON.

/// What the C library in the module asks its system for: a clock, and a place for last words.
function systemFor(engine) {
  const ok = 0, unknown = 8; // WASI's errno: badf
  return {
    environ_sizes_get: (count, size) => { engine.words32[count >> 2] = engine.words32[size >> 2] = 0; return ok; },
    environ_get: () => ok,
    clock_time_get: (clock, precision, result) => {
      new DataView(engine.memory).setBigUint64(result, BigInt(Math.round(1e6 * performance.now())), true);
      return ok;
    },
    fd_write: (file, parts, count, written) => {
      let size = 0;
      for (let i = 0; i < count; ++i) {
        const [begin, length] = engine.words32.subarray((parts >> 2) + 2 * i, (parts >> 2) + 2 * i + 2);
        engine.lastWords += engine.textAt(begin, length);
        size += length;
      }
      engine.words32[written >> 2] = size;
      return ok;
    },
    fd_close: () => unknown, fd_seek: () => unknown, fd_fdstat_get: () => unknown,
    proc_exit: code => { throw new Error(`the engine has ended with status ${code}`); },
  };
}

class Engine {
  /// @param module  WebAssembly.Module, or its bytes, which are compiled here and now: for worklets
  constructor(module) {
    this.lastWords = '';
    const compiled = module instanceof WebAssembly.Module ? module : new WebAssembly.Module(module);
    this.exports = new WebAssembly.Instance(compiled, {wasi_snapshot_preview1: systemFor(this)}).exports;
    this.exports._initialize();
  }

  get memory() { return this.exports.memory.buffer; } // another one whenever the module's memory has grown
  get words32() { return new Uint32Array(this.memory); }

  textAt(begin, length) {
    let text = '';
    for (const byte of new Uint8Array(this.memory, begin, length)) text += String.fromCharCode(byte);
    return decodeURIComponent(escape(text)); // worklets have no TextDecoder
  }

  /// Copies an array into the module. @return its place there, to be released
  put(array) {
    const pointer = this.exports.allocate(array.byteLength);
    if (!pointer) throw new Error('the engine is out of memory');
    new Uint8Array(this.memory, pointer, array.byteLength)
      .set(new Uint8Array(array.buffer, array.byteOffset, array.byteLength));
    return pointer;
  }

  putText(text) { return this.put(Uint8Array.from(unescape(encodeURIComponent(text)) + '\0', c => c.charCodeAt(0))); }

  /// One question. Typed arrays cross as such, in request and reply. @throws Error with what was wrong
  ask(verb, request = {}) {
    const places = [];
    const place = pointer => { places.push(pointer); return pointer; };
    const json = JSON.stringify(request, (key, value) => ArrayBuffer.isView(value)
      ? {type: value.constructor.name, pointer: place(this.put(value)), length: value.length} : value);
    try {
      this.lastWords = '';
      const text = this.exports.ask(place(this.putText(verb)), place(this.putText(json)));
      const reply = JSON.parse(this.textAt(text, this.exports.reply_size()), (key, value) =>
        value?.pointer !== undefined ? this.arrayAt(value) : value);
      if (reply.error !== undefined) throw new Error(reply.error);
      return reply;
    } catch (error) {
      if (error instanceof WebAssembly.RuntimeError) error.message = `the engine has failed: ${this.lastWords || error.message}`;
      throw error;
    } finally {
      places.forEach(this.exports.release);
    }
  }

  arrayAt({type, pointer, length}) {
    const arrays = {Int16Array, Uint8Array};
    return new arrays[type](this.memory, pointer, length).slice();
  }
}
