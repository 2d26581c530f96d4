'use strict';
// Level curves and equaliser responses: what the words do, and handles that change them.

class LevelCurve {
  /// @param path  "tx" or "rx"
  constructor(state, path) {
    Object.assign(this, {state, path});
    const axis = {from: -90, text: db => String(db).replace('-', '−')};
    this.plot = new Plot(`Level curve of ${path}.agc`, {...axis, to: 0, ticks: decades(-90, 0, 15)},
      {...axis, to: 20, ticks: decades(-75, 20, 15)});
    this.element = create('figure', {className: 'curve', id: `curve-${path}-agc`}, this.plot.element,
      create('figcaption', {}, 'Level out over level in, dB. Drag the knees and the ends.'));
    this.handles = ['lower end, slope_low', 'lower knee', 'upper knee', 'upper end, slope_high'].map((label, k) =>
      this.plot.addHandle(`${path}.agc: ${label}`, {
        move: (x, y) => this.move(k, x, y),
        by: (dx, dy) => { const [x, y] = this.places[k]; this.move(k, x + dx, y + 0.5 * dy); },
        end: () => state.settle()}));
  }

  value(name) { return this.state.view.values[`${this.path}.agc.${name}`]; }

  set(k, values) {
    this.state.edit(Object.entries(values).map(([name, value]) => {
      const key = `${this.path}.agc.${name}`, {least, greatest, step} = this.state.fields.get(key);
      return {key, element: 0, value: clamp(Math.round(value / step) * step, least, greatest)};
    }), `${this.path}.agc handle ${k}`);
  }

  /// Each handle turns or moves the segment that it ends; a knee keeps to its side of the other.
  move(k, x, y) {
    const [, low, high] = this.places, apart = 0.5;
    if (k === 0) this.set(k, {slope_low: (low[1] - y) / Math.max(low[0] + 90, apart)});
    if (k === 1) {
      const knee = Math.min(x, high[0] - apart);
      this.set(k, {knee_low_db: knee, slope_mid: (high[1] - y) / (high[0] - knee)});
    }
    if (k === 2) {
      const knee = clamp(x, low[0] + apart, 0);
      this.set(k, {knee_high_db: knee, knee_gain_db: y - knee});
    }
    if (k === 3) this.set(k, {slope_high: (y - high[1]) / Math.max(-high[0], apart)});
  }

  show() {
    const {state, path, plot} = this, line = state.view.level_curves[path];
    const other = state.views[state.other]?.level_curves[path];
    const low = this.value('knee_low_db'), high = this.value('knee_high_db'), top = high + this.value('knee_gain_db');
    this.places = [line[0], [low, top + this.value('slope_mid') * (low - high)], [high, top], line.at(-1)];
    const own = [...line, ...this.places].sort((one, two) => one[0] - two[0]); // the knees lie between the curve's points
    plot.draw([['unity', [[-90, -90], [0, 0]]], ...(other ? [['other', other]] : []), ['line', own]]);
    this.places.forEach((place, k) => plot.place(this.handles[k], place,
      `in ${place[0].toFixed(1)} dB, out ${place[1].toFixed(1)} dB, gain ${(place[1] - place[0]).toFixed(1)} dB`));
  }
}

/// By how many dB the drawn points must sink: the centre coefficient is the mean of the response, and the file holds
/// coefficients below 1.
function excess(points, top) {
  const steps = 1024, line = [[0, points[0][1]], ...points, [top, points.at(-1)[1]]];
  let sum = 0;
  for (let k = 0; k < steps; ++k) sum += 10 ** (valueAt(line, (k + 0.5) / steps * top) / 20) / steps;
  return Math.max(Math.ceil(200 * Math.log10(sum) - 1e-6) / 10, 0);
}

class ResponseCurve {
  constructor(state, path) {
    Object.assign(this, {state, path, key: `${path}.eq.points`, handles: []});
    const hz = value => value < 1000 ? String(value) : `${value / 1000}k`;
    const ticks = [50, 100, 200, 500, 1000, 2000, 4000, 8000];
    this.plot = new Plot(`Response of ${path}.eq`, {from: 50, to: 8000, log: true, ticks, text: hz},
      {from: -36, to: 18, ticks: decades(-36, 18, 6), text: db => String(db).replace('-', '−')});
    this.taps = create('input', {type: 'number', min: 1, max: 257, step: 2, id: `${path}-eq-taps`});
    this.taps.addEventListener('change', () => this.design(this.wanted));
    const title = 'A point in the widest gap; or double-click into the picture';
    this.add = create('button', {id: `${path}-eq-add`, title}, 'Add point');
    this.add.addEventListener('click', () => this.insert(this.widest));
    this.plot.element.addEventListener('dblclick', event => {
      if (!event.target.closest('.handle')) this.insert(this.plot.at(event));
    });
    this.element = create('figure', {className: 'curve', id: `curve-${path}-eq`}, this.plot.element,
      create('figcaption', {}, this.hint = create('span'), this.add, create('label', {}, 'taps ', this.taps)));
  }

