// The page: the window's controls around the engine's worker. The engine
// holds the format, the boxes and the texts; the page holds the files, the
// queue and the outputs, and shows whatever the engine reports as it runs.
import { zipSync } from './fflate.js';
import { SpecPlot } from './plot.js';

const $ = (id) => document.getElementById(id);
const icons = ['', 'critical', 'exclamation', 'information', 'question'];
const boxNames = ['SPE', 'SPO', 'cOMDAQ', 'cDXP', 'DsGr', 'LogScale', 'ModernRead'];

let worker = null;
let answers = null;
let engineState = null;
let folderHandle = null; // the picked folder, where outputs are written when allowed
let canWriteFolder = false;
let available = []; // files to pick from: {name, file, folder}
let queue = []; // {name, file, folder}
let outputs = new Map(); // "folder/name" -> {name, bytes}
let unlisted = []; // outputs not yet in the list on the page
let running = false;
let pending = Promise.resolve(); // folder writes, in order
let runStarted = 0;
const plot = new SpecPlot($('plotCanvas'), $('readout'));
// For scripts and tests: what the page holds, and a folder given without the picker.
window.kestroPage = { plot, outputs: () => outputs, state: () => engineState, queue: () => queue, useFolder: (h) => useFolder(h) };

// ---- the engine's worker ----

// The end of a run beeps, as the desktop program does: a short tone, where
// the browser lets a page make sound.
let audio = null;
function beep() {
  try {
    audio ??= new AudioContext();
    const tone = audio.createOscillator();
    const gain = audio.createGain();
    gain.gain.value = 0.1;
    tone.frequency.value = 880;
    tone.connect(gain).connect(audio.destination);
    tone.start();
    tone.stop(audio.currentTime + 0.12);
  } catch {
    // No sound here: the run goes on silently.
  }
}

function startWorker() {
  worker = new Worker('worker.js');
  answers = self.crossOriginIsolated ? new Int32Array(new SharedArrayBuffer(8)) : null;
  worker.onmessage = (event) => handle(event.data);
  worker.onerror = (event) => crashed(event.message || 'the engine could not start');
  worker.postMessage({ type: 'start', answers: answers ? answers.buffer : null });
}

function send(message) {
  if (!running) worker.postMessage(message);
}

function handle(m) {
  switch (m.type) {
    case 'ready':
      showState(m.state);
      $('RunCode').disabled = false;
      document.body.dataset.ready = 'yes';
      break;
    case 'state':
      showState(m.state);
      break;
    case 'status':
      $('Text2').value = m.text;
      $('Text2').classList.toggle('red', m.red);
      break;
    case 'progress':
      $('ProgressBar1').value = m.value;
      break;
    case 'beep':
      beep();
      break;
    case 'box':
      showBox(m.text, m.icon, m.yesNo);
      break;
    case 'plot':
      $('SpecPlot').hidden = false;
      $('plotTitle').textContent = m.name;
      plot.show(m.xy, m.name);
      break;
    case 'scale':
      plot.setLogarithmic(m.logarithmic);
      $('SpecPlot').scrollIntoView({ block: 'nearest' });
      break;
    case 'starting':
      break;
    case 'outputs':
      for (const { folder, name, bytes } of m.outputs) keepOutput(folder, name, bytes);
      break;
    case 'lend':
      // The engine comes back to an output it handed over: a copy, while it waits.
      new Uint8Array(m.into).set(outputs.get(`${m.folder}/${m.name}`).bytes);
      Atomics.store(answers, 0, 1);
      Atomics.notify(answers, 0);
      break;
    case 'done':
      finishRun(m.state, m.failure);
      break;
    case 'crashed':
      crashed(m.failure);
      break;
  }
}

// The engine itself failed (most often memory): the page says so, starts a
// fresh engine with the same settings, and keeps what was converted.
function crashed(failure) {
  const wasRunning = running;
  worker.terminate();
  const before = engineState;
  running = false;
  setBusy(false);
  $('Text2').value = 'The conversion stopped: the file is larger than this browser can hold.';
  $('Text2').classList.add('red');
  showBox('The conversion stopped: the file is larger than this browser can hold, or the engine failed ' +
          `(${failure}).\nFiles converted before it are kept.`, 1, false);
  startWorker();
  if (before) restoreSettings(before);
  if (wasRunning) document.body.dataset.runs = String(Number(document.body.dataset.runs || 0) + 1);
}

function restoreSettings(state) {
  worker.postMessage({ type: 'typeExtension', text: state.typedText });
  for (const name of boxNames) worker.postMessage({ type: 'setBox', name, on: state.boxes[name] });
}

// ---- the controls ----

function showState(state) {
  engineState = state;
  const list = $('formats');
  if (!list.children.length) {
    for (const f of state.formats) list.append(new Option(f.text, f.text));
  }
  if (document.activeElement !== $('Combo1')) $('Combo1').value = state.comboText;
  if (document.activeElement !== $('Text1')) $('Text1').value = state.typedText;
  for (const name of boxNames) $(name).checked = state.boxes[name];
  $('rOMDAQ').hidden = !state.boxes.omdaqVisible;
  $('rDXP').hidden = !state.boxes.dxpVisible;
  $('linlog').textContent = state.boxes.LogScale ? 'log' : 'lin';
  fillFileList();
}

