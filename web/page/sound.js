'use strict';
// Recordings in and out: what was dropped or chosen becomes a microphone and a reference, samples become a WAV file.

const text4 = (view, at) => String.fromCharCode(...[0, 1, 2, 3].map(k => view.getUint8(at + k)));

/// What a WAV or FLAC file says of itself: {rate, channels, bits, float, missing}, null for others.
/// bits is 0 where samples are compressed, missing what the file has been cut short by, bytes.
function soundHeader(bytes) {
  const view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
  if (view.byteLength >= 26 && text4(view, 0) === 'fLaC') { // the stream's description is always the first block
    const word = view.getUint32(18);
    return {rate: word >>> 12, channels: (word >>> 9 & 7) + 1, bits: (view.getUint16(20) >>> 4 & 31) + 1, float: false, missing: 0};
  }
  if (view.byteLength < 12 || text4(view, 0) !== 'RIFF' || text4(view, 8) !== 'WAVE') return null;
  let header = null;
  for (let at = 12; at + 8 <= view.byteLength; at += 8 + view.getUint32(at + 4, true) + (view.getUint32(at + 4, true) & 1)) {
    const name = text4(view, at), size = view.getUint32(at + 4, true);
    if (name === 'fmt ' && at + 24 <= view.byteLength) {
      const tag = view.getUint16(at + 8, true);
      const format = tag === 0xfffe && size >= 26 && at + 34 <= view.byteLength ? view.getUint16(at + 32, true) : tag;
      header = {rate: view.getUint32(at + 12, true), channels: view.getUint16(at + 10, true),
        bits: format === 1 || format === 3 ? view.getUint16(at + 22, true) : 0, float: format === 3, missing: 0};
    }
    if (name === 'data' && header) return {...header, missing: Math.max(at + 8 + size - view.byteLength, 0)};
  }
  return header;
}

/// Samples as the file's integers meant them. Browsers differ in what they divide a positive integer of `bits` by:
/// 2^(bits-1), or one less, so that the greatest becomes 1. Only one of the two gives integers again.
/// @return Int16Array of up to 16 bits, else the samples themselves
function exactSamples(samples, {bits, float}) {
  if (float || !(bits >= 1 && bits <= 16)) return samples;
  const full = 2 ** (bits - 1);
  const whole = v => v <= 0 || Math.abs(v * full - Math.round(v * full)) < 1e-3 / full;
  const positive = samples.every(whole) ? full : full - 1;
  const exact = new Int16Array(samples.length);
  for (let i = 0; i < exact.length; ++i)
    exact[i] = Math.round(samples[i] * (samples[i] > 0 ? positive : full)) * (32768 / full);
  return exact;
}

const allowedRates = [3000, 768000]; // Hz, of what browsers decode

/// @return {name, rate, channels: [samples], notes}; throws what is wrong with the file
async function decodeSound(name, bytes) {
  const header = soundHeader(bytes), notes = [];
  if (bytes.length === 0) throw new Error(`${name}: is empty, expected a recording (WAV, FLAC)`);
  if (header && !(header.rate >= allowedRates[0] && header.rate <= allowedRates[1]))
    throw new Error(`${name}: its header says ${header.rate} Hz, expected ${allowedRates.join(' to ')} Hz`);
  const rate = header?.rate ?? 48000;
  let sound;
  try {
    sound = await new OfflineAudioContext(1, 1, rate).decodeAudioData(bytes.slice().buffer);
  } catch {
    const found = header ? `a header of ${header.rate} Hz, ${header.channels} channels, ${header.bits || '?'} bits, but no samples that can be read`
      : `bytes that begin with "${String.fromCharCode(...bytes.subarray(0, 8)).replace(/[^ -~]/g, '.')}"`;
    throw new Error(`${name}: found ${found}; expected a recording: WAV of 8 to 32 bits, FLAC, or what this browser plays`);
  }
  if (!header) notes.push(`${name}: its own sampling rate is not known, decoded at ${rate} Hz`);
  if (header?.missing) notes.push(`${name}: is cut short, ${header.missing} bytes that its header promises are missing`);
  const channels = Array.from({length: sound.numberOfChannels}, (_, k) => exactSamples(sound.getChannelData(k), header ?? {}));
  return {name, rate, channels, notes};
}

