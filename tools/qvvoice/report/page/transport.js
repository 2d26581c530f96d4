'use strict';
// Playback and zoom of a page of charts; its player is the page's own.

let player;
let region = null; // [begin, end] in s, marked to be repeated

/// What a loop repeats.
const repeated = () => region ?? visible();

/// Marks a part of the time; one that is too short to be meant takes the mark away.
function mark(begin, end) {
  const [from, to] = [begin, end].map(time => Math.min(Math.max(time, 0), data.sound_seconds)).sort((a, b) => a - b);
  region = to - from < 0.02 ? null : [from, to];
  if (region) byId('loop').checked = true;
  drawPlayhead();
}

const markFrom = () => mark(player.time, region?.[1] ?? visible()[1]);
const markTo = () => mark(region?.[0] ?? visible()[0], player.time);

function placeOverlay(id, begin, end) {
  const area = timeChart.getArea();
  const [left, right] = [begin, end].map(time => Math.min(Math.max(timeChart.toDomXCoord(time), area.x), area.x + area.w));
  const style = byId(id).style;
  style.display = begin > visible()[1] || end < visible()[0] ? 'none' : '';
  style.left = `${left}px`;
  style.width = `${right - left}px`;
}

function drawPlayhead() {
  if (!timeChart) return;
  placeOverlay('playhead', player.time, player.time);
  byId('region').hidden = !region;
  if (region) placeOverlay('region', ...region);
  byId('clock').textContent = seconds(player.time);
  byId('play').textContent = player.playing ? '❚❚' : '▶';
}

let following = 0; // the frame of the screen that is waited for

/// While something plays: the head moves, the view follows it or repeats.
function follow() {
  cancelAnimationFrame(following);
  const looping = byId('loop').checked;
  player.repeat(looping ? repeated() : null);
  const [begin, end] = visible();
  if (player.playing && !looping && player.time > end) show(end, 2 * end - begin);
  drawPlayhead();
  if (player.playing) following = requestAnimationFrame(follow);
}

async function play() {
  const [begin, end] = byId('loop').checked ? repeated() : visible();
  if (player.time < begin || player.time >= Math.min(end, data.sound_seconds - 0.01)) player.seek(begin);
  await player.play();
  follow();
}

const toggle = () => player.playing ? player.pause() : play();

async function choose(id) {
  await player.choose(id);
  for (const button of byId('choices').children) {
    button.ariaChecked = String(button.dataset.id === id);
    button.tabIndex = button.dataset.id === id ? 0 : -1;
  }
  follow();
}

/// Arrow keys go round the signals, as in any group of radio buttons.
function stepChoice(event) {
  const step = {ArrowRight: 1, ArrowDown: 1, ArrowLeft: -1, ArrowUp: -1}[event.key];
  if (!step) return;
  const buttons = [...byId('choices').children].filter(button => !button.disabled);
  const next = buttons.at((buttons.indexOf(event.target) + step) % buttons.length);
  event.preventDefault();
  event.stopPropagation();
  next.focus();
  choose(next.dataset.id);
}

/// Whether a key belongs to the element that has the focus.
function takesKey(element, key) {
  if (element.matches('input[type="range"], [role="slider"]')) return /^(Arrow|Home|End|Page)/.test(key);
  if (element.matches('button, input[type="checkbox"]')) return key === ' ';
  return element.matches('input, select, textarea, summary');
}

/// @param signals  [{id, title, key}] to be heard one at a time by a button, a digit and, if given, a letter
/// @param ownKeys  {key: action} of the page beyond those that all pages have
function buildTransport(signals, ownKeys = {}) {
  byId('choices').append(...signals.map((signal, k) => {
    const button = create('button', {title: `Hear: ${signal.title} (${[k + 1, signal.key].filter(Boolean).join(' or ')})`},
      signal.title);
    button.setAttribute('role', 'radio');
    button.dataset.id = signal.id;
    button.addEventListener('click', () => choose(signal.id));
    return button;
  }));
  byId('choices').addEventListener('keydown', stepChoice);
  byId('charts').addEventListener('seek', event => { player.seek(event.detail); drawPlayhead(); });
  byId('charts').addEventListener('range', drawPlayhead);
  addEventListener('resize', () => requestAnimationFrame(drawPlayhead));
  byId('boost').addEventListener('input', event => {
    player.boost = +event.target.value;
    byId('boost-value').textContent = `${player.boost} dB`;
    player.amplify();
  });
  const middle = () => { const [begin, end] = visible(); return (begin + end) / 2; };
  const actions = {
    play: toggle, 'zoom-in': () => zoom(0.5, middle()), 'zoom-out': () => zoom(2, middle()),
    'zoom-all': () => show(0, data.seconds)};
  for (const [id, action] of Object.entries(actions)) byId(id).addEventListener('click', action);
  const keys = {
    ' ': toggle, '+': actions['zoom-in'], '=': actions['zoom-in'], '-': actions['zoom-out'], '0': actions['zoom-all'],
    Home: actions['zoom-all'], ArrowLeft: () => pan(-0.2), ArrowRight: () => pan(0.2), t: () => setTheme(!isDark()),
    l: () => byId('loop').click(), '[': markFrom, ']': markTo, Escape: () => mark(0, 0), ...ownKeys};
  signals.forEach((signal, k) => { keys[k + 1] = keys[signal.key] = () => byId('choices').children[k].click(); });
  document.addEventListener('keydown', event => {
    if (event.ctrlKey || event.metaKey || event.altKey || takesKey(event.target, event.key)) return;
    const action = keys[event.key];
    if (!action) return;
    event.preventDefault();
    action();
  });
}
