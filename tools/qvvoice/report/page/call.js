'use strict';
// The page of one call: its charts, its player, its numbers.

let player;

function paintPictures(pictures) {
  const from = +byId('darkest').value, to = +byId('brightest').value;
  byId('contrast').textContent = `${from} to ${to} dB`;
  const table = colourTable(isDark() ? heat.dark : heat.light, from, to);
  for (const picture of pictures) picture.paint(table);
}

async function buildCharts() {
  const pictures = await Promise.all(data.signals.map(signal => Spectrogram.load(signal.picture)));
  paintPictures(pictures);
  data.signals.forEach((signal, k) => addPicture(signal, pictures[k], k === data.signals.length - 1));
  addStrips(data.strips);
  data.lanes.forEach((lane, k) => addLane(lane, k === data.lanes.length - 1));
  joinCharts();
  const repaint = () => {
    paintPictures(pictures);
    for (const chart of charts.slice(0, pictures.length)) chart.updateOptions({});
  };
  themeListeners.unshift(() => paintPictures(pictures));
  for (const id of ['darkest', 'brightest']) byId(id).addEventListener('input', repaint);
}

function drawPlayhead() {
  const area = timeChart.getArea();
  const x = timeChart.toDomXCoord(player.time);
  byId('playhead').style.display = x < area.x || x > area.x + area.w ? 'none' : '';
  byId('playhead').style.left = `${x}px`;
  byId('clock').textContent = seconds(player.time);
  byId('play').textContent = player.playing ? '❚❚' : '▶';
}

/// While something plays: the head moves, the view follows it or repeats.
function follow() {
  if (!player.playing) return drawPlayhead();
  const [begin, end] = visible();
  if (player.time > end && byId('loop').checked) player.seek(begin);
  else if (player.time > end) show(end, 2 * end - begin);
  drawPlayhead();
  requestAnimationFrame(follow);
}

async function play() {
  const [begin, end] = visible();
  if (player.time < begin || player.time >= Math.min(end, data.sound_seconds - 0.01)) player.seek(begin);
  await player.play();
  follow();
}

const toggle = () => player.playing ? player.pause() : play();

async function choose(id) {
  await player.choose(id);
  for (const button of byId('choices').children) button.ariaChecked = String(button.dataset.id === id);
  follow();
}

function buildTransport() {
  player = new Player(data.signals);
  for (const track of player.tracks.values())
    for (const event of ['pause', 'ended', 'seeked']) track.addEventListener(event, drawPlayhead);
  byId('choices').append(...data.signals.map((signal, k) => {
    const button = create('button', {title: `Hear: ${signal.title} (${k + 1})`}, signal.title);
    button.setAttribute('role', 'radio');
    button.dataset.id = signal.id;
    button.addEventListener('click', () => choose(signal.id));
    return button;
  }));
  byId('play').addEventListener('click', toggle);
  byId('charts').addEventListener('seek', event => { player.seek(event.detail); drawPlayhead(); });
  byId('boost').addEventListener('input', event => {
    player.boost = +event.target.value;
    byId('boost-value').textContent = `${player.boost} dB`;
    player.amplify();
  });
  const middle = () => { const [begin, end] = visible(); return (begin + end) / 2; };
  const actions = {
    'zoom-in': () => zoom(0.5, middle()), 'zoom-out': () => zoom(2, middle()), 'zoom-all': () => show(0, data.seconds)};
  for (const [id, action] of Object.entries(actions)) byId(id).addEventListener('click', action);
  const keys = {
    ' ': toggle, '+': actions['zoom-in'], '=': actions['zoom-in'], '-': actions['zoom-out'], '0': actions['zoom-all'],
    Home: actions['zoom-all'], ArrowLeft: () => pan(-0.2), ArrowRight: () => pan(0.2), t: () => setTheme(!isDark()),
    l: () => { byId('loop').checked = !byId('loop').checked; }};
  document.addEventListener('keydown', event => {
    if (event.ctrlKey || event.metaKey || event.altKey || event.target.matches('input, summary')) return;
    if (event.key === ' ' && event.target.matches('button')) return; // presses that button
    const signal = data.signals[+event.key - 1];
    const action = keys[event.key] ?? (signal && (() => choose(signal.id)));
    if (!action) return;
    event.preventDefault();
    action();
  });
}

