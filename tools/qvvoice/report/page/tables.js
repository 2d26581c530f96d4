'use strict';
// Measures and diagnosis of a call in words and figures.

/// The figures that matter most, large.
function headlines(rows) {
  return rows.filter(row => row.headline && typeof row.value === 'number').map(row => create('div', {className: 'tile'},
    create('b', {}, `${row.value.toFixed(row.decimals)} ${row.unit}`), create('span', {}, row.meaning)));
}

/// All measures; with another run beside it, that run's value and the difference.
/// @param names  of the run and, if there is one, of the other
function numberTable(rows, [name, other]) {
  const both = other !== undefined;
  const number = (value, decimals, gap, sign = '') => typeof value === 'number'
    ? create('td', {className: 'number'}, (value > 0 ? sign : '') + value.toFixed(decimals))
    : create('td', {className: 'number missing', title: gap ?? ''}, gap === undefined ? '' : 'not measured');
  const change = row => {
    if (typeof row.value !== 'number' || typeof row.other !== 'number') return create('td');
    const cell = number(row.value - row.other, row.decimals, '', '+');
    const verdict = Math.sign(+(row.value - row.other).toFixed(row.decimals)) * row.better;
    if (verdict) cell.classList.add(verdict > 0 ? 'ok' : 'wrong');
    return cell;
  };
  const line = row => {
    const element = create('tr', {}, create('td', {}, row.meaning), number(row.value, row.decimals, row.gap),
      ...(both ? [number(row.other, row.decimals, 'not measured'), change(row)] : []), create('td', {}, row.unit),
      create('td', {className: 'missing'}, row.name + (row.gap ? `: ${row.gap}` : '')));
    element.dataset.name = row.name;
    return element;
  };
  const heads = ['Measure', both ? name : 'value', ...(both ? [other, 'difference'] : []), '', ''];
  const head = heads.map((title, k) => create('th', {className: k > 0 && k < heads.length - 2 ? 'number' : ''}, title));
  return create('table', {}, create('thead', {}, create('tr', {}, ...head)), create('tbody', {}, ...rows.map(line)));
}

/// What is wrong and what to do about it, to stand above the charts.
function causes(checks) {
  return checks.filter(check => check.state === 'wrong').map(check =>
    create('li', {}, create('b', {}, `${check.title}: `), `${check.found}. `, create('span', {}, check.next)));
}

function diagnosisTable(checks) {
  const row = check => create('tr', {}, create('td', {className: `state ${check.state}`}, stateWords[check.state]),
    create('td', {}, check.title), create('td', {}, check.found), create('td', {}, check.limit), create('td', {}, check.next));
  const head = ['', 'Check', 'Measured', 'Limit', 'What to do'].map(title => create('th', {}, title));
  return create('table', {}, create('thead', {}, create('tr', {}, ...head)), create('tbody', {}, ...checks.map(row)));
}
