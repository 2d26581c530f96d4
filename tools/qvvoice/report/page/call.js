'use strict';
// The page of one call: its charts, its player, its numbers.

async function buildCharts() {
  const pictures = await Promise.all(data.signals.map(signal => Spectrogram.load(signal.picture)));
  startPictures();
  data.signals.forEach((signal, k) => addPicture(signal, pictures[k], k === data.signals.length - 1));
  addStrips(data.strips);
  data.lanes.forEach((lane, k) => addLane(lane, k === data.lanes.length - 1));
}

/// The page that tunes by ear is packed into this one; it opens with this call.
async function tuneByEar() {
  const sound = id => data.signals.find(signal => signal.id === id).audio;
  const given = {call: {name: data.name, mic: sound('mic'), ref: sound('ref')}, parameters: data.parameters};
  const page = await unpacked(bytesOf(byId('tuner').textContent)).text();
  const json = JSON.stringify(given).replaceAll('<', '\\u003c');
  open(URL.createObjectURL(new Blob([page.replace('"given": null', () => `"given": ${json}`)], {type: 'text/html'})));
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
  byId('numbers').append(create('h2', {}, 'Measures'), numberTable(data.numbers, ['this', data.other]));
  byId('diagnosis').append(create('h2', {}, 'Diagnosis'), diagnosisTable(data.diagnosis.checks));
  player = new Player(data.signals);
  for (const track of player.tracks.values())
    for (const event of ['pause', 'ended', 'seeked']) track.addEventListener(event, drawPlayhead);
  buildTransport(data.signals);
  byId('tune').hidden = !byId('tuner').textContent;
  byId('tune').addEventListener('click', tuneByEar);
  await buildCharts();
  timeChart.ready(() => choose(data.signals[0].id));
  document.documentElement.dataset.ready = 'yes';
}

start();
