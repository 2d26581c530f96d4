'use strict';
// Every field of the parameter file, by section: built once, then only what has changed is written.

/// "903–1.4k" Hz, to fit over a narrow column.
function shortRange(low, high) {
  const short = hz => hz < 1000 ? Math.round(hz) : +(hz / 1000).toFixed(1);
  return `${short(low)}–${short(high)}${high < 1000 ? '' : 'k'}`;
}

/// One field: its controls, meaning, findings, and the way back to where one began.
class FieldRow {
  constructor(state, field, title) {
    this.state = state;
    this.field = field;
    this.name = `${title}: ${field.name}${field.unit && `, ${field.unit}`}`;
    const id = `field-${field.key}`;
    this.note = create('p', {className: 'finding', id: `${id}-finding`});
    this.reset = create('button', {className: 'reset', title: 'Back to where one began', ariaLabel: `${field.key} back to where one began`}, '↺');
    this.reset.addEventListener('click', () => this.restore());
    const range = field.type === 'switch' ? '' : `${field.least} … ${field.greatest}`.replaceAll('-', '−');
    const reach = create('span', {className: 'range'}, range);
    reach.dataset.unit = field.unit;
    const meaning = create('p', {className: 'meaning', id: `${id}-meaning`},
      create('span', {}, field.meaning), reach);
    this.controls = create('div', {className: 'controls'});
    this.element = create('div', {className: `field ${field.type} ${field.extent}`, id},
      create('div', {className: 'name'}, create('span', {className: 'key', title: field.key}, field.name)), this.controls, this.reset, meaning, this.note);
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
    for (const input of control.inputs) input.setAttribute('aria-describedby', `field-${field.key}-meaning field-${field.key}-finding`);
    return control;
  }

  edit(element, value, settled) {
    const {key} = this.field;
    if (!settled || this.field.type === 'switch') {
      const elements = this.together?.checked ? this.cells.map((_, k) => k) : [element];
      this.state.edit(elements.map(k => ({key, element: k, value})), this.field.type === 'switch' ? '' : `${key} ${element}`);
    }
    if (settled) this.state.settle();
  }

  /// Controls for so many values; those of band groups stand under their Hz.
  grow(count) {
    while (this.cells.length < count) {
      const element = this.cells.length, scalar = this.field.extent === 'scalar';
      const control = this.control(scalar ? this.name : `${this.name}, group ${element + 1}`, (value, settled) => this.edit(element, value, settled));
      control.heading = create('span', {className: 'hz'});
      this.cells.push(control);
      this.controls.append(...(scalar ? [...control.elements, create('span', {className: 'unit'}, this.field.unit)]
        : [control.cell = create('div', {className: 'cell'}, control.heading, ...control.elements)]));
    }
    if (this.field.extent === 'groups') this.cells.forEach((control, k) => { control.cell.hidden = k >= count; });
  }

  addTaps() {
    const half = this.field.key.replace(/coef$/, 'half_taps');
    this.cells = [this.control(this.name, taps => this.state.edit([{key: half, element: 0, value: taps.length},
      ...taps.map((value, element) => ({key: this.field.key, element, value}))]))];
    this.controls.append(...this.cells[0].elements);
  }

  addTogether() {
    this.together = create('input', {type: 'checkbox'});
    this.element.querySelector('.name').append(create('span', {className: 'unit'}, this.field.unit), create('label', {className: 'together', title: 'One value for all groups'}, this.together, 'all'));
  }

  restore() {
    const {key, extent} = this.field, value = this.state.set.begin.values[key];
    this.state.edit(extent === 'scalar' ? [{key, element: 0, value}] : value.map((one, element) => ({key, element, value: one})));
  }

