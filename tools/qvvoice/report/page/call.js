'use strict';
// The page of one call: its charts, its player, its numbers.

async function buildCharts() {
  const pictures = await Promise.all(data.signals.map(signal => Spectrogram.load(signal.picture)));
  startPictures();
  data.signals.forEach((signal, k) => addPicture(signal, pictures[k], k === data.signals.length - 1));
  addStrips(data.strips);
  data.lanes.forEach((lane, k) => addLane(lane, k === data.lanes.length - 1));
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
  await buildCharts();
  timeChart.ready(() => choose(data.signals[0].id));
  document.documentElement.dataset.ready = 'yes';
}

start();
