'use strict';
// A small picture with axes, lines and handles, which a pointer drags and keys move.

function svg(tag, attributes = {}, ...content) {
  const element = document.createElementNS('http://www.w3.org/2000/svg', tag);
  for (const [name, value] of Object.entries(attributes)) element.setAttribute(name, value);
  element.append(...content);
  return element;
}

const clamp = (value, low, high) => Math.min(Math.max(value, low), high);

/// Axes, lines and handles. @param x, y  {from, to, ticks: [...], text(value)}; x.log: spread like a logarithm
class Plot {
  constructor(label, x, y) {
    Object.assign(this, {x, y, width: 420, height: 236, left: 34, right: 12, top: 10, bottom: 24});
    this.grid = svg('g', {class: 'grid'});
    this.lines = svg('g');
    this.handles = svg('g');
    this.readout = svg('text', {class: 'readout', x: this.left + 8, y: this.top + 15});
    const viewBox = `0 0 ${this.width} ${this.height}`;
    this.element = svg('svg', {class: 'plot', viewBox, role: 'group', 'aria-label': label},
      this.grid, this.lines, this.readout, this.handles);
    this.drawGrid();
  }

  share(value) {
    const {from, to, log} = this.x;
    return log ? Math.log(value / from) / Math.log(to / from) : (value - from) / (to - from);
  }
  get across() { return this.width - this.left - this.right; }
  get down() { return this.height - this.top - this.bottom; }
  px(value) { return this.left + clamp(this.share(value), 0, 1) * this.across; }
  py(value) { return this.top + clamp((this.y.to - value) / (this.y.to - this.y.from), 0, 1) * this.down; }

  /// Values under a pointer.
  at(event) {
    const box = this.element.getBoundingClientRect(), scale = this.width / box.width, {from, to, log} = this.x;
    const share = clamp(((event.clientX - box.left) * scale - this.left) / this.across, 0, 1);
    const rise = clamp(((event.clientY - box.top) * scale - this.top) / this.down, 0, 1);
    return [log ? from * (to / from) ** share : from + share * (to - from), this.y.to - rise * (this.y.to - this.y.from)];
  }

  drawGrid() {
    const {x, y} = this, text = (place, content, anchor) => svg('text', {...place, 'text-anchor': anchor}, content);
    this.grid.replaceChildren(
      ...x.ticks.flatMap(tick => [svg('path', {d: `M${this.px(tick)} ${this.top}V${this.height - this.bottom}`}),
        text({x: this.px(tick), y: this.height - 8}, x.text(tick), 'middle')]),
      ...y.ticks.flatMap(tick => [svg('path', {d: `M${this.left} ${this.py(tick)}H${this.width - this.right}`}),
        text({x: this.left - 5, y: this.py(tick) + 4}, y.text(tick), 'end')]));
  }

  /// @param lines  [[class, [[x, y], ...]], ...]
  draw(lines) {
    this.lines.replaceChildren(...lines.map(([kind, points]) => svg('path', {class: kind,
      d: points.map(([x, y], k) => `${k ? 'L' : 'M'}${this.px(x).toFixed(1)} ${this.py(y).toFixed(1)}`).join('')})));
  }

  /// A place to take hold of. @param actions  {move(x, y), end(), by(dx, dy), remove()}; by: steps of arrow keys
  addHandle(label, actions) {
    const handle = svg('g', {class: 'handle', tabindex: 0, role: 'slider', 'aria-label': label,
      'aria-orientation': 'vertical', 'aria-valuemin': this.y.from, 'aria-valuemax': this.y.to},
      svg('circle', {class: 'reach', r: 15}), svg('circle', {class: 'knob', r: 6}));
    handle.addEventListener('pointerdown', event => {
      handle.setPointerCapture(event.pointerId);
      handle.focus();
      event.preventDefault();
    });
    handle.addEventListener('pointermove', event => {
      if (handle.hasPointerCapture(event.pointerId)) actions.move(...this.at(event));
    });
    handle.addEventListener('lostpointercapture', () => actions.end());
    handle.addEventListener('keydown', event => {
      const step = {ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, 1], ArrowDown: [0, -1]}[event.key];
      const far = event.shiftKey ? 5 : 1;
      if (step) actions.by(far * step[0], far * step[1]);
      else if (['Delete', 'Backspace'].includes(event.key) && actions.remove) actions.remove();
      else return;
      event.preventDefault();
      event.stopPropagation();
      actions.end();
    });
    for (const event of ['focus', 'pointerenter'])
      handle.addEventListener(event, () => { this.shown = handle; this.tell(); });
    this.handles.append(handle);
    return handle;
  }

  place(handle, [x, y], text) {
    handle.setAttribute('transform', `translate(${this.px(x)} ${this.py(y)})`);
    handle.setAttribute('aria-valuenow', y.toFixed(2));
    handle.setAttribute('aria-valuetext', text);
    this.tell();
  }

  tell() { this.readout.textContent = this.shown?.isConnected ? this.shown.getAttribute('aria-valuetext') : ''; }
}

/// Value of a line between its points, which rise in x.
function valueAt(line, x) {
  const k = clamp(line.findIndex(point => point[0] >= x), 1, line.length - 1);
  const [[x0, y0], [x1, y1]] = [line[k - 1], line[k]];
  return y0 + (y1 - y0) * clamp((x - x0) / (x1 - x0), 0, 1);
}

const decades = (from, to, step) => Array.from({length: Math.floor((to - from) / step) + 1}, (_, k) => from + k * step);