function patternMatcher(pattern) {
  const parts = pattern.split(';').map((p) => p.trim()).filter(Boolean);
  const regexes = parts.map((p) => new RegExp('^' + p.replace(/[.+^${}()|[\]\\]/g, '\\$&')
    .replace(/\*/g, '.*').replace(/\?/g, '.') + '$', 'i'));
  return (name) => regexes.some((r) => r.test(name));
}

function fillFileList() {
  const matches = patternMatcher(engineState ? engineState.filePattern : '*.*');
  const list = $('File1');
  list.replaceChildren();
  available
    .map((entry, index) => ({ entry, index }))
    .filter(({ entry }) => matches(entry.name))
    .sort((a, b) => a.entry.name.localeCompare(b.entry.name, undefined, { sensitivity: 'base' }))
    .forEach(({ entry, index }) => list.append(new Option(entry.name, String(index))));
}

function fillQueue() {
  $('List1').replaceChildren(...queue.map((entry, i) => new Option(entry.name, String(i))));
}

function queueFiles(entries) {
  for (const entry of entries) {
    // Two inputs of one name come from two folders: each keeps its own.
    const taken = (folder) => queue.some((q) => q.folder === folder && q.name === entry.name && q.file !== entry.file);
    let folder = entry.folder;
    while (taken(folder)) folder += 1;
    queue.push({ ...entry, folder });
  }
  fillQueue();
  $('Text2').value = '';
  $('ProgressBar1').value = 0;
}

function filesPicked(files, fromFolder) {
  const entries = [...files].map((file) => ({ name: file.name, file, folder: 0 }));
  if (fromFolder) {
    available = entries;
    fillFileList();
  } else {
    available = [...available.filter((a) => !entries.some((e) => e.name === a.name)), ...entries];
    fillFileList();
  }
}

async function pickFolder() {
  if (!window.showDirectoryPicker) {
    $('fileInput').setAttribute('webkitdirectory', '');
    $('fileInput').click();
    return;
  }
  let handle;
  try {
    handle = await window.showDirectoryPicker({ id: 'kestro', mode: 'readwrite' });
  } catch {
    return; // cancelled
  }
  await useFolder(handle);
}

async function useFolder(handle) {
  folderHandle = handle;
  canWriteFolder = (await handle.queryPermission({ mode: 'readwrite' })) === 'granted' ||
                   (await handle.requestPermission({ mode: 'readwrite' })) === 'granted';
  const files = [];
  for await (const entry of handle.values()) {
    if (entry.kind === 'file') files.push(await entry.getFile());
  }
  $('folderName').textContent = handle.name;
  $('outputsWhere').textContent = canWriteFolder
    ? `Outputs are written into the folder ${handle.name}, beside their inputs, and listed here.`
    : 'Outputs of the last run, to download.';
  filesPicked(files, true);
}

function setBusy(busy) {
  for (const id of ['RunCode', 'addfile', 'remove', 'pickFolder', 'pickFiles', 'Text1', 'Combo1', ...boxNames]) {
    $(id).disabled = busy;
  }
}

function convert() {
  if (running) return;
  running = true;
  runStarted = performance.now();
  setBusy(true);
  outputs = new Map();
  unlisted = [];
  $('outputList').replaceChildren();
  $('downloadZip').disabled = true;
  worker.postMessage({ type: 'run', files: queue.map(({ name, file, folder }) => ({ name, file, folder })) });
}

// The queue as the engine left it: the entries it kept, by folder and name.
function finishRun(state, failure) {
  running = false;
  setBusy(false);
  const kept = state.paths.map((path) => {
    const [, , , folder, ...name] = path.split('/');
    return queue.find((q) => q.folder === Number(folder) && q.name === name.join('/'));
  }).filter(Boolean);
  queue = kept;
  fillQueue();
  showState(state);
  pending.then(() => {
    $('downloadZip').disabled = outputs.size === 0;
    // From Convert to the last output in hand, for the benchmark.
    document.body.dataset.runMs = String(Math.round(performance.now() - runStarted));
    document.body.dataset.runs = String(Number(document.body.dataset.runs || 0) + 1);
  });
  if (failure) crashed(failure);
}

// ---- outputs ----

// The bytes are kept as they came: a Blob each would cost the browser far
// more than the bytes in a batch of many small files. The list is drawn
// once a frame.
function keepOutput(folder, name, bytes) {
  const key = `${folder}/${name}`;
  if (!outputs.has(key)) {
    if (!unlisted.length) requestAnimationFrame(listOutputs);
    unlisted.push(key);
  }
  outputs.set(key, { name, bytes });
  if (canWriteFolder && folder === 0) {
    pending = pending.then(async () => {
      const handle = await folderHandle.getFileHandle(name, { create: true });
      const writable = await handle.createWritable();
      await writable.write(bytes);
      await writable.close();
    }).catch((e) => console.warn(`${name}: ${e}`));
  }
}

