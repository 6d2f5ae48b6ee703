// The console page: channels with a live picture, the service's events,
// the keeper's recordings and a player. Talks only to its own server.
'use strict';

const token = new URLSearchParams(location.search).get('token');
const seenEvents = new Set();
const cards = new Map();
let recordingsShown = '';

function api(path) {
  if (!token) {
    return path;
  }
  return path + (path.includes('?') ? '&' : '?') + 'token=' + encodeURIComponent(token);
}

async function request(method, path) {
  const response = await fetch(api(path), {method});
  let body = {};
  try {
    body = await response.json();
  } catch (e) {
    body = {error: 'no answer', reason: response.statusText};
  }
  return {ok: response.ok, status: response.status, body};
}

function text(value) {
  return value === null || value === undefined ? '–' : String(value);
}

function bytes(count) {
  if (count >= 1e9) return (count / 1e9).toFixed(2) + ' GB';
  if (count >= 1e6) return (count / 1e6).toFixed(1) + ' MB';
  if (count >= 1e3) return (count / 1e3).toFixed(0) + ' kB';
  return count + ' B';
}

function localTime(ms) {
  return new Date(ms).toLocaleString();
}

function stampText(stamp) {
  if (!stamp) return '–';
  return stamp.enabled ? `on at ${stamp.x},${stamp.y}` : 'off';
}

function cardFor(channel) {
  let card = cards.get(channel.encId);
  if (card) {
    return card;
  }
  card = document.getElementById('channel-template').content.firstElementChild.cloneNode(true);
  card.dataset.enc = channel.encId;
  card.querySelector('.enc').textContent = channel.encId;
  for (const action of ['start', 'stop', 'next-file']) {
    card.querySelector('.' + action).addEventListener('click', () => act(card, channel.encId, action));
  }
  document.getElementById('channels').appendChild(card);
  cards.set(channel.encId, card);
  const option = document.createElement('option');
  option.value = channel.encId;
  option.textContent = channel.encId;
  document.getElementById('filter-channel').appendChild(option);
  return card;
}

function showChannel(channel) {
  const card = cardFor(channel);
  const state = card.querySelector('.state');
  card.dataset.state = channel.state;
  state.textContent = channel.state;
  state.className = 'state pill ' + channel.state;
  const facts = [
    ['Camera', channel.camId], ['Audio', channel.audId === null ? null :
      channel.audId + (channel.audioRecording ? ' (recorded)' : ' (off)')],
    ['Format', channel.format], ['Bit rate', channel.bitRateMbps + ' Mbps'],
    ['Frame rate', channel.frameRateFps + ' fps'],
    ['Resolution', channel.resolution + (channel.widthPx ? ` (${channel.widthPx}×${channel.heightPx})` : '')],
    ['File length', channel.fileLengthS + ' s'],
    ['Time stamp', stampText(channel.timestamp)], ['User stamp', stampText(channel.userStamp)],
    ['File', channel.file], ['File age', channel.fileAgeS === null ? null : channel.fileAgeS.toFixed(0) + ' s'],
  ];
  const list = card.querySelector('.facts');
  list.replaceChildren();
  for (const [name, value] of facts) {
    const term = document.createElement('dt');
    term.textContent = name;
    const detail = document.createElement('dd');
    detail.textContent = text(value);
    detail.className = name.toLowerCase().replace(/ /g, '-');
    list.append(term, detail);
  }
}

async function act(card, encId, action) {
  const message = card.querySelector('.message');
  message.textContent = action + '…';
  message.className = 'message';
  const answer = await request('POST', `/api/channels/${encId}/${action}`);
  if (answer.ok) {
    message.textContent = action + ': done' + (answer.body.file ? ' (' + answer.body.file + ')' : '');
  } else {
    message.textContent = (answer.body.error || 'failed') + ': ' + (answer.body.reason || answer.status);
    message.className = 'message refused';
  }
  refreshChannels();
}

async function refreshChannels() {
  const pill = document.getElementById('service-state');
  try {
    const answer = await request('GET', '/api/channels');
    if (!answer.ok) {
      pill.textContent = answer.body.reason || 'service unavailable';
      pill.className = 'pill waiting';
      return;
    }
    pill.textContent = 'service connected';
    pill.className = 'pill connected';
    for (const channel of answer.body.channels) {
      showChannel(channel);
    }
  } catch (e) {
    pill.textContent = 'console unreachable';
    pill.className = 'pill waiting';
  }
}

// One picture a second per recording channel (a camera delivers frames only
// then), only while the page is seen and the previous picture has arrived.
function refreshPictures() {
  if (document.hidden) {
    return;
  }
  for (const [encId, card] of cards) {
    const image = card.querySelector('img.live');
    if (image.dataset.loading === '1' || card.dataset.state !== 'recording') {
      continue;
    }
    image.dataset.loading = '1';
    image.onload = image.onerror = () => { image.dataset.loading = '0'; };
    image.src = api(`/api/channels/${encId}/snapshot?format=jpeg&t=${Date.now()}`);
  }
}

