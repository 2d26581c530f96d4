'use strict';
// Parameters in and out: presets, files as text and as packed words, links that carry a set.

/// A link's bytes: this number, the frame length in ms, the 500 words (little-endian), the name; deflated, base64url.
const linkVersion = 1;

async function through(bytes, stream) {
  return new Uint8Array(await new Response(new Blob([bytes]).stream().pipeThrough(stream)).arrayBuffer());
}

function wordBytes(words) {
  const view = new DataView(new ArrayBuffer(2 * words.length));
  words.forEach((word, k) => view.setInt16(2 * k, word, true));
  return new Uint8Array(view.buffer);
}

async function toLink({words, name, frame_ms}) {
  const bytes = [linkVersion, frame_ms, ...wordBytes(words), ...new TextEncoder().encode(name)];
  const packed = await through(Uint8Array.from(bytes), new CompressionStream('deflate'));
  const text = btoa(String.fromCharCode(...packed)).replaceAll('+', '-').replaceAll('/', '_').replaceAll('=', '');
  return `#p=${text}`;
}

/// @return {bytes: the packed words, name, frame_ms}  @throws what is wrong with the link
async function fromLink(hash) {
  const wrong = reason => new Error(`The link's parameters cannot be read: ${reason}. It may have been cut; copy it again.`);
  const text = hash.slice(3);
  if (!/^[\w-]+$/.test(text)) throw wrong('it holds signs that no such link has');
  let bytes;
  try {
    const packed = bytesOf(text.replaceAll('-', '+').replaceAll('_', '/'));
    bytes = await through(packed, new DecompressionStream('deflate'));
  } catch {
    throw wrong('they are damaged or not whole');
  }
  if (bytes[0] !== linkVersion) throw wrong(`their form is number ${bytes[0]}, this page reads ${linkVersion}`);
  if (bytes.length < 1002) throw wrong(`${bytes.length - 2} bytes of words, not 1000`);
  return {bytes: bytes.slice(2, 1002), frame_ms: bytes[1], name: new TextDecoder().decode(bytes.slice(1002))};
}

class Files {
  constructor(client, state) {
    Object.assign(this, {client, state});
    this.preset = create('select', {id: 'preset', ariaLabel: 'Start from a preset'}, create('option', {value: ''}, 'Start from…'),
      ...state.hello.presets.map(({name, about}) => create('option', {value: name, title: about}, name)));
    this.preset.addEventListener('change', () => { this.start(this.preset.value); this.preset.value = ''; });
    this.input = create('input', {type: 'file', id: 'open-file', accept: '.toml,.para,.txt,.bin', hidden: true});
    this.input.addEventListener('change', () => { this.open(this.input.files[0]); this.input.value = ''; });
    const buttons = [
      ['open', 'Open…', 'A parameter file, text or packed; may be dropped anywhere on the page', () => this.input.click()],
      ['save-text', 'Save .toml', 'As text (.toml), every value with its meaning (Ctrl+S)', () => this.saveText()],
      ['save-packed', 'Save .para', 'The 1000 bytes that the library reads (.para)', () => this.savePacked()],
      ['copy-link', 'Copy link', 'A link to this page that carries the parameters', () => this.copyLink()],
    ].map(([id, text, title, act]) => {
      const button = create('button', {id, title}, text);
      button.addEventListener('click', () => act().catch(error => showMessage(error.message, 'wrong')));
      return button;
    });
    byId('files').append(this.preset, this.input, ...buttons);
    addEventListener('hashchange', () => this.takeLink());
  }

  get stem() { return this.state.set.name.replace(/^.*[/\\]/, '').replace(/\.\w+$/, '') || 'parameters'; }

  /// The first parameters of the page: of its link, of the file that it was given, or a preset.
  async begin() {
    const {state} = this, {hello} = state, parameters = data.given?.parameters;
    const first = hello.presets.find(({name, rate, frame_ms}) => name.startsWith(`${hello.default_family}-`) && rate === 16000 && frame_ms === 20);
    await state.load(await this.client.ask('preset', {name: first.name}), ['a', 'b']);
    if (parameters) {
      const {name, bytes, frame_ms} = parameters;
      await state.load({...await this.client.ask('read', {name, bytes: bytesOf(bytes)}), frame_ms}, ['a', 'b']);
    }
    await this.takeLink();
  }

  start(preset, slots) {
    return this.attempt(async () => {
      await this.state.load(await this.client.ask('preset', {name: preset}), slots);
      showMessage(`Started from ${preset}.`);
    });
  }

  /// What goes wrong is said, and what was there stays.
  async attempt(work) {
    try {
      await work();
    } catch (error) {
      showMessage(error.message, 'wrong');
    }
  }

  async open(file) { await this.read(file.name, new Uint8Array(await file.arrayBuffer())); }

  read(name, bytes, slots) {
    return this.attempt(async () => {
      const file = await this.client.ask('read', {name, bytes});
      const said = file.findings.map(({line, severity, key, message}) => `${line ? `line ${line}: ` : ''}${severity}: ${key && `${key}: `}${message}`);
      if (file.findings.some(({severity}) => severity === 'error')) throw new Error([`${name} is left aside.`, ...said].join('\n'));
      await this.state.load(file, slots);
      showMessage([`Read ${name}.`, ...said].join('\n'), said.length ? 'note' : 'ok');
    });
  }

  takeLink() {
    if (!location.hash.startsWith('#p=') || location.hash === this.link) return undefined;
    return this.attempt(async () => {
      const {bytes, name, frame_ms} = await fromLink(location.hash);
      await this.state.load({...await this.client.ask('read', {name, bytes}), name, frame_ms});
      showMessage(`Took ${name || 'the parameters'} from the link.`);
    });
  }

  async saveText() {
    const {words, frame_ms} = this.state.set, {text} = await this.client.ask('text', {words});
    const whole = text.replace(/^rate = .*$/m, rate => `${rate}\nframe_ms = ${frame_ms}`);
    saveFile(new Blob([whole], {type: 'application/toml'}), `${this.stem}.toml`);
  }

  async savePacked() {
    const {bytes} = await this.client.ask('packed', {words: this.state.set.words});
    saveFile(new Blob([bytes]), `${this.stem}.para`);
  }

  async copyLink() {
    this.link = await toLink(this.state.set);
    location.replace(this.link);
    const {href} = location;
    try {
      await navigator.clipboard.writeText(href);
      showMessage(`Copied a link of ${href.length} characters; it stands in the address bar too.`);
    } catch {
      showMessage('The link stands in the address bar; the browser does not let this page copy it.', 'note');
    }
  }
}
