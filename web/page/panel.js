'use strict';
// Every field of the parameter file, by section: built once, then only what has changed is written.

/// Whether nobody hears of a field: its section is off, or the other canceller has taken its place.
function withoutEffect({key, section}, {values, inert}) {
  const runs = values['aec.enable'], replaced = runs && values['echo_control.enable'];
  if (inert.includes(key)) return true;
  if (key === 'aec.enable') return false;
  if (/^(aec|echo_control)\b/.test(section) && !runs) return true;
  if (/^aec\b|\.cng$/.test(section) && replaced) return true;
  return !key.endsWith('.enable') && values[`${section}.enable`] === false;
}

const isOf = ({name}, key) => key === name || key.slice(0, key.lastIndexOf('.')) === name;

class Panel {
  constructor(state, root) {
    this.state = state;
    this.seen = new WeakSet(); // beginnings for which sections have been opened or closed
    this.search = create('input',
      {type: 'search', id: 'search', placeholder: 'Search fields', ariaLabel: 'Search fields by key or meaning'});
    this.only = create('input', {type: 'checkbox', id: 'only-changed'});
    this.count = create('span', {id: 'search-count', className: 'faint', role: 'status'});
    this.summary = create('summary', {ariaLive: 'polite'});
    this.list = create('ul');
    this.findings = create('details', {id: 'findings'}, this.summary, this.list);
    this.stages = create('dl', {id: 'stages', ariaLabel: 'Stages in the order in which sound passes them'});
    const bar = create('div', {id: 'search-bar'}, this.search, create('label', {}, this.only, 'changed'), this.count);
    root.append(bar, this.findings, this.stages);
    this.sections = state.hello.sections.map(section => this.addSection(section, root));
    this.rows = new Map(this.sections.flatMap(section => section.rows).map(row => [row.field.key, row]));
    this.search.addEventListener('input', () => this.filter());
    this.only.addEventListener('change', () => this.filter());
    state.addEventListener('view', event => { if (event.detail.slot === state.slot) this.show(); });
  }

  /// The section's own switch stands in its heading.
  addSection({name, title}, root) {
    const fields = this.state.hello.fields.filter(field => field.section === name);
    const rows = fields.map(field => new FieldRow(this.state, field, title));
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
      const {own} = section, off = !own || own.without || !view.values[own.field.key];
      section.element.classList.toggle('inert', idle && off);
      section.changes.textContent = changed ? `${changed} changed` : '';
      section.element.dataset.finding = worst(view.findings.filter(({key}) => isOf(section, key))) ?? '';
      if (!this.seen.has(set.begin)) section.details.open = !idle;
      else if (section.idle && !idle) section.details.open = true;
      section.idle = idle;
    }
    this.seen.add(set.begin);
    this.listFindings(view.findings);
    this.listStages(view.stages);
  }

  listStages(stages) {
    const text = JSON.stringify(stages);
    if (text === this.passed) return;
    this.passed = text;
    const stage = ({name, on}) => create('span', {className: on ? 'on' : 'off', title: on ? 'on' : 'off'},
      name.replaceAll('_', ' '), on ? '' : create('span', {className: 'unseen'}, ' (off)'));
    this.stages.replaceChildren(...[['transmit', stages.tx], ['receive', stages.rx]].flatMap(([path, all]) =>
      [create('dt', {}, path), create('dd', {}, ...all.map(stage))]));
  }

  listFindings(findings) {
    const text = JSON.stringify(findings);
    if (text === this.listed) return;
    this.listed = text;
    const counts = severities.map(severity => [severity, findings.filter(finding => finding.severity === severity).length]);
    const some = counts.filter(([, count]) => count).map(([severity, count]) =>
      create('span', {className: severity}, `${count} ${severity}${count > 1 ? 's' : ''}`));
    this.summary.replaceChildren(...(some.length ? some : ['No findings']));
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
    const row = this.rows.get(key), section = this.sections.find(one => isOf(one, key));
    this.search.value = '';
    this.only.checked = false;
    this.filter();
    if (!section) return;
    section.details.open = true;
    (row?.element ?? section.element).scrollIntoView({block: 'center'});
    (row?.cells[0].inputs[0] ?? section.details.firstChild).focus({preventScroll: true});
  }
}
