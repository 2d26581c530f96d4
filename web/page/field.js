'use strict';
// One field of the parameter file: its controls, meaning, findings, and the way back to where one began.

const severities = ['error', 'warning', 'note'];
const worst = findings => severities.find(severity => findings.some(finding => finding.severity === severity));

/// "903–1.4k" Hz, to fit over a narrow column.
function shortRange(low, high) {
  const short = hz => hz < 1000 ? Math.round(hz) : +(hz / 1000).toFixed(1);
  return `${short(low)}–${short(high)}${high < 1000 ? '' : 'k'}`;
}

class FieldRow {
  constructor(state, field, title) {
    this.state = state;
    this.field = field;
    this.name = `${title}: ${field.name}${field.unit && `, ${field.unit}`}`;
    const id = `field-${field.key}`;
    this.note = create('p', {className: 'finding', id: `${id}-finding`});
    this.reset = create('button', {className: 'reset', ariaLabel: `${field.key} back to where one began`}, '↺');
    this.reset.addEventListener('click', () => this.restore());
    const range = field.type === 'switch' ? '' : `${field.least} … ${field.greatest}`.replaceAll('-', '−');
    const reach = create('span', {className: 'range'}, range);
    reach.dataset.unit = field.unit;
    const meaning = create('p', {className: 'meaning', id: `${id}-meaning`}, create('span', {}, field.meaning), reach);
    this.controls = create('div', {className: 'controls'});
    this.element = create('div', {className: `field ${field.type} ${field.extent}`, id},
      create('div', {className: 'name'}, create('span', {className: 'key', title: field.key}, field.name)),
      this.controls, this.reset, meaning, this.note);
    this.element.dataset.key = field.key;
    this.cells = [];
    this.text = `${field.key} ${field.meaning} ${title}`.toLowerCase();
    if (field.extent === 'scalar') this.grow(1);
    if (field.extent === 'taps') this.addTaps();
    if (field.extent === 'groups') this.addTogether();
  }

  control(label, edit) {
    const {field} = this, complain = text => this.find(text ? [{severity: 'error', message: text}] : this.findings);
    const control = field.extent === 'taps' ? new TapsControl(label, edit, complain)
      : field.type === 'switch' ? new SwitchControl(label, edit) : new NumberControl(field, label, edit, complain);
    for (const input of control.inputs)
      input.setAttribute('aria-describedby', `field-${field.key}-meaning field-${field.key}-finding`);
    return control;
  }

  edit(element, value, settled) {
    const {key, type} = this.field, gesture = type === 'switch' ? '' : `${key} ${element}`;
    if (!settled || !gesture) {
      const elements = this.together?.checked ? this.cells.flatMap(({cell}, k) => cell.hidden ? [] : [k]) : [element];
      this.state.edit(elements.map(k => ({key, element: k, value})), gesture);
    }
    if (settled) this.state.settle();
  }

  /// Controls for so many values; those of band groups stand under their Hz.
  grow(count) {
    while (this.cells.length < count) {
      const element = this.cells.length, scalar = this.field.extent === 'scalar';
      const control = this.control(this.name, (value, settled) => this.edit(element, value, settled));
      control.heading = create('span', {className: 'hz'});
      this.cells.push(control);
      this.controls.append(...(scalar ? [...control.elements, create('span', {className: 'unit'}, this.field.unit)]
        : [control.cell = create('div', {className: 'cell'}, control.heading, ...control.elements)]));
    }
    if (this.field.extent === 'groups') this.cells.forEach((control, k) => { control.cell.hidden = k >= count; });
  }

  addTaps() {
    const {key, section} = this.field;
    this.cells = [this.control(this.name, taps => this.state.edit([
      {key: `${section}.half_taps`, element: 0, value: taps.length},
      ...taps.map((value, element) => ({key, element, value}))]))];
    this.controls.append(...this.cells[0].elements);
  }

  addTogether() {
    this.together = create('input', {type: 'checkbox'});
    this.element.querySelector('.name').append(create('span', {className: 'unit'}, this.field.unit),
      create('label', {className: 'together', title: 'One value for all groups'}, this.together, 'all'));
  }

  restore() {
    const {key, extent} = this.field, value = this.state.set.begin.values[key];
    const values = extent === 'scalar' ? [value] : value;
    this.state.edit(values.map((one, element) => ({key, element, value: one})));
  }

  show(view, begin, without) {
    const {key, extent, section} = this.field, value = view.values[key], first = String(begin[key]);
    const used = extent === 'taps' ? value.slice(0, view.values[`${section}.half_taps`]) : value;
    const values = extent === 'groups' ? used : [used];
    this.grow(values.length);
    values.forEach((one, k) => this.cells[k].show(one));
    if (extent === 'groups') view.groups.forEach(([low, high], k) => {
      const heading = shortRange(low, high), {inputs, heading: place} = this.cells[k];
      if (place.textContent === heading) return;
      place.textContent = heading;
      for (const input of inputs) input.ariaLabel = `${this.name}, ${Math.round(low)} to ${Math.round(high)} Hz`;
    });
    this.changed = String(value) !== first;
    this.element.classList.toggle('changed', this.changed);
    this.without = without;
    this.element.classList.toggle('inert', without);
    this.reset.title = `Back to ${first.length < 40 ? first : 'where one began'}`;
    this.findings = view.findings.filter(finding => finding.key === key);
    this.find(this.findings);
  }

  find(findings) {
    const text = findings.map(finding => finding.message).join('\n');
    if (this.note.textContent === text) return;
    this.note.textContent = text;
    this.note.className = `finding ${worst(findings) ?? ''}`;
  }
}
