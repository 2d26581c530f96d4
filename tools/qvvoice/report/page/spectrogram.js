'use strict';
// Pictures of signals: grey levels (one step per dB) coloured for the page and drawn into a chart.

// Colours of rising lightness, from silence to full level; for light pages the order of lightness is reversed.
const heat = {
  dark: ['#08060f', '#1d1147', '#491078', '#7a2382', '#aa337d', '#d9466b', '#f5705c', '#fda469', '#fed799', '#fffde0'],
  light: ['#fbfbfa', '#fdebc8', '#fdcf92', '#fba66c', '#f1755e', '#d34a6c', '#a0347e', '#6a2382', '#371069', '#0c0724'],
};

/// [256] colours as 32-bit pixels: grey levels from `from` dB to `to` dB run through the map.
function colourTable(stops, from, to) {
  const channel = (stop, k) => parseInt(stops[stop].slice(1 + 2 * k, 3 + 2 * k), 16);
  const table = new Uint32Array(256);
  const bytes = new Uint8ClampedArray(table.buffer);
  for (let grey = 0; grey < 256; ++grey) {
    const level = grey - data.spectrogram.grey_of_full_scale;
    const place = Math.min(Math.max((level - from) / Math.max(to - from, 1), 0), 1) * (stops.length - 1);
    const below = Math.min(Math.floor(place), stops.length - 2);
    for (let k = 0; k < 3; ++k)
      bytes[4 * grey + k] = channel(below, k) + (place - below) * (channel(below + 1, k) - channel(below, k));
    bytes[4 * grey + 3] = 255;
  }
  return table;
}

class Spectrogram {
  static colours; // [256] pixels of the grey levels; pictures painted otherwise are painted anew when drawn

  static async load(png) {
    const image = new Image();
    image.src = `data:image/png;base64,${png}`;
    await image.decode();
    const {naturalWidth: width, naturalHeight: height} = image;
    const context = create('canvas', {width, height}).getContext('2d');
    context.drawImage(image, 0, 0);
    const words = new Uint32Array(context.getImageData(0, 0, width, height).data.buffer);
    return new Spectrogram(Uint8Array.from(words, word => word & 255), width, height);
  }

  /// @param greys  [height][width], the highest frequency first
  constructor(greys, width, height) {
    this.greys = greys;
    this.canvas = create('canvas', {width, height});
    this.pixels = new ImageData(width, height);
  }

  #paint() {
    this.painted = Spectrogram.colours;
    const words = new Uint32Array(this.pixels.data.buffer);
    for (let i = 0; i < words.length; ++i) words[i] = this.painted[this.greys[i]];
    this.canvas.getContext('2d').putImageData(this.pixels, 0, 0);
  }

  /// dB, or null outside the picture.
  levelAt(time, hz) {
    const column = Math.round(time / data.spectrogram.column_seconds);
    const row = this.canvas.height - 1 - Math.round(hz / data.spectrogram.row_hz);
    if (column < 0 || column >= this.canvas.width || row < 0 || row >= this.canvas.height) return null;
    return this.greys[row * this.canvas.width + column] - data.spectrogram.grey_of_full_scale;
  }

  /// Draws the part between two times (s) and two frequencies (kHz) over an area of a chart.
  draw(context, area, [begin, end], [low, high]) {
    if (this.painted !== Spectrogram.colours) this.#paint();
    const column = time => time / data.spectrogram.column_seconds + 0.5;
    const row = khz => this.canvas.height - (1000 * khz / data.spectrogram.row_hz + 0.5);
    const width = column(end) - column(begin);
    context.save();
    context.beginPath();
    context.rect(area.x, area.y, area.w, area.h);
    context.clip();
    context.imageSmoothingEnabled = width > area.w;
    context.imageSmoothingQuality = 'high';
    context.drawImage(this.canvas, column(begin), row(high), width, row(low) - row(high), area.x, area.y, area.w, area.h);
    context.restore();
  }
}
