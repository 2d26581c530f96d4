'use strict';
// What is seen of a live session: levels and states of this moment, curves of the last half minute, delays.

const liveSpan = 30; // s
const talkStates = [['far end silent', 'faint'], ['far end alone', 'series-1'], ['double talk or undecided', 'series-2']];

const dbOf = gain => Math.max(20 * Math.log10(Math.max(gain, 1e-9)), -60);

/// dBFS of a block of 16-bit samples.
function levelOf(samples) {
  let sum = 0;
  for (const sample of samples) sum += sample * sample;
  return 10 * Math.log10(Math.max(sum / samples.length / 32768 ** 2, 1e-10));
}

class LiveView {
  #rows = [];

  constructor() {
    this.tiles = Object.fromEntries([['talk', 'talk state'], ['delay', 'echo delay found'], ['erle', 'echo reduction now'],
      ['mic', 'microphone'], ['ref', 'far end'], ['out', 'output']].map(([name, meaning]) => {
      const value = create('b', {}, '–');
      value.dataset.live = name;
      byId('live-tiles').append(create('div', {className: 'tile'}, value, create('span', {}, meaning)));
      return [name, value];
    }));
    this.charts = [this.#chart('Echo reduction', 'dB', ['all', 'linear filter']),
      this.#chart('Gains', 'dB', ['echo suppressor', 'noise reducer', 'AGC']),
      this.#chart('Levels', 'dBFS', ['microphone', 'far end', 'output'])];
    themeListeners.push(() => { for (const {chart, names} of this.charts) chart.updateOptions({...chartColours(), colors: inks(names)}); });
  }

  #chart(title, unit, names) {
    const {element, readout} = caption(title), box = create('div', {className: 'chart lane'});
    byId('live-charts').append(create('figure', {}, element, box));
    const chart = new Dygraph(box, [[0, ...names.map(() => null)]], {
      ...chartColours(), labels: ['time', ...names], colors: inks(names), legend: 'always', labelsDiv: readout, rightGap: 8,
      legendFormatter: legendOf(unit), interactionModel: {}, drawAxesAtZero: false, xRangePad: 0,
      underlayCallback: (context, area, own) => this.#drawTalk(context, area, own),
      axes: {x: {drawAxis: title === 'Levels', valueFormatter: seconds, axisLabelFormatter: time => `${time} s`},
        y: {axisLabelWidth: innerWidth < 600 ? 72 : 116, pixelsPerLabel: 24, axisLabelFormatter: value => `${+value.toFixed(2)} ${unit}`}}});
    return {chart, names};
  }

  /// Under the curves: who talks.
  #drawTalk(context, area, chart) {
    for (const [k, {time, talk}] of this.#rows.entries()) {
      if (!talk) continue;
      const left = Math.max(chart.toDomXCoord(this.#rows[k - 1]?.time ?? time), area.x);
      context.fillStyle = colour(talkStates[talk][1]);
      context.globalAlpha = 0.14;
      context.fillRect(left, area.y, Math.max(chart.toDomXCoord(time) - left, 0), area.h);
      context.globalAlpha = 1;
    }
  }

  begin() { this.#rows = []; }

  /// @param trace  of the last frame; @param levels  {mic, ref, out} dBFS
  show(time, rate, trace, levels) {
    const [state, ink] = talkStates[trace.talk_state] ?? ['–', 'faint'];
    this.tiles.talk.textContent = state;
    this.tiles.talk.style.color = `var(--${ink})`;
    this.tiles.delay.textContent = trace.echo_delay > 0 ? `${(1000 * trace.echo_delay / rate).toFixed(0)} ms` : 'not yet';
    this.tiles.erle.textContent = `${Math.max(trace.erle_db, -30).toFixed(0)} dB`;
    for (const [name, level] of Object.entries(levels)) this.tiles[name].textContent = `${level.toFixed(0)} dBFS`;
    this.#rows.push({time, talk: trace.talk_state, values: [
      [Math.max(trace.erle_db, -30), Math.max(trace.linear_erle_db, -30)],
      [dbOf(trace.suppressor_gain), dbOf(trace.tx_noise_gain), dbOf(trace.tx_agc_gain)],
      [levels.mic, levels.ref, levels.out]]});
    while (this.#rows[0].time < time - liveSpan) this.#rows.shift();
    this.charts.forEach(({chart}, k) => redrawLive(chart, {
      file: this.#rows.map(row => [row.time, ...row.values[k]]), dateWindow: [Math.max(time - liveSpan, 0), Math.max(time, liveSpan)]}));
  }

  /// @param rows  [what, delay in ms or null, where the number comes from]
  showDelays(rows) {
    byId('live-latency').tBodies[0].replaceChildren(...rows.map(([what, delay, source]) => create('tr', {},
      create('td', {}, what), create('td', {className: 'number'}, delay === null ? 'not known' : `${delay.toFixed(1)} ms`),
      create('td', {className: 'missing'}, source))));
  }
}

const inks = names => names.map((_, k) => colour(`series-${k + 1}`));
const redrawLive = (chart, options) => requestAnimationFrame(() => chart.updateOptions(options));
