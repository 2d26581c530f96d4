'use strict';
// What the pages of a call and of a set share.

const data = JSON.parse(document.getElementById('data').textContent);
const byId = id => document.getElementById(id);

/// A new element: create('td', {className: 'number'}, text or elements).
function create(tag, properties = {}, ...content) {
  const element = Object.assign(document.createElement(tag), properties);
  element.append(...content);
  return element;
}

const bytesOf = base64 => Uint8Array.from(atob(base64.trim()), byte => byte.charCodeAt(0));

/// What was packed by gzip.
const unpacked = bytes => new Response(new Blob([bytes]).stream().pipeThrough(new DecompressionStream('gzip')));

const colour = name => getComputedStyle(document.documentElement).getPropertyValue(`--${name}`).trim();
const isDark = () => document.documentElement.dataset.theme === 'dark';
const themeListeners = [];

function setTheme(dark) {
  document.documentElement.dataset.theme = dark ? 'dark' : 'light';
  for (const listener of themeListeners) listener();
}

function startTheme() {
  const system = matchMedia('(prefers-color-scheme: dark)');
  system.addEventListener('change', () => setTheme(system.matches));
  byId('theme').addEventListener('click', () => setTheme(!isDark()));
  setTheme(system.matches);
}

const stateWords = {ok: 'good', note: 'note', wrong: 'wrong', unmeasured: 'not measured'};

function linkBar(links) {
  const titles = {front: 'All calls', previous: '← ', next: '→ '};
  return Object.entries(links).map(([kind, link]) =>
    create('a', {href: link.href, id: `link-${kind}`}, kind === 'front' ? titles.front : titles[kind] + link.title));
}
