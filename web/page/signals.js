'use strict';
// The signals of a call, each a wave form above its spectrogram.

const signalsOf = [
  {id: 'mic', title: 'Microphone', key: 'm', ink: 'series-1'}, {id: 'ref', title: 'Reference', key: 'r', ink: 'series-2'},
  {id: 'a', title: 'Output A', key: 'a', ink: 'series-3'}, {id: 'b', title: 'Output B', key: 'b', ink: 'series-4'}];

class SignalCharts {
  #charts = {}; // by signal: {wave, picture}

  /// In place of all charts that there are.
  async build() {
    while (charts.length) removeChart(charts.at(-1));
    for (const {id, title, ink} of signalsOf) {
      this.#charts[id] = {wave: addWave(title, ink)};
      await breathe();
      this.#charts[id].picture = addPicture({title: ''}, null, id === 'b');
      await breathe();
    }
  }

  /// @param wave  Wave, or null: the signal is not shown
  put(id, wave) {
    const chart = this.#charts[id];
    for (const {figure} of [chart.wave, chart.picture]) figure.hidden = !wave;
    chart.wave.wave = wave;
    if (wave) this.scale(chart.wave);
  }

  /// @param picture  as the engine has it: {columns, rows, column_seconds, row_hz, greys}
  putPicture(id, {columns, rows, column_seconds, row_hz, greys}) {
    Object.assign(data.spectrogram, {column_seconds, row_hz});
    const {picture} = this.#charts[id];
    picture.picture = new Spectrogram(greys, columns, rows);
    redraw(picture);
  }

  /// One scale for all wave forms: the greatest sample fills its chart, or more with a boost.
  scale(changed) {
    const waves = Object.values(this.#charts).map(({wave}) => wave), full = Wave.full;
    Wave.full = Math.max(...waves.map(chart => chart.wave?.peak ?? 1)) / fromDb(player.boost);
    for (const chart of waves) if (chart === changed || Wave.full !== full) redraw(chart);
  }
}
