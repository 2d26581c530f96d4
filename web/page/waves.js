'use strict';
// Wave forms: a chart of one signal whose samples may be exchanged at any time.

const waveBlock = 64; // samples that one pair of extremes stands for

/// Gives the page time to answer.
const breathe = () => new Promise(done => setTimeout(done));

/// Work on many samples, some milliseconds at a time. @param work  is given where a slice begins and ends
async function inSlices(length, work) {
  const slice = 4096 * waveBlock;
  for (let begin = 0; begin < length; begin += slice) {
    if (begin > 0) await breathe();
    work(begin, Math.min(begin + slice, length));
  }
}

/// Least and greatest sample of each block.
class Wave {
  static full = 32768; // sample at the edge of the charts
  static async of(samples, rate) {
    const wave = new Wave(), blocks = Math.ceil(samples.length / waveBlock);
    Object.assign(wave, {samples, rate, low: new Int16Array(blocks), high: new Int16Array(blocks), peak: 1});
    await inSlices(samples.length, (begin, end) => wave.#fill(begin / waveBlock, Math.ceil(end / waveBlock)));
    return wave;
  }

  #fill(begin, end) {
    for (let block = begin; block < end; ++block) {
      const [low, high] = this.#extremes(block * waveBlock, (block + 1) * waveBlock);
      this.low[block] = low;
      this.high[block] = high;
      this.peak = Math.max(this.peak, -low, high);
    }
  }

  #extremes(begin, end) {
    let low = 32767, high = -32768;
    for (let i = begin; i < Math.min(end, this.samples.length); ++i) {
      if (this.samples[i] < low) low = this.samples[i];
      if (this.samples[i] > high) high = this.samples[i];
    }
    return [low, high];
  }

  /// Of the samples from `begin` to `end`, by whole blocks where they are many.
  between(begin, end) {
    if (end - begin < 2 * waveBlock) return this.#extremes(begin, Math.max(end, begin + 1));
    let low = 32767, high = -32768;
    for (let block = Math.floor(begin / waveBlock); block < Math.min(Math.ceil(end / waveBlock), this.low.length); ++block) {
      if (this.low[block] < low) low = this.low[block];
      if (this.high[block] > high) high = this.high[block];
    }
    return [low, high];
  }

  /// A column for every pixel of the chart's area; where samples are apart, the line between them.
  draw(context, area, chart, ink) {
    const [begin, end] = chart.xAxisRange();
    const middle = area.y + area.h / 2, unit = area.h / 2 / Wave.full;
    const y = sample => Math.min(Math.max(middle - sample * unit, area.y), area.y + area.h);
    const samplesPerPixel = (end - begin) * this.rate / area.w;
    context.fillStyle = context.strokeStyle = ink;
    if (samplesPerPixel < 2) return this.#drawLine(context, chart, begin, end, y);
    for (let x = 0; x < area.w; ++x) {
      const from = Math.floor(begin * this.rate + x * samplesPerPixel);
      if (from >= this.samples.length) break;
      const [low, high] = this.between(Math.max(from, 0), Math.floor(from + samplesPerPixel));
      context.fillRect(area.x + x, y(high), 1, Math.max(y(low) - y(high), 1));
    }
  }

  #drawLine(context, chart, begin, end, y) {
    context.beginPath();
    const last = Math.min(Math.ceil(end * this.rate), this.samples.length - 1);
    for (let i = Math.max(Math.floor(begin * this.rate), 0); i <= last; ++i)
      context.lineTo(chart.toDomXCoord(i / this.rate), y(this.samples[i]));
    context.stroke();
  }
}

/// @return the chart; its `wave` may be exchanged, or undefined
function addWave(title, ink) {
  return addChart('wave', title, [[0, null], [data.seconds, null]], {
    timeAxis: false, labels: ['time', 'level'], valueRange: [-1, 1], drawGrid: false, dateWindow: [0, data.seconds],
    legendFormatter: () => '',
    underlayCallback: (context, area, chart) => chart.wave?.draw(context, area, chart, colour(ink)),
    yAxis: {ticker: () => [0.5, -0.5].map(v => ({v, label: `${(20 * Math.log10(Wave.full / 65536)).toFixed(0)} dB`}))},
  });
}