/// All channels as one, said where there are several.
function mixedDown({name, rate, channels, notes}) {
  if (channels.length === 1) return {samples: channels[0], rate};
  notes.push(`${name}: ${channels.length} channels, mixed down to one`);
  const scale = (channels[0] instanceof Int16Array ? 1 / 32768 : 1) / channels.length;
  const samples = new Float32Array(channels[0].length);
  for (const channel of channels)
    for (let i = 0; i < samples.length; ++i) samples[i] += scale * channel[i];
  return {samples, rate};
}

const namesOf = [[/^mic(rophone)?\./i, /^ref(erence)?\./i], [/mic|near|capture/i, /ref|far|speaker|playback/i]];

/// Microphone and reference of several files: by their names, or two of them in their order.
function chooseTwo(files) {
  for (const names of namesOf) {
    const [mics, refs] = names.map(name => files.filter(file => name.test(file.name)));
    if (mics.length === 1 && refs.length === 1 && mics[0] !== refs[0]) return [mics[0], refs[0]];
  }
  if (files.length === 2) return files;
  throw new Error(`found ${files.length} files (${files.map(file => file.name).join(', ')}); expected mic.wav and ref.wav, ` +
    'or one stereo file');
}

/// @param files  one stereo file (microphone left, reference right), two files, or a folder's
/// @return {name, mic: {samples, rate}, ref, notes}
async function readRecordings(files) {
  if (files.length === 0) throw new Error('found no file; expected a microphone and a reference recording');
  const sounds = [];
  for (const file of files.length === 1 ? files : chooseTwo(files))
    sounds.push(await decodeSound(file.name, new Uint8Array(await file.arrayBuffer())));
  const [mic, ref] = sounds;
  if (ref)
    return {name: `${mic.name} and ${ref.name}`, mic: mixedDown(mic), ref: mixedDown(ref), notes: [...mic.notes, ...ref.notes]};
  const {name, rate, channels, notes} = mic;
  if (channels.length !== 2)
    throw new Error(`${name}: found ${channels.length} channel${channels.length > 1 ? 's' : ''}; expected two, microphone left ` +
      'and reference right, or a file for each');
  return {name: `${name} (microphone left, reference right)`, mic: {samples: channels[0], rate},
    ref: {samples: channels[1], rate}, notes};
}

/// The two files of the call that comes with the page.
const builtInFiles = () => ['mic', 'ref'].map(kind => new File([bytesOf(byId(`call-${kind}`).textContent)], `${kind}.flac`));

/// Those of the call that the page was given.
const givenFiles = ({mic, ref}) => [new File([bytesOf(mic)], 'mic.flac'), new File([bytesOf(ref)], 'ref.flac')];

const isSound = entry => entry.isFile && /\.(wav|wave|flac|ogg|opus|mp3|m4a|aac|webm)$/i.test(entry.name);

/// Files that were dropped, and the recordings in a folder that was.
async function droppedFiles(transfer) {
  const entries = [...transfer.items].map(item => item.webkitGetAsEntry?.()).filter(Boolean);
  if (!entries.some(entry => entry.isDirectory)) return [...transfer.files];
  const inside = async entry => {
    if (entry.isFile) return [await new Promise((done, fail) => entry.file(done, fail))];
    const reader = entry.createReader(), files = [];
    for (let some; (some = await new Promise((done, fail) => reader.readEntries(done, fail))).length;) files.push(...some);
    return (await Promise.all(files.filter(isSound).map(inside))).flat();
  };
  return (await Promise.all(entries.map(inside))).flat();
}

/// A WAV file. @param samples  Int16Array: they are its bytes from 44 on
function wavFile(samples, rate) {
  const view = new DataView(new ArrayBuffer(44));
  const text = (at, word) => [...word].forEach((c, k) => view.setUint8(at + k, c.charCodeAt(0)));
  text(0, 'RIFF'); text(8, 'WAVE'); text(12, 'fmt '); text(36, 'data');
  for (const [at, value] of [[4, 36 + samples.byteLength], [16, 16], [24, rate], [28, 2 * rate], [40, samples.byteLength]])
    view.setUint32(at, value, true);
  for (const [at, value] of [[20, 1], [22, 1], [32, 2], [34, 16]]) view.setUint16(at, value, true); // PCM, mono, 16 bits
  return new Blob([view, samples], {type: 'audio/wav'});
}

/// Has the browser save a file.
function saveFile(blob, name) {
  const link = create('a', {href: URL.createObjectURL(blob), download: name});
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 10000);
}