  show(view, begin, without) {
    const {key, extent} = this.field, value = view.values[key], text = String(value), first = String(begin[key]);
    const values = extent === 'groups' ? value : [value];
    this.grow(values.length);
    values.forEach((one, k) => this.cells[k].show(one));
    if (extent === 'groups') view.groups.forEach(([low, high], k) => {
      const heading = shortRange(low, high), {inputs, heading: place} = this.cells[k];
      if (place.textContent === heading) return;
      place.textContent = heading;
      for (const input of inputs) input.ariaLabel = `${this.name}, ${Math.round(low)} to ${Math.round(high)} Hz`;
    });
    this.changed = text !== first;
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

const severities = ['error', 'warning', 'note'];
const worst = findings => severities.find(severity => findings.some(finding => finding.severity === severity));

/// Whether nobody hears of a field: its section is off, or the other canceller has taken its place.
function withoutEffect({key, section}, {values, inert}) {
  const runs = values['aec.enable'], replaced = runs && values['echo_control.enable'];
  if (inert.includes(key)) return true;
  if (key === 'aec.enable') return false;
  if (/^(aec|echo_control)\b/.test(section) && !runs) return true;
  if (/^aec\b|\.cng$/.test(section) && replaced) return true;
  return !key.endsWith('.enable') && values[`${section}.enable`] === false;
}

class Panel {
  constructor(state, root) {
    this.state = state;
    this.seen = new WeakSet(); // beginnings for which sections have been opened or closed
    this.search = create('input', {type: 'search', id: 'search', placeholder: 'Search fields', ariaLabel: 'Search fields by key or meaning'});
    this.only = create('input', {type: 'checkbox', id: 'only-changed'});
    this.count = create('span', {id: 'search-count', className: 'faint', role: 'status'});
    this.summary = create('summary', {ariaLive: 'polite'});
    this.list = create('ul');
    this.findings = create('details', {id: 'findings'}, this.summary, this.list);
    root.append(create('div', {id: 'search-bar'}, this.search, create('label', {}, this.only, 'changed'), this.count), this.findings);
    this.sections = state.hello.sections.map(section => this.addSection(section, root));
    this.rows = new Map(this.sections.flatMap(section => section.rows).map(row => [row.field.key, row]));
    this.search.addEventListener('input', () => this.filter());
    this.only.addEventListener('change', () => this.filter());
    state.addEventListener('view', event => { if (event.detail.slot === state.slot) this.show(); });
  }

  /// The section's own switch stands in its heading.
  addSection({name, title}, root) {
    const rows = this.state.hello.fields.filter(field => field.section === name).map(field => new FieldRow(this.state, field, title));
    const changes = create('span', {className: 'changes'}), body = create('div', {className: 'body'});
    const details = create('details', {}, create('summary', {}, create('h3', {}, title), changes), body);
    const element = create('section', {className: 'section', id: `section-${name}`}, details);
    const own = rows.find(row => row.field.name === 'enable');
    if (own) {
      element.append(own.controls);
      own.element.classList.add('own');
    }
    body.append(...rows.map(row => row.element));
    root.append(element);
    return {name, rows, own, details, changes, element, body};
  }

  show() {
    const {view, set} = this.state;
    for (const section of this.sections) {
      for (const row of section.rows) row.show(view, set.begin.values, withoutEffect(row.field, view));
      const changed = section.rows.filter(row => row.changed).length;
      const idle = section.rows.every(row => row === section.own || row.without);
      section.element.classList.toggle('inert', idle && (!section.own || section.own.without || !view.values[section.own.field.key]));
      section.changes.textContent = changed ? `${changed} changed` : '';
      section.element.dataset.finding = worst(view.findings.filter(({key}) => key === section.name || key.startsWith(`${section.name}.`))) ?? '';
      if (!this.seen.has(set.begin)) section.details.open = !idle;
      else if (section.idle && !idle) section.details.open = true;
      section.idle = idle;
    }
    this.seen.add(set.begin);
    this.listFindings(view.findings);
  }

  listFindings(findings) {
    const text = JSON.stringify(findings);
    if (text === this.listed) return;
    this.listed = text;
    const counts = severities.map(severity => [severity, findings.filter(finding => finding.severity === severity).length]);
    this.summary.replaceChildren(...(findings.length ? counts.filter(([, count]) => count)
      .map(([severity, count]) => create('span', {className: severity}, `${count} ${severity}${count > 1 ? 's' : ''}`)) : ['No findings']));
    this.list.replaceChildren(...findings.map(({severity, key, message}) => {
      const go = create('button', {className: 'link'}, key || 'whole file');
      go.addEventListener('click', () => this.reveal(key));
      return create('li', {className: severity}, go, ` ${message}`);
    }));
  }

  filter() {
    const words = this.search.value.toLowerCase().split(/\s+/).filter(word => word);
    let found = 0;
    for (const section of this.sections) {
      for (const row of section.rows)
        row.element.hidden = !words.every(word => row.text.includes(word)) || (this.only.checked && !row.changed);
      const shown = section.rows.filter(row => !row.element.hidden).length;
      found += shown;
      section.element.hidden = shown === 0;
      if (words.length || this.only.checked) section.details.open = true;
    }
    this.count.textContent = words.length || this.only.checked ? `${found} field${found === 1 ? '' : 's'}` : '';
  }

  /// Brings a field into sight and gives it the focus.
  reveal(key) {
    const row = this.rows.get(key), section = this.sections.find(({name}) => key === name || key.startsWith(`${name}.`));
    this.search.value = '';
    this.only.checked = false;
    this.filter();
    if (!section) return;
    section.details.open = true;
    (row?.element ?? section.element).scrollIntoView({block: 'center'});
    (row?.cells[0].inputs[0] ?? section.details.firstChild).focus({preventScroll: true});
  }
}