function showEvent(event) {
  if (seenEvents.has(event.id)) {
    return;
  }
  seenEvents.add(event.id);
  const item = document.createElement('li');
  item.className = event.type;
  item.dataset.id = event.id;
  const detail = event.file ? event.file : 'code ' + event.value;
  item.textContent = `${new Date(event.timeMs).toLocaleTimeString()} ${event.type} channel ${event.encId}: ${detail}`;
  document.getElementById('events').prepend(item);
  if (event.type === 'record-finish') {
    // The keeper catalogs the file as it finishes.
    setTimeout(refreshRecordings, 1500);
  }
}

function listenToEvents() {
  const source = new EventSource(api('/api/events'));
  for (const type of ['record-start', 'record-finish', 'error', 'error-severe', 'abnormal']) {
    source.addEventListener(type, (message) => showEvent(JSON.parse(message.data)));
  }
}

function filterQuery() {
  const parts = [];
  const channel = document.getElementById('filter-channel').value;
  const since = document.getElementById('filter-since').value;
  const until = document.getElementById('filter-until').value;
  if (channel) parts.push('channel=' + channel);
  if (since) parts.push('since=' + new Date(since).getTime());
  if (until) parts.push('until=' + new Date(until).getTime());
  return parts.length ? '?' + parts.join('&') : '';
}

function integrity(recording) {
  if (recording.state === 'recording') return 'being written';
  const parts = [`${recording.frames} frames`, `${recording.missingSlots} missing`,
                 `gap ≤ ${recording.largestGapMs.toFixed(0)} ms`];
  if (recording.closedCleanly === false) parts.push('not closed');
  if (recording.decodedToEnd !== null) parts.push(recording.decodedToEnd ? 'decodes' : 'decode errors');
  return parts.join(', ');
}

function play(recording, row) {
  const player = document.getElementById('player');
  document.getElementById('player-error').textContent = '';
  document.getElementById('player-title').textContent = recording.name;
  document.querySelectorAll('#recordings tr.playing').forEach((r) => r.classList.remove('playing'));
  row.classList.add('playing');
  player.dataset.id = recording.id;
  player.src = api(`/api/recordings/${recording.id}/video.mp4`);
  player.play().catch(() => {});
}

async function toggleLock(recording, button) {
  const answer = await request('POST', `/api/recordings/${recording.id}/${recording.locked ? 'unlock' : 'lock'}`);
  if (answer.ok) {
    recording.locked = answer.body.locked;
    button.textContent = recording.locked ? 'Locked' : 'Unlocked';
    button.classList.toggle('locked', recording.locked);
  } else {
    document.getElementById('recordings-error').textContent = answer.body.reason;
  }
}

function recordingRow(recording) {
  const row = document.createElement('tr');
  row.dataset.id = recording.id;
  row.dataset.state = recording.state;
  const playable = recording.state === 'finished' || recording.state === 'found';
  const thumbCell = document.createElement('td');
  if (playable) {
    const thumb = document.createElement('img');
    thumb.className = 'thumb';
    thumb.loading = 'lazy';
    thumb.alt = 'first picture';
    thumb.src = api(`/api/recordings/${recording.id}/thumbnail?format=jpeg`);
    thumbCell.appendChild(thumb);
    row.classList.add('playable');
  }
  row.appendChild(thumbCell);
  const cells = [recording.name, text(recording.encId), localTime(recording.startedMs),
                 recording.durationS.toFixed(1) + ' s', bytes(recording.bytes), integrity(recording)];
  for (const value of cells) {
    const cell = document.createElement('td');
    cell.textContent = value;
    row.appendChild(cell);
  }
  const lockCell = document.createElement('td');
  const lock = document.createElement('button');
  lock.className = 'lock' + (recording.locked ? ' locked' : '');
  lock.textContent = recording.locked ? 'Locked' : 'Unlocked';
  lock.addEventListener('click', (event) => { event.stopPropagation(); toggleLock(recording, lock); });
  lockCell.appendChild(lock);
  row.appendChild(lockCell);
  if (playable) {
    row.addEventListener('click', () => play(recording, row));
  }
  return row;
}

async function refreshRecordings() {
  const error = document.getElementById('recordings-error');
  const answer = await request('GET', '/api/recordings' + filterQuery());
  if (!answer.ok) {
    error.textContent = answer.body.reason;
    return;
  }
  error.textContent = '';
  // Rebuilt only when something changed, so thumbnails do not flicker.
  const shown = JSON.stringify(answer.body.recordings);
  if (shown === recordingsShown) {
    return;
  }
  recordingsShown = shown;
  const playing = document.getElementById('player').dataset.id;
  const body = document.querySelector('#recordings tbody');
  body.replaceChildren();
  for (const recording of answer.body.recordings) {
    const row = recordingRow(recording);
    if (recording.id === playing) row.classList.add('playing');
    body.appendChild(row);
  }
}

document.getElementById('filter').addEventListener('submit', (event) => {
  event.preventDefault();
  recordingsShown = '';
  refreshRecordings();
});
document.getElementById('player').addEventListener('error', () => {
  const failure = document.getElementById('player').error;
  document.getElementById('player-error').textContent =
    'cannot play: ' + (failure ? failure.message || 'media error ' + failure.code : 'unknown');
});

refreshChannels();
refreshRecordings();
listenToEvents();
setInterval(refreshChannels, 2000);
setInterval(refreshPictures, 1000);
setInterval(refreshRecordings, 5000);
