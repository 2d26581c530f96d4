'use strict';
// Charts of one time axis: pictures, lanes of numbers, strips of states. All zoom and pan together.

const charts = [];
let timeChart; // any of them: they share their time axis

const visible = () => timeChart.xAxisRange();

/// Shows a part of the call, kept within it.
function show(begin, end) {
  const length = Math.min(Math.max(end - begin, 0.05), data.seconds);
  const start = Math.min(Math.max(begin, 0), data.seconds - length);
  timeChart.updateOptions({dateWindow: [start, start + length]});
}

/// @param factor  below 1 zooms in
function zoom(factor, about) {
  const [begin, end] = visible();
  show(about - factor * (about - begin), about + factor * (end - about));
}

function pan(share) {
  const [begin, end] = visible();
  show(begin + share * (end - begin), end + share * (end - begin));
}

const timeAt = (chart, event) => chart.toDataXCoord(Dygraph.pageX(event) - Dygraph.findPos(chart.graphDiv).x);

/// The charts' own model, less what would keep a finger from scrolling the page, plus the wheel.
const interaction = (() => {
  const own = Dygraph.defaultInteractionModel;
  const sideways = begin => (event, chart, context) => {
    const touch = {touches: event.touches, changedTouches: event.changedTouches, preventDefault() {}};
    begin(touch, chart, context);
    if (context.touchDirections) context.touchDirections = {x: true, y: false};
  };
  const wheel = (event, chart) => {
    if (event.ctrlKey || event.metaKey) zoom(Math.exp(event.deltaY / 300), timeAt(chart, event));
    else if (event.shiftKey || Math.abs(event.deltaX) > Math.abs(event.deltaY)) pan((event.deltaX || event.deltaY) / 800);
    else return;
    event.preventDefault();
  };
  return {...own, touchstart: sideways(own.touchstart), touchend: sideways(own.touchend), wheel};
})();

const seconds = time => `${time.toFixed(2)} s`;

function chartColours() {
  return {axisLineColor: colour('line'), gridLineColor: colour('grid')};
}

function caption(title) {
  const readout = create('span', {className: 'readout'});
  const element = create('figcaption', {}, create('strong', {}, title), readout);
  return {element, readout};
}

/// A chart below those that are there. @param kind  class that gives it its height
function addChart(kind, title, rows, options) {
  const {element, readout} = caption(title);
  const box = create('div', {className: `chart ${kind} ${options.timeAxis ? 'axis' : ''}`, style: options.style ?? ''});
  byId('charts').append(create('figure', {}, element, box));
  const chart = new Dygraph(box, rows, {
    ...chartColours(),
    legend: 'always', labelsDiv: readout, highlightCircleSize: 2.5, rightGap: 8,
    interactionModel: interaction, drawAxesAtZero: false, xRangePad: 0,
    clickCallback: event => byId('charts').dispatchEvent(new CustomEvent('seek', {detail: timeAt(chart, event)})),
    ...options,
    axes: {x: {drawAxis: options.timeAxis, valueFormatter: seconds, axisLabelFormatter: time => `${+time.toFixed(3)} s`},
           y: {axisLabelWidth: 116, pixelsPerLabel: 24, ...options.yAxis}},
  });
  chart.title = title;
  charts.push(chart);
  return chart;
}

function addPicture(signal, picture, timeAxis) {
  const top = data.rate / 2000;
  const rows = [[0, null], [data.seconds, null]];
  const chart = addChart('picture', signal.title, rows, {
    timeAxis, labels: ['time', 'kHz'], valueRange: [0, top], legendFormatter: () => '', drawGrid: false,
    dateWindow: [0, data.seconds],
    underlayCallback: (context, area, own) => picture.draw(context, area, own.xAxisRange(), own.yAxisRange()),
    yAxis: {axisLabelFormatter: khz => `${+khz.toFixed(2)} kHz`},
  });
  const readout = chart.getOption('labelsDiv');
  chart.graphDiv.addEventListener('mousemove', event => {
    const time = timeAt(chart, event);
    const khz = chart.toDataYCoord(Dygraph.pageY(event) - Dygraph.findPos(chart.graphDiv).y);
    const level = picture.levelAt(time, 1000 * khz);
    readout.textContent = level === null ? '' : `${seconds(time)}  ${khz.toFixed(2)} kHz  ${level} dB`;
  });
  chart.graphDiv.addEventListener('mouseleave', () => { readout.textContent = ''; });
  return chart;
}

