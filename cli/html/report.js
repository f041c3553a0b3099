// Draws the report from the data that zemostats put in the page: the
// figures stay in the page as they are in the JSON document (each cell's
// data-v attribute), and each chart tells its points and totals in data-
// attributes, so that a test can read both back.
(function () {
  'use strict';
  const data = JSON.parse(document.getElementById('report-data').textContent);
  const main = document.getElementById('report');
  Chart.defaults.animation = false;
  Chart.defaults.maintainAspectRatio = false;
  Chart.defaults.font.family = getComputedStyle(document.body).fontFamily;

  function el(tag, attrs, ...children) {
    const node = document.createElement(tag);
    for (const [k, v] of Object.entries(attrs || {})) {
      if (v === undefined || v === null) continue;
      if (k === 'class') node.className = v; else if (k === 'text') node.textContent = v; else node.setAttribute(k, v);
    }
    for (const c of children) if (c !== null && c !== undefined) node.append(c);
    return node;
  }

  // ---- Figures for people, as the text report writes them ----
  function sizeText(bytes) {
    const units = ['bytes', 'kB', 'MB', 'GB', 'TB'];
    let unit = 0, value = Math.floor(bytes);
    while (unit + 1 < units.length && Math.floor(value / 1000) >= 10) { value = Math.floor(value / 1000); unit++; }
    return value + ' ' + units[unit];
  }
  function bitRate(v) {
    if (v >= 1e9) return (v / 1e9).toFixed(2) + ' Gbit/s';
    if (v >= 1e6) return (v / 1e6).toFixed(2) + ' Mbit/s';
    if (v >= 1e3) return (v / 1e3).toFixed(2) + ' kbit/s';
    return v.toFixed(0) + ' bit/s';
  }
  function timeText(iso) {
    const m = /^(\d{4}-\d\d-\d\d)T(\d\d:\d\d:\d\d)\.(\d{9})Z$/.exec(iso);
    if (!m) return iso;
    let frac = m[3];
    while (frac.length > 3 && frac.endsWith('000')) frac = frac.slice(0, -3);
    return m[1] + ' ' + m[2] + '.' + frac;
  }
  function count(v) { return Number(v).toLocaleString('en-US'); }
  function figure(unit, v) {
    if (v === null || v === undefined) return '';
    if (unit === 'time') return timeText(String(v));
    if (typeof v === 'string') return v;  // text, or a whole number beyond what a double holds
    switch (unit) {
      case 'count': return count(v);
      case 'bytes': return v >= 10000 ? count(v) + ' (' + sizeText(v) + ')' : count(v);
      case 'bit_rate': return bitRate(v);
      case 'percent': return v.toFixed(v > 0 && v < 1 ? 2 : 1) + '%';
      case 'seconds': return v.toFixed(3) + ' s';
      default: return Number.isInteger(v) ? count(v) : v.toFixed(2);
    }
  }
  const numeric = (unit) => unit !== 'text' && unit !== 'time';
  function secondsText(s) {
    if (s < 60) return s + ' s';
    if (s < 3600) return s / 60 + ' min';
    if (s < 86400) return s / 3600 + ' h';
    return s / 86400 + ' d';
  }

  // ---- Tables: sortable, with bars under the column that ranks them ----
  const tables = new Map();
  for (const section of data.sections) for (const t of section.tables) tables.set(t.id, t);

  function barColumn(t) {
    for (const key of ['bytes', 'packets']) {
      const i = t.columns.findIndex((c) => c.key === key);
      if (i >= 0) return i;
    }
    return -1;
  }

  function sortBy(table, column, th) {
    const body = table.tBodies[0];
    const down = !th.classList.contains('sorted-down');
    for (const h of table.tHead.rows[0].cells) h.classList.remove('sorted-up', 'sorted-down');
    th.classList.add(down ? 'sorted-down' : 'sorted-up');
    const key = (row) => {
      const raw = row.cells[column].dataset.v;
      const v = raw === undefined ? null : JSON.parse(raw);
      return typeof v === 'number' ? v : v === null ? -Infinity : (/^\d+$/.test(v) ? Number(v) : v);
    };
    const rows = Array.from(body.rows);
    rows.sort((a, b) => {
      const x = key(a), y = key(b);
      const order = typeof x === 'number' && typeof y === 'number' ? x - y : String(x).localeCompare(String(y));
      return down ? -order : order;
    });
    body.append(...rows);
  }

  function renderTable(t) {
    const box = el('div', { class: 'table' });
    if (t.note) box.append(el('p', { class: 'note', text: t.note }));
    if (!t.rows.length) {
      box.append(el('p', { class: 'note', text: '(' + (t.when_empty || 'none') + ')' }));
      box.append(el('table', { class: 'data', 'data-table': t.id, 'data-rows': 0 }));
      return box;
    }
    const table = el('table', { class: 'data', 'data-table': t.id, 'data-rows': t.rows.length });
    const head = el('tr');
    const bar = barColumn(t);
    let max = 0;
    if (bar >= 0) for (const r of t.rows) if (typeof r[bar] === 'number') max = Math.max(max, r[bar]);
    t.columns.forEach((c, i) => {
      if (c.unit === 'bar') return;
      const hidden = c.hidden || i === t.depth_column || !c.title;
      const th = el('th', { class: hidden ? 'hid' : null, 'data-key': c.key, text: c.title || c.key });
      th.addEventListener('click', () => sortBy(table, th.cellIndex, th));
      head.append(th);
    });
    table.append(el('thead', {}, head));
    const body = el('tbody');
    for (const r of t.rows) {
      const tr = el('tr');
      t.columns.forEach((c, i) => {
        if (c.unit === 'bar') return;
        const hidden = c.hidden || i === t.depth_column || !c.title;
        let text = figure(c.unit, r[i]);
        const td = el('td', { class: (numeric(c.unit) ? 'num' : '') + (hidden ? ' hid' : ''), 'data-v': JSON.stringify(r[i]) });
        if (i === 0 && t.depth_column >= 0) td.style.paddingLeft = 10 + 16 * (r[t.depth_column] || 0) + 'px';
        if (i === bar && max > 0 && typeof r[i] === 'number') {
          td.classList.add('barred');
          td.style.setProperty('--w', (100 * r[i] / max).toFixed(1) + '%');
        }
        td.textContent = text;
        tr.append(td);
      });
      body.append(tr);
    }
    table.append(body);
    box.append(table);
    if (t.more_rows && t.more_rows !== '0') {
      box.append(el('p', { class: 'note', text: 'and ' + count(t.more_rows) + ' more rows' +
        (t.capped ? ' (the page keeps ' + count(data.caps.rows) + ' rows of a table)' : '') +
        ': all of them are in the CSV files (--csv) and the JSON document (--json)' }));
    }
    return box;
  }

  // The numbers of a chart, one click away.
  function numbers(t, open) {
    const d = el('details', open ? { open: '' } : {}, el('summary', { text: 'The numbers' }));
    d.append(renderTable(t));
    return d;
  }

  // ---- Charts ----
  function chart(id, config, totals) {
    const canvas = el('canvas', { id: 'chart-' + id, 'data-chart': id });
    const box = el('div', { class: 'chart' }, canvas);
    const made = { box, canvas, config, totals };
    pending.push(made);
    return made;
  }
  const pending = [];
  // Each chart is made once its box is in the page, so that it has a size,
  // and says what it drew.
  function draw(made) {
    const c = new Chart(made.canvas, made.config);
    made.chart = c;
    tell(made);
  }
  function tell(made) {
    const sets = made.chart.data.datasets;
    made.canvas.dataset.points = sets.reduce((n, s) => n + s.data.length, 0);
    for (const s of sets) {
      if (!s.key) continue;
      const sum = s.data.reduce((a, p) => a + (typeof p === 'number' ? p : p && typeof p.y === 'number' ? p.y : 0), 0);
      made.canvas.dataset['total' + s.key] = sum;
    }
  }

  const colours = { bytes: '#2f6fb3', packets: '#e07b39', events: '#c62828' };

  function trafficChart(section) {
    const traffic = data.traffic;
    const out = [];
    if (!traffic || !traffic.levels.length) return out;
    const origin = traffic.origin_ms;
    const at = (s) => new Date(origin + s * 1000).toISOString().slice(11, 19);
    let level = traffic.levels[0];
    const events = tables.get('alarm_events');
    const eventPoints = [];
    if (events) {
      const time = events.columns.findIndex((c) => c.key === 'time');
      const alarm = events.columns.findIndex((c) => c.key === 'alarm');
      const state = events.columns.findIndex((c) => c.key === 'state');
      for (const r of events.rows) {
        const ms = Date.parse(String(r[time]).replace(/(\.\d{3})\d*Z$/, '$1Z'));
        eventPoints.push({ x: (ms - origin) / 1000, y: 0, label: r[alarm] + ': ' + r[state] });
      }
    }
    function sets(l) {
      const list = [{ key: 'bytes', label: 'Bytes per ' + secondsText(l.seconds), yAxisID: 'bytes',
                      data: l.bytes.map((v, i) => ({ x: l.at[i], y: v })), borderColor: colours.bytes,
                      backgroundColor: colours.bytes + '33', fill: true, pointRadius: 0, borderWidth: 1.5, stepped: 'before' }];
      if (l.packets)
        list.push({ key: 'packets', label: 'Packets per ' + secondsText(l.seconds), yAxisID: 'packets',
                    data: l.packets.map((v, i) => ({ x: l.at[i], y: v })), borderColor: colours.packets,
                    pointRadius: 0, borderWidth: 1.2, stepped: 'before' });
      if (eventPoints.length)
        list.push({ key: 'events', type: 'scatter', label: 'Alarm changes', yAxisID: 'bytes', data: eventPoints,
                    pointStyle: 'triangle', pointRadius: 7, backgroundColor: colours.events, borderColor: colours.events });
      return list;
    }
    const made = chart('traffic', {
      type: 'line',
      data: { datasets: sets(level) },
      options: {
        parsing: false, normalized: true,
        interaction: { mode: 'nearest', axis: 'x', intersect: false },
        scales: {
          x: { type: 'linear', title: { display: true, text: 'Time (UTC) from ' + timeText(traffic.origin) },
               ticks: { callback: (v) => at(v), maxTicksLimit: 12 } },
          bytes: { type: 'linear', position: 'left', beginAtZero: true, title: { display: true, text: 'Bytes' } },
          packets: { type: 'linear', position: 'right', beginAtZero: true, display: !!level.packets,
                     grid: { drawOnChartArea: false }, title: { display: true, text: 'Packets' } },
        },
        plugins: {
          tooltip: { callbacks: {
            title: (items) => items.length ? at(items[0].parsed.x) : '',
            label: (item) => item.raw.label || (item.dataset.label + ': ' + count(item.parsed.y)) } },
        },
      },
    });
    out.push(el('h3', { text: 'Traffic over time' }));
    const zoom = el('p', { class: 'zoom' }, 'Points of ');
    traffic.levels.forEach((l, i) => {
      const b = el('button', { class: i === 0 ? 'on' : null, text: secondsText(l.seconds), 'data-seconds': l.seconds });
      b.addEventListener('click', () => {
        for (const other of zoom.querySelectorAll('button')) other.classList.remove('on');
        b.classList.add('on');
        level = l;
        made.chart.data.datasets = sets(l);
        made.chart.update();
        tell(made);
      });
      zoom.append(b);
    });
    out.push(zoom);
    out.push(el('p', { class: 'note', text: (traffic.source === 'dashboard' ? 'As the saved dashboard has it' :
      'From the first packet') + '; at most ' + count(data.caps.points) + ' points a line' +
      (eventPoints.length ? '; triangles: changes of alarm state' : '') }));
    out.push(made.box);
    const t = tables.get('traffic');
    if (t) out.push(numbers(t));
    return out;
  }

  function barChart(id, t, labelKey, keys, options) {
    const labelAt = t.columns.findIndex((c) => c.key === labelKey);
    const depth = t.depth_column;
    const labels = t.rows.map((r) => (depth >= 0 ? '\u2003'.repeat(r[depth] || 0) : '') + String(r[labelAt]));
    const datasets = keys.map((k, n) => {
      const i = t.columns.findIndex((c) => c.key === k);
      return { key: k, label: t.columns[i].title, data: t.rows.map((r) => Number(r[i]) || 0),
               backgroundColor: n ? colours.packets : colours.bytes };
    });
    return chart(id, { type: 'bar', data: { labels, datasets }, options: options || {} });
  }

  // ---- Sections ----
  function factsList(facts) {
    const dl = el('dl', { class: 'facts' });
    for (const f of facts) {
      dl.append(el('dt', { text: f.title }));
      dl.append(el('dd', { 'data-key': f.key, 'data-v': JSON.stringify(f.value), text: f.text }));
    }
    return dl;
  }

  function cards() {
    const c = data.capture;
    const box = el('div', { class: 'cards' });
    const card = (key, value, words, what) => box.append(el('div', { class: 'card', 'data-key': key, 'data-v': JSON.stringify(value) },
      el('b', { text: words }), el('span', { text: what })));
    card('packets', c.packets, count(c.packets), 'packets');
    card('bytes', c.bytes, sizeText(Number(c.bytes)), 'bytes');
    card('duration_ns', c.duration_ns, (Number(c.duration_ns) / 1e9).toFixed(3) + ' s', 'duration');
    card('average_bits_per_second', c.average_bits_per_second, bitRate(c.average_bits_per_second), 'average rate');
    if (c.peak_bits_per_second !== undefined)
      card('peak_bits_per_second', c.peak_bits_per_second, bitRate(Number(c.peak_bits_per_second)), 'peak rate, busiest second');
    return box;
  }

  function summaryTree(nodes) {
    const ul = el('ul', { class: 'tree' });
    for (const n of nodes) {
      let value = '';
      if (n.value !== undefined) {
        value = typeof n.value === 'object' && n.value !== null
          ? count(n.value.packets) + ' packets, ' + count(n.value.bytes) + ' bytes'
          : n.type === 'time' || n.type === 'date' ? timeText(String(n.value)) : typeof n.value === 'number' ? count(n.value) : String(n.value);
      }
      const li = el('li', {}, el('span', { text: n.name }), value ? el('span', { class: 'v', 'data-v': JSON.stringify(n.value), text: value }) : null);
      if (n.items && n.items.length) li.append(summaryTree(n.items));
      ul.append(li);
    }
    return ul;
  }

  // An 802.11 table of channels or rates: packets as bars by the first
  // column, and the average signal, where there is one, as a line of dBm.
  function radioChart(id, t) {
    const at = (test) => t.columns.findIndex((c) => test(c.key));
    const label = 0, packets = at((k) => k === 'packets');
    const signal = at((k) => /signal/.test(k) && /av/.test(k));
    if (packets < 0) return [renderTable(t)];
    const datasets = [{ key: 'packets', label: 'Packets', yAxisID: 'y', backgroundColor: colours.bytes, order: 1,
                        data: t.rows.map((r) => Number(r[packets]) || 0) }];
    const scales = { y: { beginAtZero: true, title: { display: true, text: 'Packets' } } };
    if (signal >= 0 && t.rows.some((r) => typeof r[signal] === 'number')) {
      datasets.push({ key: 'signal', type: 'line', label: 'Average signal (dBm)', yAxisID: 'dbm', borderColor: colours.packets,
                      order: 0, pointRadius: 5,
                      backgroundColor: colours.packets, data: t.rows.map((r) => (typeof r[signal] === 'number' ? r[signal] : null)) });
      scales.dbm = { position: 'right', grid: { drawOnChartArea: false }, title: { display: true, text: 'dBm' } };
    }
    const made = chart(id, { type: 'bar', data: { labels: t.rows.map((r) => String(r[label])), datasets }, options: { scales } });
    return [made.box, numbers(t)];
  }

  // Tables drawn as charts, with the options of each chart.
  const charted = {
    channels: (t) => radioChart('channels', t),
    data_rates: (t) => radioChart('data_rates', t),
    packet_sizes: (t) => [
      barChart('packet_sizes', t, 'size', ['packets'], { plugins: { legend: { display: false } },
        scales: { x: { title: { display: true, text: 'Size (bytes)' } }, y: { title: { display: true, text: 'Packets' } } } }).box,
      numbers(t)],
    protocol_hierarchy: (t) => {
      const made = barChart('protocol_hierarchy', t, 'protocol', ['packet_share', 'byte_share'], {
        indexAxis: 'y', scales: { x: { max: 100, title: { display: true, text: '% of the capture' } },
                                 y: { ticks: { autoSkip: false, crossAlign: 'far' } } } });
      made.box.style.height = Math.max(160, 60 + 22 * t.rows.length) + 'px';
      return [made.box, numbers(t)];
    },
  };

  function source() {
    const c = data.capture;
    const where = c.files ? c.files.join(', ') : c.interface ? 'interface ' + c.interface : c.saved ? 'saved ' + c.saved.join(', ') : '';
    document.getElementById('source').textContent = where;
    const top = data.caps.top === null ? 'every row' : 'the top ' + data.caps.top + ' rows (--top)';
    document.getElementById('caps').textContent = 'Tables show ' + top + ', at most ' + count(data.caps.rows) +
      ' rows each; traffic lines at most ' + count(data.caps.points) + ' points. Click a column to sort.';
  }

  source();
  for (const section of data.sections) {
    const box = el('section', { id: 's-' + section.id, 'data-section': section.id });
    box.append(el('h2', { text: section.title }));
    if (section.id === 'capture') {
      box.append(cards());
      box.append(factsList(section.facts));
    } else if (section.facts.length) {
      box.append(factsList(section.facts));
    }
    if (section.id === 'traffic') {
      box.append(...trafficChart(section));
    } else {
      for (const t of section.tables) {
        if (charted[t.id] && t.rows.length) {
          if (section.tables.length > 1) box.append(el('h3', { text: t.title }));
          box.append(...charted[t.id](t));
          continue;
        }
        if (t.title !== section.title) box.append(el('h3', { text: t.title }));
        box.append(renderTable(t));
      }
    }
    main.append(box);
    if (section.id === 'capture' && data.summary) {
      const s = el('section', { id: 's-summary', 'data-section': 'summary' }, el('h2', { text: 'Summary' }));
      const d = el('details', {}, el('summary', { text: 'The summary snapshot' }), summaryTree(data.summary));
      s.append(d);
      main.append(s);
    }
  }
  if (data.warnings.length) {
    const w = el('section', { id: 's-warnings' }, el('h2', { text: 'Warnings' }));
    for (const text of data.warnings) w.append(el('p', { class: 'warn', text }));
    main.append(w);
  }
  for (const made of pending) draw(made);
  document.body.dataset.charts = pending.length;
  document.body.dataset.ready = '1';
})();
