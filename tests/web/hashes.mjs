// The library as WebAssembly gives the published bytes: every vector through the module, in frames, as on a device.
//   node hashes.mjs ENGINE.wasm engine.js VECTORS outputs.sha256
// VECTORS is a folder that `qvvoice_vectors write` has filled.

import {createHash} from 'node:crypto';
import {readFileSync} from 'node:fs';
import {join} from 'node:path';
import {runInThisContext} from 'node:vm';

const [wasm, script, folder, list] = process.argv.slice(2);
const Engine = runInThisContext(`${readFileSync(script, 'utf8')};Engine`);
const module = new WebAssembly.Module(readFileSync(wasm));

const samplesOf = name => {
  const bytes = readFileSync(join(folder, name));
  return new Int16Array(bytes.buffer.slice(bytes.byteOffset, bytes.byteOffset + bytes.length));
};

const check = status => { if (status !== 0) throw new Error(`the library refuses: status ${status}`); };

/// Whole frames of a call through one path, in an engine of their own: the comfort noise begins anew.
/// @param inputs  one array for 'rx', microphone and reference for 'tx'
function run(path, words, rate, frame, inputs) {
  const engine = new Engine(module), {exports} = engine;
  check(exports.QV_VOICE_InitImage(engine.put(words), rate, frame));
  const process = path === 'tx' ? exports.QV_VOICE_ProcessTx : exports.QV_VOICE_ProcessRx;
  const out = engine.put(new Int16Array(frame)), places = inputs.map(input => engine.put(input));
  const sent = new Int16Array(Math.floor(inputs[0].length / frame) * frame);
  for (let at = 0; at < sent.length; at += frame) {
    check(process(...places.map(place => place + 2 * at), out, frame));
    sent.set(new Int16Array(engine.memory, out, frame), at);
  }
  return sent;
}

const hash = bytes => createHash('sha256').update(bytes).digest('hex');

let wrong = 0, compared = 0;
for (const line of readFileSync(list, 'utf8').trim().split('\n')) {
  const [published, name] = line.split(/ +/);
  const [, rate, frame, set, path] = /^(\d+)-(\d+)-(.+)-(tx|rx)\.s16$/.exec(name);
  const inputs = (path === 'tx' ? ['mic', 'far'] : ['rx']).map(signal => samplesOf(`${rate}-${signal}.s16`));
  const out = run(path, samplesOf(`${rate}-${set}.par`), +rate, +frame, inputs);
  ++compared;
  if (hash(new Uint8Array(out.buffer)) !== published) console.log(`${name}: other bytes`, ++wrong);
}
console.log(`${compared} outputs compared, ${wrong} differ`);
process.exit(wrong === 0 && compared > 0 ? 0 : 1);