/// Series of another run have the colours of this run's, dashed.
function seriesLook(lane) {
  const name = series => series.label.replace(', other', '');
  const names = [...new Set(lane.series.map(name))];
  const place = series => names.indexOf(name(series));
  return {
    colors: lane.series.map(series => colour(`series-${place(series) % 4 + 1}`)),
    series: Object.fromEntries(lane.series.map(series => [series.label, {
      ...(series.other && {strokePattern: [5, 3]}),
      ...(series.points && {drawPoints: true, pointSize: 2.5, strokeWidth: 0, connectSeparatedPoints: false})}])),
  };
}

/// From the lowest to the highest value, the band's included, with some room.
function rangeWithBand(lane) {
  const values = lane.series.flatMap(series => series.values).concat(lane.band.low, lane.band.high).filter(v => v !== null);
  const low = values.reduce((a, b) => Math.min(a, b)), high = values.reduce((a, b) => Math.max(a, b));
  const room = 0.08 * Math.max(high - low, 1);
  return [low - room, high + room];
}

function drawBand(context, area, chart, lane) {
  context.fillStyle = colour('band');
  lane.band.low.forEach((low, i) => {
    const left = Math.max(chart.toDomXCoord(i * lane.step), area.x);
    const right = Math.min(chart.toDomXCoord((i + 1) * lane.step), area.x + area.w);
    const top = chart.toDomYCoord(lane.band.high[i]);
    if (low !== null && right > left) context.fillRect(left, top, Math.ceil(right) - left, chart.toDomYCoord(low) - top);
  });
}

function addLane(lane, timeAxis) {
  const rows = lane.series[0].values.map((_, i) => [i * lane.step, ...lane.series.map(series => series.values[i])]);
  const chart = addChart('lane', lane.title, rows, {
    labels: ['time', ...lane.series.map(series => series.label)], ...seriesLook(lane),
    ...(lane.band && {valueRange: rangeWithBand(lane),
      underlayCallback: (context, area, own) => drawBand(context, area, own, lane)}),
    timeAxis, stepPlot: lane.steps, legendFormatter: legendOf(lane.unit, lane.band), dateWindow: [0, data.seconds],
    yAxis: {axisLabelFormatter: value => `${+value.toFixed(2)} ${lane.unit}`},
  });
  themeListeners.push(() => chart.updateOptions({colors: seriesLook(lane).colors}));
}

/// Names in their colours, with the values under the mouse.
const legendOf = (unit, band) => shown => {
  const values = shown.series.map(series => {
    const value = shown.x === undefined || series.y === undefined || series.y === null || Number.isNaN(series.y)
      ? '' : ` <b>${(+series.y).toFixed(1)} ${unit}</b>`;
    return `<span style="color:${series.color}">${series.labelHTML}</span>${value}`;
  });
  const key = band ? [`<span style="color:var(--band-key)">&#9632;</span> ${band.label}`] : [];
  return (shown.x === undefined ? [] : [seconds(shown.x)]).concat(values, key).join('&ensp;');
};

/// One row per kind of state, a bar wherever the state holds.
function addStrips(strips) {
  const rows = [[0, null], [data.seconds, null]];
  const height = strips.rows.length;
  const chart = addChart('strips', strips.title, rows, {
    style: `--rows: ${height}`, timeAxis: false, labels: ['time', 'state'], valueRange: [height, 0], drawGrid: false, dateWindow: [0, data.seconds], legendFormatter: () => '',
    underlayCallback: (context, area, own) => drawStrips(context, area, own, strips),
    yAxis: {ticker: () => strips.rows.map((row, k) => ({v: k + 0.5, label: row.label}))},
  });
  const key = [...new Map(strips.rows.flatMap(row => row.states.filter(state => state.label).map(state => [state.label, state])))];
  chart.getOption('labelsDiv').innerHTML =
    key.map(([label, state]) => `<span style="color:var(--${state.colour})">&#9632;</span> ${label}`).join('&ensp;');
  return chart;
}

function drawStrips(context, area, chart, strips) {
  const [begin, end] = chart.xAxisRange();
  const pitch = area.h / strips.rows.length;
  strips.rows.forEach((row, k) => {
    for (const [from, to, state] of row.runs) {
      if (to < begin || from > end) continue;
      const left = Math.max(chart.toDomXCoord(from), area.x);
      const right = Math.min(chart.toDomXCoord(to), area.x + area.w);
      context.fillStyle = colour(row.states[state].colour);
      context.fillRect(left, area.y + k * pitch + 2, Math.max(right - left, row.marks ? 3 : 1), pitch - 4);
    }
  });
}

/// To be called when all charts are there.
function joinCharts() {
  timeChart = charts[0];
  Dygraph.synchronize(charts, {range: false, selection: false});
  themeListeners.push(() => charts.forEach(chart => chart.updateOptions(chartColours())));
}
