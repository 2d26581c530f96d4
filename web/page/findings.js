'use strict';
// What the engine has found out about the call: charts, numbers, verdict.

/// Engine's name of the second run, and the page's.
const nameOfB = [/, other$/, ', B'];

/// Measures that are shown large: those of a report mostly need the truth.
const large = ['erle_heard_db', 'delay_found_ms', 'out_level_dbfs', 'digital_silence_percent'];

/// @param signal  AbortSignal: leaves the rest as it is
async function showMeasures({lanes, strips, numbers}, signal) {
  for (const named of [...strips.rows, ...lanes.flatMap(lane => [...lane.series, ...(lane.band ? [lane.band] : [])])])
    named.label = named.label.replace(...nameOfB);
  const measured = numbers.filter(row => row.value !== null);
  const both = measured.some(row => row.other !== undefined);
  byId('headlines').replaceChildren(...headlines(measured.map(row => ({...row, headline: large.includes(row.name)}))));
  byId('numbers').replaceChildren(create('h2', {}, 'Measures'), numberTable(measured, both ? ['A', 'B'] : []));
  const states = charts.find(chart => chart.strips);
  if (states) updateStrips(states, strips);
  else addStrips(strips);
  await showLanes(lanes, signal);
}

/// Of another call nothing is known yet.
function forgetFindings() {
  showDiagnosis({verdict: '…', state: 'unmeasured', checks: []});
  for (const id of ['headlines', 'numbers', 'check-table']) byId(id).replaceChildren();
  for (const chart of charts.filter(chart => chart.lane || chart.strips)) removeChart(chart);
}

function showDiagnosis({verdict, state, checks}) {
  if (byId('verdict').textContent !== verdict) byId('verdict').textContent = verdict; // said aloud only when it is another
  byId('verdict').className = state;
  byId('causes').replaceChildren(...causes(checks));
  byId('check-table').replaceChildren(diagnosisTable(checks));
}

/// Lanes that are there get new values; others come and go.
async function showLanes(lanes, signal) {
  for (const chart of charts.filter(chart => chart.lane && !lanes.some(lane => lane.title === chart.title))) removeChart(chart);
  for (const [k, lane] of lanes.entries()) {
    const chart = charts.find(chart => chart.lane && chart.title === lane.title);
    if (chart) updateLane(chart, lane);
    else byId('charts').insertBefore(addLane(lane, k === lanes.length - 1).figure, nextFigure(lanes.slice(k + 1)));
    await breathe();
    if (signal.aborted) return;
  }
}

/// Of the first of these lanes that has a chart.
const nextFigure = lanes => lanes.map(lane => charts.find(chart => chart.title === lane.title)?.figure).find(Boolean) ?? null;
