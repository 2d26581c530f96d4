'use strict';
// Charts of numbers (lanes) and of states (strips) over time.

/// Series of another run have the colours of this run's, dashed.
function seriesLook(lane) {
  const name = series => series.other ? series.label.replace(/, [^,]*$/, '') : series.label;
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

const rowsOf = lane =>
  lane.series[0].values.map((_, i) => [i * lane.step, ...lane.series.map(series => series.values[i])]);

/// What a chart takes from a lane beside its rows.
function laneOptions(lane) {
  return {
    labels: ['time', ...lane.series.map(series => series.label)], ...seriesLook(lane), stepPlot: lane.steps,
    valueRange: lane.band ? rangeWithBand(lane) : null,
    underlayCallback: lane.band ? (context, area, own) => drawBand(context, area, own, lane) : null,
    legendFormatter: legendOf(lane.unit, lane.band),
  };
}

function addLane(lane, timeAxis) {
  const chart = addChart('lane', lane.title, rowsOf(lane), {
    ...laneOptions(lane), timeAxis,
    yAxis: {axisLabelFormatter: value => `${+value.toFixed(2)} ${lane.unit}`},
  });
  chart.lane = lane;
  return chart;
}

/// Other values in place of a lane's, at the same zoom.
function updateLane(chart, lane) {
  chart.lane = lane;
  redraw(chart, {file: rowsOf(lane), ...laneOptions(lane)});
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
    style: `--rows: ${height}`, timeAxis: false, labels: ['time', 'state'], valueRange: [height, 0], drawGrid: false, legendFormatter: () => '',
    underlayCallback: (context, area, own) => drawStrips(context, area, own, own.strips ?? strips),
    yAxis: {ticker: (a, b, pixels, options, own) => (own.strips ?? strips).rows.map((row, k) => ({v: k + 0.5, label: row.label}))},
  });
  chart.strips = strips;
  nameStates(chart);
  return chart;
}

function nameStates(chart) {
  const states = chart.strips.rows.flatMap(row => row.states.filter(state => state.label));
  const key = [...new Map(states.map(state => [state.label, state.colour]))];
  chart.getOption('labelsDiv').replaceChildren(
    ...key.flatMap(([label, name]) => [create('span', {style: `color:var(--${name})`}, '■'), ` ${label}\u2002`]));
}

/// Other states in place of a chart's, at the same zoom.
function updateStrips(chart, strips) {
  chart.strips = strips;
  nameStates(chart);
  chart.graphDiv.parentElement.style.setProperty('--rows', strips.rows.length);
  chart.updateOptions({valueRange: [strips.rows.length, 0]}, true);
  redraw(chart);
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