  /// The wanted points: as drawn here, else read off the response that the words hold.
  get wanted() {
    const {state, path} = this, drawn = state.set.points[path], {rate, values, responses} = state.view;
    const db = hz => values[`${path}.eq.half_taps`] > 1 ? Math.round(2 * valueAt(responses[path], hz)) / 2 : 0;
    return drawn?.points ?? [100, 300, 1000, 3000, 6000].filter(hz => hz < rate / 2).map(hz => [hz, db(hz)]);
  }

  get widest() {
    const ends = [this.plot.x.from, ...this.wanted.map(([hz]) => hz), this.plot.x.to];
    const gaps = ends.slice(1).map((hz, k) => hz / ends[k]), k = gaps.indexOf(Math.max(...gaps));
    const hz = Math.sqrt(ends[k] * ends[k + 1]);
    return [hz, valueAt(this.state.view.responses[this.path], hz)];
  }

  design(points, gesture = '') {
    const taps = clamp(2 * Math.floor(this.taps.valueAsNumber / 2) + 1 || 129, 1, 257);
    const lowered = excess(points, this.state.view.rate / 2), value = points.map(([hz, db]) => [hz, db - lowered]);
    this.state.edit([{key: this.key, element: 0, value, taps, drawn: {points, taps, lowered}}], gesture);
  }

  insert([hz, db]) {
    const point = [Math.round(hz), Math.round(2 * db) / 2];
    const points = [...this.wanted.filter(([other]) => other !== point[0]), point].sort((a, b) => a[0] - b[0]);
    this.design(points);
  }

  /// A point stays between its neighbours.
  move(k, hz, db) {
    const points = this.wanted.map(point => [...point]);
    const low = (points[k - 1]?.[0] ?? 19) + 1, high = (points[k + 1]?.[0] ?? this.state.view.rate / 2 + 1) - 1;
    points[k] = [clamp(Math.round(hz), low, high), clamp(Math.round(10 * db) / 10, this.plot.y.from, this.plot.y.to)];
    this.design(points, `${this.key} ${k}`);
  }

  addPoint(k) {
    return this.plot.addHandle(`${this.path}.eq: point ${k + 1}`, {
      move: (x, y) => this.move(k, x, y),
      by: (dx, dy) => { const [x, y] = this.wanted[k]; this.move(k, x * 2 ** (dx / 12), y + 0.5 * dy); },
      end: () => this.state.settle(),
      remove: () => { if (this.wanted.length > 1) this.design(this.wanted.filter((_, other) => other !== k)); }});
  }

  show() {
    const {state, path, plot, wanted} = this, {rate, responses, values} = state.view;
    const other = state.views[state.other]?.responses[path];
    if (plot.x.to !== rate / 2) {
      Object.assign(plot.x, {to: rate / 2, ticks: plot.x.ticks.filter(hz => hz < rate / 2).concat(rate / 2)});
      plot.drawGrid();
    }
    const audible = line => line.filter(([hz]) => hz >= plot.x.from && hz <= rate / 2);
    plot.draw([...(other ? [['other', audible(other)]] : []), ['wanted', wanted], ['line', audible(responses[path])]]);
    while (this.handles.length < wanted.length) this.handles.push(this.addPoint(this.handles.length));
    while (this.handles.length > wanted.length) this.handles.pop().remove();
    wanted.forEach(([hz, db], k) => plot.place(this.handles[k], [hz, db], `${hz} Hz, ${db.toFixed(1)} dB`));
    const drawn = state.set.points[path];
    this.element.classList.toggle('drawn', drawn !== undefined);
    this.hint.textContent = drawn?.lowered ? `Heard ${drawn.lowered.toFixed(1)} dB lower: coefficients stay below 1.`
      : 'Drag the points; Delete removes one.';
    if (document.activeElement === this.taps) return;
    const half = values[`${path}.eq.half_taps`];
    this.taps.value = drawn?.taps ?? (half > 1 ? 2 * half - 1 : 129);
  }
}

/// Puts the curves on top of the sections whose fields they move.
function addCurves(state, panel) {
  const curves = ['tx', 'rx'].flatMap(path => [new LevelCurve(state, path), new ResponseCurve(state, path)]);
  for (const curve of curves) {
    const {module} = curve.element.id.match(/-(?<module>agc|eq)$/).groups;
    const {body, details} = panel.sections.find(({name}) => name === `${curve.path}.${module}`);
    body.prepend(curve.element);
    details.addEventListener('toggle', () => { if (details.open) curve.show(); });
  }
  state.addEventListener('view', () => {
    for (const curve of curves) if (curve.element.closest('details').open) curve.show();
  });
}