function listOutputs() {
  const items = unlisted.map((key) => {
    const item = document.createElement('li');
    const link = document.createElement('a');
    link.textContent = outputs.get(key).name;
    link.download = link.textContent;
    link.dataset.key = key;
    link.href = '#';
    item.append(link);
    return item;
  });
  unlisted = [];
  $('outputList').append(...items);
}

// Each output downloads on its own from the list.
$('outputList').addEventListener('click', (e) => {
  const link = e.target.closest('a[data-key]');
  const output = link && outputs.get(link.dataset.key);
  if (output) link.href = URL.createObjectURL(new Blob([output.bytes]));
});

// One zip of every output of the run; inputs from a second folder (two
// files of one name) keep theirs in a subfolder.
function downloadZip() {
  const files = {};
  for (const [key, { name, bytes }] of outputs) {
    const folder = Number(key.split('/')[0]);
    files[folder === 0 ? name : `${folder}/${name}`] = bytes;
  }
  const zip = zipSync(files, { level: 6, mtime: new Date() });
  const link = document.createElement('a');
  link.href = URL.createObjectURL(new Blob([zip], { type: 'application/zip' }));
  link.download = 'kestro-outputs.zip';
  link.click();
}

// ---- message boxes ----

const waiting = [];
function showBox(text, icon, yesNo) {
  waiting.push({ text, icon, yesNo });
  if (waiting.length === 1) openNextBox();
}

function openNextBox() {
  const { text, icon, yesNo } = waiting[0];
  $('boxText').textContent = text;
  $('boxIcon').className = `icon ${icons[icon] || ''}`;
  $('boxOk').hidden = yesNo;
  $('boxYes').hidden = !yesNo;
  $('boxNo').hidden = !yesNo;
  $('messageBox').returnValue = '';
  $('messageBox').showModal();
  document.body.dataset.boxes = String(Number(document.body.dataset.boxes || 0) + 1);
}

$('messageBox').addEventListener('close', () => {
  waiting.shift();
  // The engine waits for every box, as the window's modal boxes hold the run.
  if (answers) {
    answers[1] = $('messageBox').returnValue === 'yes' ? 1 : 0;
    Atomics.store(answers, 0, 1);
    Atomics.notify(answers, 0);
  }
  if (waiting.length) openNextBox();
});
// Escape answers No, as closing the window's box does.
$('messageBox').addEventListener('cancel', () => { $('messageBox').returnValue = 'no'; });

// ---- wiring ----

$('pickFolder').addEventListener('click', pickFolder);
$('pickFiles').addEventListener('click', () => {
  $('fileInput').removeAttribute('webkitdirectory');
  $('fileInput').click();
});
$('fileInput').addEventListener('change', (e) => {
  filesPicked(e.target.files, e.target.hasAttribute('webkitdirectory'));
  e.target.value = '';
});
$('Text1').addEventListener('input', (e) => send({ type: 'typeExtension', text: e.target.value }));
$('Combo1').addEventListener('input', (e) => {
  const index = engineState ? engineState.formats.findIndex((f) => f.text === e.target.value) : -1;
  if (index >= 0) send({ type: 'pickFormat', index });
  else send({ type: 'typeFormat', text: e.target.value });
});
// The list offers every entry while the selector has the focus (a browser
// shows only the entries that match the text in the box).
$('Combo1').addEventListener('focus', (e) => {
  e.target.dataset.shown = e.target.value;
  e.target.value = '';
});
$('Combo1').addEventListener('blur', (e) => {
  if (e.target.value === '') e.target.value = e.target.dataset.shown || '';
});
for (const name of boxNames) {
  $(name).addEventListener('click', (e) => send({ type: 'setBox', name, on: e.target.checked }));
}
$('addfile').addEventListener('click', () => {
  queueFiles([...$('File1').selectedOptions].map((o) => available[Number(o.value)]));
});
$('File1').addEventListener('dblclick', () => $('addfile').click());
$('remove').addEventListener('click', () => {
  const chosen = new Set([...$('List1').selectedOptions].map((o) => Number(o.value)));
  queue = queue.filter((_, i) => !chosen.has(i));
  fillQueue();
});
for (const list of ['File1', 'List1']) {
  $(list).addEventListener('mousemove', (e) => {
    $(list).title = e.target instanceof HTMLOptionElement ? e.target.text : '(empty)';
  });
}
$('RunCode').addEventListener('click', convert);
$('downloadZip').addEventListener('click', downloadZip);
$('plotHome').addEventListener('click', () => plot.home());
$('plotSave').addEventListener('click', () => plot.saveImage());

document.addEventListener('dragover', (e) => {
  e.preventDefault();
  document.body.classList.add('dragging');
});
document.addEventListener('dragleave', () => document.body.classList.remove('dragging'));
document.addEventListener('drop', (e) => {
  e.preventDefault();
  document.body.classList.remove('dragging');
  if (running) return;
  const files = [...e.dataTransfer.files];
  filesPicked(files, false);
  queueFiles(files.map((file) => ({ name: file.name, file, folder: 0 })));
});

startWorker();
