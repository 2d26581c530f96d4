'use strict';
// Charts of one time axis, which zoom and pan together, and pictures of signals among them.

const charts = [];
let timeChart; // any of them: they share their time axis

/// Charts that wait to be drawn, with the options that they take then.
const waiting = new Map();

/// Draws a chart soon, as many in a frame of the screen as leave the page time to answer.
function redraw(chart, options = {}) {
  if (waiting.size === 0) requestAnimationFrame(drawWaiting);
  waiting.set(chart, {...waiting.get(chart), ...options});
}

function drawWaiting() {
  const end = performance.now() + 10; // ms
  for (const [chart, options] of waiting) {
    waiting.delete(chart);
    if (!chart.figure.hidden) chart.resize(); // does nothing where the size has not changed
    chart.updateOptions({...options, dateWindow: chart.xAxisRange()}, chart.figure.hidden);
    if (performance.now() > end) break;
  }
  if (waiting.size > 0) requestAnimationFrame(drawWaiting);
}

new ResizeObserver(() => charts.forEach(chart => redraw(chart))).observe(byId('charts'));

const visible = () => timeChart?.xAxisRange() ?? [0, data.seconds];

/// Shows a part of the call, kept within it.
function show(begin, end) {
  const length = Math.min(Math.max(end - begin, 0.05), data.seconds);
  const start = Math.min(Math.max(begin, 0), data.seconds - length);
  showAll([start, start + length]);
}

/// All charts have the range at once and are drawn soon. @param drawn  the one that shows it by now
function showAll(dateWindow, drawn) {
  for (const chart of charts) {
    if (chart === drawn) continue;
    chart.updateOptions({dateWindow}, true);
    redraw(chart);
  }
  byId('charts').dispatchEvent(new Event('range'));
}

/// A chart that was zoomed by hand takes the others along.
function takeAlong(drawn) {
  const [begin, end] = drawn.xAxisRange();
  const apart = chart => chart.xAxisRange()[0] !== begin || chart.xAxisRange()[1] !== end;
  if (charts.some(apart)) showAll([begin, end], drawn);
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

/// While the mouse is down it marks a part of the time.
function markByMouse(event, chart) {
  const begin = timeAt(chart, event);
  const drag = moved => mark(begin, timeAt(chart, moved));
  drag(event);
  document.addEventListener('mousemove', drag);
  document.addEventListener('mouseup', () => document.removeEventListener('mousemove', drag), {once: true});
}

/// The charts' own model, less what would keep a finger from scrolling the page, plus the wheel and marks.
const interaction = (() => {
  const own = Dygraph.defaultInteractionModel;
  const sideways = begin => (event, chart, context) => {
    const touch = {touches: event.touches, changedTouches: event.changedTouches, preventDefault() {}};
    begin(touch, chart, context);
    if (context.touchDirections) context.touchDirections = {x: true, y: false};
  };
  const mousedown = (event, chart, context) =>
    event.ctrlKey || event.metaKey ? markByMouse(event, chart) : own.mousedown(event, chart, context);
  const wheel = (event, chart) => {
    if (event.ctrlKey || event.metaKey) zoom(Math.exp(event.deltaY / 300), timeAt(chart, event));
    else if (event.shiftKey || Math.abs(event.deltaX) > Math.abs(event.deltaY)) pan((event.deltaX || event.deltaY) / 800);
    else return;
    event.preventDefault();
  };
  return {...own, touchstart: sideways(own.touchstart), touchend: sideways(own.touchend), mousedown, wheel};
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
  const figure = create('figure', {}, element, box);
  byId('charts').append(figure);
  const chart = new Dygraph(box, rows, {
    ...chartColours(),
    dateWindow: visible(),
    legend: 'always', labelsDiv: readout, highlightCircleSize: 2.5, rightGap: 8,
    interactionModel: interaction, drawAxesAtZero: false, xRangePad: 0,
    drawCallback: takeAlong,
    clickCallback: event => byId('charts').dispatchEvent(new CustomEvent('seek', {detail: timeAt(chart, event)})),
    ...options,
    axes: {x: {drawAxis: options.timeAxis, valueFormatter: seconds, axisLabelFormatter: time => `${+time.toFixed(3)} s`},
           y: {axisLabelWidth: innerWidth < 600 ? 72 : 116, pixelsPerLabel: 24, ...options.yAxis}},
  });
  Object.assign(chart, {title, figure});
  charts.push(chart);
  timeChart = charts[0];
  return chart;
}

function removeChart(chart) {
  charts.splice(charts.indexOf(chart), 1);
  timeChart = charts[0];
  waiting.delete(chart);
  chart.figure.remove();
  chart.destroy();
}

/// Colours of all pictures by the page's two levels, which are followed from now on.
function startPictures() {
  const choose = () => {
    const from = +byId('darkest').value, to = +byId('brightest').value;
    byId('contrast').textContent = `${from} to ${to} dB`;
    Spectrogram.colours = colourTable(isDark() ? heat.dark : heat.light, from, to);
    for (const chart of charts.filter(chart => chart.picture)) redraw(chart);
  };
  choose();
  themeListeners.push(choose);
  for (const id of ['darkest', 'brightest']) byId(id).addEventListener('input', choose);
}

/// @param picture  a Spectrogram or nothing; another one may be put in its place as `chart.picture`
function addPicture(signal, picture, timeAxis) {
  const top = data.rate / 2000;
  const rows = [[0, null], [data.seconds, null]];
  const chart = addChart('picture', signal.title, rows, {
    timeAxis, labels: ['time', 'kHz'], valueRange: [0, top], legendFormatter: () => '', drawGrid: false,
    underlayCallback: (context, area, own) => (own.picture ?? picture)?.draw(context, area, own.xAxisRange(), own.yAxisRange()),
    yAxis: {axisLabelFormatter: khz => `${+khz.toFixed(2)} kHz`},
  });
  chart.picture = picture;
  const readout = chart.getOption('labelsDiv');
  chart.graphDiv.addEventListener('mousemove', event => {
    const time = timeAt(chart, event);
    const khz = chart.toDataYCoord(Dygraph.pageY(event) - Dygraph.findPos(chart.graphDiv).y);
    const level = chart.picture?.levelAt(time, 1000 * khz) ?? null;
    readout.textContent = level === null ? '' : `${seconds(time)}  ${khz.toFixed(2)} kHz  ${level} dB`;
  });
  chart.graphDiv.addEventListener('mouseleave', () => { readout.textContent = ''; });
  return chart;
}

themeListeners.push(() => {
  for (const chart of charts) redraw(chart, {...chartColours(), ...(chart.lane && {colors: seriesLook(chart.lane).colors})});
});
