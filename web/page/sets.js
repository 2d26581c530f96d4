'use strict';
// The bar above the fields: sets A and B, their steps, what differs, and the rate that the call asks for.

class SetBar {
  constructor(state, files, panel) {
    Object.assign(this, {state, files});
    this.tabs = ['a', 'b'].map(slot => this.addTab(slot, panel));
    const tool = (id, text, title, act) => {
      const button = create('button', {id, title, ariaLabel: title}, text);
      button.addEventListener('click', act);
      return button;
    };
    this.copy = tool('copy-set', '', '', () => state.copyToOther());
    const swap = tool('swap-sets', '⇄', 'Swap A and B', () => state.swap());
    byId('sets').after(create('div', {id: 'between-sets'}, this.copy, swap));
    this.undo = tool('undo', '↶', '', () => state.undo());
    this.redo = tool('redo', '↷', '', () => state.redo());
    this.revert = tool('revert', 'Back to start', 'All fields back to where one began', () => state.revert());
    this.frame = create('select', {id: 'frame', ariaLabel: 'Frame length'},
      ...[16, 20].map(ms => create('option', {value: ms}, `${ms} ms`)));
    this.frame.addEventListener('change', () => state.setFrame(+this.frame.value));
    this.rate = create('span', {id: 'rate'});
    byId('steps').append(this.undo, this.redo, this.revert, create('span', {className: 'gap'}), this.rate, this.frame);
    this.family = create('button', {id: 'fit-rate'});
    this.family.addEventListener('click', () => files.start(this.fitting));
    this.mismatch = create('span');
    byId('rate-notice').append(this.mismatch, this.family);
    this.buildDiff();
    state.addEventListener('sets', () => this.show());
    state.addEventListener('view', () => this.showDiff());
  }

  addTab(slot, panel) {
    const tab = create('button', {id: `tab-${slot}`});
    tab.setAttribute('role', 'tab');
    tab.setAttribute('aria-controls', panel.id);
    tab.addEventListener('click', () => this.state.choose(slot));
    tab.addEventListener('keydown', event => {
      if (!['ArrowLeft', 'ArrowRight'].includes(event.key)) return;
      event.stopPropagation();
      this.state.choose(this.state.other);
      byId(`tab-${this.state.slot}`).focus();
    });
    byId('sets').append(tab);
    return tab;
  }

  show() {
    const {state} = this, {set, slot, other} = state;
    byId('parameters').dataset.slot = slot;
    byId('panel').setAttribute('aria-labelledby', `tab-${slot}`);
    this.tabs.forEach((tab, k) => {
      const own = 'ab'[k];
      tab.ariaSelected = String(own === slot);
      tab.tabIndex = own === slot ? 0 : -1;
      tab.replaceChildren(create('b', {}, own.toUpperCase()), ` ${state.sets[own].name}`);
      tab.title = state.sets[own].name;
    });
    this.copy.textContent = `${slot.toUpperCase()} → ${other.toUpperCase()}`;
    this.copy.title = this.copy.ariaLabel = `Copy ${slot.toUpperCase()} to ${other.toUpperCase()}`;
    for (const [button, verb, label] of [[this.undo, 'Undo', state.done], [this.redo, 'Redo', state.undone]]) {
      button.disabled = label === undefined;
      button.title = button.ariaLabel = label === undefined ? verb : `${verb}: ${label}`;
    }
    this.revert.disabled = set.words === set.begin.words;
    this.frame.value = set.frame_ms;
    this.rate.textContent = `${set.rate} Hz`;
    this.showRate();
  }

  /// The preset of the set's family at the call's rate.
  get fitting() {
    const {hello, set, callRate} = this.state;
    const at = (family, frame) => hello.presets.find(({name, rate, frame_ms}) =>
      name.startsWith(`${family}-`) && rate === callRate && frame_ms === frame)?.name;
    return at(set.name.replace(/-(8|16)k-.*$/, ''), set.frame_ms) ?? at(hello.default_family, set.frame_ms);
  }

  showRate() {
    const {set, slot, callRate} = this.state, fits = !callRate || callRate === set.rate;
    byId('rate-notice').hidden = fits;
    if (fits) return;
    this.mismatch.textContent =
      `Set ${slot.toUpperCase()} is for ${set.rate} Hz, the call runs at ${callRate} Hz: it cannot be heard in it.`;
    this.family.textContent = `Start from ${this.fitting}`;
  }

  buildDiff() {
    this.against = create('select', {id: 'diff-against', ariaLabel: 'What to compare'},
      create('option', {value: 'begin'}, 'from where one began'), create('option', {value: 'other'}, 'A against B'));
    this.table = create('div', {className: 'scroll'});
    this.details = create('details', {id: 'diff'}, create('summary', {}, 'What differs'), this.against, this.table);
    this.against.addEventListener('change', () => this.showDiff());
    this.details.addEventListener('toggle', () => this.showDiff());
    byId('set-tools').append(this.details);
    this.showDiff = newestWins(() => this.fillDiff());
  }

  async fillDiff() {
    if (!this.details.open) return;
    const {state} = this, begin = this.against.value === 'begin';
    const rows = await state.diff(this.against.value);
    const line = ({key, a, b, unit, meaning}) => {
      const row = create('tr', {title: meaning}, ...[key, a, b, unit].map(text => create('td', {}, text)));
      row.dataset.key = key;
      return row;
    };
    const heads = ['Field', begin ? state.set.begin.name : 'A', begin ? 'now' : 'B', ''].map(title => create('th', {}, title));
    this.table.replaceChildren(rows.length === 0 ? create('p', {className: 'faint'}, 'Nothing differs.')
      : create('table', {}, create('thead', {}, create('tr', {}, ...heads)), create('tbody', {}, ...rows.map(line))));
  }
}
