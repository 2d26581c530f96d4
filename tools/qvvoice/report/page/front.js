'use strict';
// The front page of a set: one line per call.

const comparison = data.other !== '';

/// Value, and below it the change against the other run, coloured by whether it is for the better.
function valueCell(column, value, other) {
  if (typeof value !== 'number') return create('td', {className: 'number missing'}, '–');
  const cell = create('td', {className: 'number'}, value.toFixed(column.decimals));
  if (typeof other !== 'number') return cell;
  const change = value - other;
  const verdict = Math.sign(+change.toFixed(column.decimals)) * column.better;
  if (verdict) cell.classList.add(verdict > 0 ? 'better' : 'worse');
  cell.append(create('span', {className: 'change'}, (change > 0 ? '+' : '') + change.toFixed(column.decimals)));
  return cell;
}

function callRow(call) {
  const name = call.href ? create('a', {href: call.href}, call.name) : call.name;
  const values = data.columns.map((column, k) => valueCell(column, call.values?.[k], call.other?.[k]));
  return create('tr', {}, create('td', {}, name), create('td', {className: `state ${call.state}`}, stateWords[call.state]),
    create('td', {className: 'verdict'}, call.message), ...values);
}

const byText = key => (a, b) => String(a[key]).localeCompare(b[key]);
/// Calls without the number come last, whichever way it goes.
const byNumber = k => (a, b) => (a.values?.[k] ?? Infinity) - (b.values?.[k] ?? Infinity);

function build() {
  const body = create('tbody', {}, ...data.calls.map(callRow));
  const head = create('tr');
  let sorted = '';
  const addHead = (title, meaning, number, order) => {
    const cell = create('th', {className: `sortable ${number ? 'number' : ''}`, title: meaning, tabIndex: 0}, title);
    const sort = () => {
      const descending = sorted === title;
      sorted = descending ? '' : title;
      const calls = [...data.calls].sort(order);
      body.replaceChildren(...(descending ? calls.reverse() : calls).map(callRow));
      for (const other of head.children) other.removeAttribute('aria-sort');
      cell.ariaSort = descending ? 'descending' : 'ascending';
    };
    cell.addEventListener('click', sort);
    cell.addEventListener('keydown', event => { if (event.key === 'Enter') sort(); });
    head.append(cell);
  };
  addHead('Call', 'Opens its page', false, byText('name'));
  addHead('State', 'Of its diagnosis', false, byText('state'));
  addHead('Verdict', 'Of its diagnosis', false, byText('message'));
  data.columns.forEach((column, k) => addHead(column.title, column.meaning, true, byNumber(k)));
  byId('table').append(create('table', {}, create('thead', {}, head), body));
}

startTheme();
build();
byId('about').textContent = `${data.calls.length} calls` + (comparison ? `; small figures: change against ${data.other}` : '');
byId('made').textContent = data.made;
document.documentElement.dataset.ready = 'yes';
