'use strict';
// The controls of one value: each shows it and hands on what is set, edit(value, settled).

/// The fewest digits that stand for a value's step: 0.95, not 0.949981689453125.
function shortest(value, step) {
  for (let digits = 0; digits < 6; ++digits)
    if (Math.abs(+value.toFixed(digits) - value) < step / 2) return String(+value.toFixed(digits));
  return String(+value.toFixed(6));
}

/// Places of a slider over the steps of a field. Powers and sample counts, of which small ones matter as much as
/// great ones, are spread like a logarithm but for the first steps.
class Scale {
  constructor({least, greatest, step, unit}) {
    Object.assign(this, {least, step, steps: Math.round((greatest - least) / step)});
    this.places = Math.min(this.steps, 500);
    this.bend = greatest > 10000 || unit === 'ratio' ? 50 : 0; // steps
  }

  value(place) {
    const share = place / this.places, {bend} = this;
    const step = bend ? bend * ((1 + this.steps / bend) ** share - 1) : share * this.steps;
    return this.least + Math.round(step) * this.step;
  }

  place(value) {
    const step = Math.min(Math.max((value - this.least) / this.step, 0), this.steps), {bend} = this;
    return this.places * (bend ? Math.log1p(step / bend) / Math.log1p(this.steps / bend) : step / this.steps);
  }
}

class SwitchControl {
  constructor(label, edit) {
    this.input = create('input', {type: 'checkbox', className: 'switch', role: 'switch', ariaLabel: label});
    this.input.addEventListener('change', () => edit(this.input.checked, true));
    this.elements = this.inputs = [this.input];
  }

  show(value) { this.input.checked = value; }
}

/// A slider and a box to type into.
class NumberControl {
  /// @param complain  takes what is wrong with what is typed, or ''
  constructor(field, label, edit, complain) {
    const {least, greatest, step} = this.field = field;
    this.scale = new Scale(field);
    this.slider = create('input', {type: 'range', min: 0, max: this.scale.places, step: 1, ariaLabel: `${label}, slider`});
    this.box = create('input', {type: 'number', min: least, max: greatest, step, ariaLabel: label});
    this.elements = this.inputs = [this.slider, this.box];
    const take = (value, shown) => {
      this.busy = shown; // nothing moves under the hand that moves it
      this.value = value;
      edit(value, false);
    };
    this.slider.addEventListener('input', () => {
      take(this.scale.value(+this.slider.value), this.slider);
      this.write();
    });
    this.box.addEventListener('input', () => {
      const value = this.box.valueAsNumber, good = value >= least && value <= greatest;
      const found = Number.isNaN(value) ? 'no number' : this.box.value;
      complain(good ? '' : `${found}: ${least} .. ${greatest}${field.unit && ` ${field.unit}`} is possible`);
      this.box.ariaInvalid = String(!good);
      if (good) take(value, this.box);
    });
    this.box.addEventListener('keydown', event => {
      if (event.ctrlKey || event.metaKey) this.busy = undefined; // an undo shows
    });
    for (const input of this.inputs)
      input.addEventListener('change', () => {
        this.busy = undefined;
        if (this.box.ariaInvalid === 'true') complain('');
        this.box.ariaInvalid = 'false';
        this.write();
        edit(this.value, true);
      });
  }

  show(value) {
    if (value === this.value && !this.busy) return;
    if (!this.busy || !this.inputs.includes(document.activeElement)) this.value = value;
    this.write();
  }

  write() {
    const text = shortest(this.value, this.field.step);
    if (this.busy !== this.box) this.box.value = text;
    if (this.busy !== this.slider) this.slider.value = this.scale.place(this.value);
    this.slider.setAttribute('aria-valuetext', `${text} ${this.field.unit}`.trim());
  }
}

/// The stored half of an equaliser's response as text.
class TapsControl {
  constructor(label, edit, complain) {
    this.box = create('textarea', {rows: 3, spellcheck: false, ariaLabel: label});
    this.elements = this.inputs = [this.box];
    this.box.addEventListener('change', () => {
      const taps = this.box.value.split(/[\s,;]+/).filter(text => text !== '').map(Number);
      const wrong = taps.findIndex(tap => !(Math.abs(tap) <= 1));
      if (wrong >= 0) complain(`value ${wrong + 1} is no number from -1 to 1`);
      else if (taps.length < 1 || taps.length > 129) complain(`${taps.length} values: 1 .. 129 are possible`);
      else { complain(''); edit(taps, true); }
    });
  }

  show(values) {
    if (this.box === document.activeElement) return;
    this.box.value = values.map(value => shortest(value, 2 ** -15)).join(', ');
  }
}