/// The figures that matter most, large.
function headlines(rows) {
  return rows.filter(row => row.headline && typeof row.value === 'number').map(row => create('div', {className: 'tile'},
    create('b', {}, `${row.value.toFixed(row.decimals)} ${row.unit}`), create('span', {}, row.meaning)));
}

/// All measures; with another run beside it, that run's value and the difference.
function numberTable(rows) {
  const both = data.other !== undefined;
  const number = (value, decimals, gap, sign = '') => typeof value === 'number'
    ? create('td', {className: 'number'}, (value > 0 ? sign : '') + value.toFixed(decimals))
    : create('td', {className: 'number missing', title: gap ?? ''}, gap === undefined ? '' : 'not measured');
  const change = row => {
    if (typeof row.value !== 'number' || typeof row.other !== 'number') return create('td');
    const cell = number(row.value - row.other, row.decimals, '', '+');
    const verdict = Math.sign(+(row.value - row.other).toFixed(row.decimals)) * row.better;
    if (verdict) cell.classList.add(verdict > 0 ? 'ok' : 'wrong');
    return cell;
  };
  const line = row => {
    const element = create('tr', {}, create('td', {}, row.meaning), number(row.value, row.decimals, row.gap),
      ...(both ? [number(row.other, row.decimals, 'not measured'), change(row)] : []), create('td', {}, row.unit),
      create('td', {className: 'missing'}, row.name + (row.gap ? `: ${row.gap}` : '')));
    element.dataset.name = row.name;
    return element;
  };
  const heads = ['Measure', both ? 'this' : 'value', ...(both ? [data.other, 'difference'] : []), '', ''];
  const head = heads.map((title, k) => create('th', {className: k > 0 && k < heads.length - 2 ? 'number' : ''}, title));
  return create('table', {}, create('thead', {}, create('tr', {}, ...head)), create('tbody', {}, ...rows.map(line)));
}

/// What is wrong and what to do about it, to stand above the charts.
function causes(checks) {
  return checks.filter(check => check.state === 'wrong').map(check =>
    create('li', {}, create('b', {}, `${check.title}: `), `${check.found}. `, create('span', {}, check.next)));
}

function diagnosisTable(checks) {
  const row = check => create('tr', {}, create('td', {className: `state ${check.state}`}, stateWords[check.state]),
    create('td', {}, check.title), create('td', {}, check.found), create('td', {}, check.limit), create('td', {}, check.next));
  const head = ['', 'Check', 'Measured', 'Limit', 'What to do'].map(title => create('th', {}, title));
  return create('table', {}, create('thead', {}, create('tr', {}, ...head)), create('tbody', {}, ...checks.map(row)));
}

async function start() {
  startTheme();
  byId('links').append(...linkBar(data.links));
  byId('about').textContent = data.about;
  byId('made').textContent = data.made;
  byId('verdict').textContent = data.diagnosis.verdict;
  byId('verdict').className = data.diagnosis.state;
  byId('causes').append(...causes(data.diagnosis.checks));
  byId('headlines').append(...headlines(data.numbers));
  byId('numbers').append(create('h2', {}, 'Measures'), numberTable(data.numbers));
  byId('diagnosis').append(create('h2', {}, 'Diagnosis'), diagnosisTable(data.diagnosis.checks));
  buildTransport();
  await buildCharts();
  timeChart.ready(() => choose(data.signals[0].id));
  const redraw = timeChart.getFunctionOption('drawCallback');
  timeChart.updateOptions({drawCallback: (...all) => { redraw?.apply(timeChart, all); drawPlayhead(); }}, true);
  addEventListener('resize', () => requestAnimationFrame(drawPlayhead));
  document.documentElement.dataset.ready = 'yes';
}

start();
