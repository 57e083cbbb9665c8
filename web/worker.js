// The engine's thread. The batch runs here from start to end, so the page
// keeps painting; a Yes/No question blocks this thread (Atomics.wait) until
// the page answers it.
//
// Files: the inputs are mounted read-only where they are (WORKERFS reads
// slices of the File objects as the readers ask); each input folder is a
// memory folder of links to them, so that outputs land beside their inputs
// as on the desktop. New and changed outputs go to the page as each file
// ends, and the memory folders go at the end of each run.
/* global importScripts, createKestro */
'use strict';

importScripts('kestro-web.js');

let engine = null;
let FS = null;
let WORKERFS = null;
let answers = null; // Int32Array over a SharedArrayBuffer: [flag, answer]
let sent = new Map(); // output path -> "size:mtime" already sent to the page
let runNumber = 0;

const post = (message, transfer) => postMessage(message, transfer || []);

const host = {
  status: (text, red) => post({ type: 'status', text, red }),
  progress: (value) => post({ type: 'progress', value }),
  beep: () => post({ type: 'beep' }),
  box(text, icon, yesNo) {
    sendOutputs();
    post({ type: 'box', text, icon, yesNo });
    if (!answers) return false; // without shared memory nothing can wait: No
    Atomics.wait(answers, 0, 0);
    const yes = answers[1] === 1;
    Atomics.store(answers, 0, 0);
    return yes;
  },
  plot(xy, name) {
    post({ type: 'plot', xy, name: name.replace(/^\/run\/\d+\/\d+\//, '') }, [xy.buffer]);
  },
  scale: (logarithmic) => post({ type: 'scale', logarithmic }),
  changed() {},
  starting(index, count, name) {
    if (index > 0) sendOutputs();
    post({ type: 'starting', index, count, name });
  },
};

// Every regular file under the run's folders that the page has not seen as it is now.
function sendOutputs() {
  const root = `/run/${runNumber}`;
  if (!FS.analyzePath(root).exists) return;
  for (const folder of FS.readdir(root)) {
    if (folder === '.' || folder === '..') continue;
    const dir = `${root}/${folder}`;
    for (const name of FS.readdir(dir)) {
      const path = `${dir}/${name}`;
      if (name === '.' || name === '..') continue;
      const stat = FS.lstat(path);
      if (!FS.isFile(stat.mode)) continue;
      const seen = `${stat.size}:${stat.mtime.getTime()}`;
      if (sent.get(path) === seen) continue;
      sent.set(path, seen);
      const bytes = FS.readFile(path);
      post({ type: 'output', folder: Number(folder), name, bytes }, [bytes.buffer]);
    }
  }
}

function removeTree(path) {
  if (!FS.analyzePath(path).exists) return;
  for (const name of FS.readdir(path)) {
    if (name === '.' || name === '..') continue;
    const child = `${path}/${name}`;
    if (FS.isDir(FS.lstat(child).mode)) removeTree(child);
    else FS.unlink(child);
  }
  FS.rmdir(path);
}

const state = () => JSON.parse(engine.UTF8ToString(engine._kestro_state()));

// The run's files: [{folder, name, file}]; folder numbers group the inputs
// that sit side by side.
function run(files) {
  runNumber += 1;
  sent = new Map();
  const root = `/run/${runNumber}`;
  FS.mkdirTree(`${root}/0`);
  const mounts = [];
  engine.ccall('kestro_queue_clear', null, [], []);
  files.forEach((entry, i) => {
    const mount = `/in/${runNumber}/${i}`;
    FS.mkdirTree(mount);
    FS.mount(WORKERFS, { files: [entry.file] }, mount);
    mounts.push(mount);
    const target = `${mount}/${entry.file.name}`;
    FS.lookupPath(target).node.timestamp = entry.file.lastModified;
    const dir = `${root}/${entry.folder}`;
    FS.mkdirTree(dir);
    const link = `${dir}/${entry.name}`;
    if (!FS.analyzePath(link).exists) FS.symlink(target, link);
    engine.ccall('kestro_queue_add', null, ['string', 'string'], [entry.name, link]);
  });
  FS.chdir(`${root}/0`);
  let outcome = -1;
  let failure = null;
  try {
    outcome = engine.ccall('kestro_run', 'number', [], []);
  } catch (e) {
    failure = String(e && e.message ? e.message : e);
  }
  try {
    sendOutputs();
  } catch (e) {
    failure = failure || String(e);
  }
  FS.chdir('/');
  for (const m of mounts) FS.unmount(m);
  removeTree(`/in/${runNumber}`);
  removeTree(root);
  post({ type: 'done', outcome, failure, state: state() });
}

onmessage = async (event) => {
  const m = event.data;
  try {
    if (m.type === 'start') {
      answers = m.answers ? new Int32Array(m.answers) : null;
      engine = await createKestro({
        kestroHost: host,
        print: () => {},
        printErr: (text) => console.warn(text),
        onAbort: (what) => post({ type: 'crashed', failure: String(what) }),
      });
      FS = engine.FS;
      WORKERFS = FS.filesystems.WORKERFS;
      engine.ccall('kestro_start', null, [], []);
      post({ type: 'ready', state: state() });
      return;
    }
    if (m.type === 'pickFormat') engine.ccall('kestro_pick_format', null, ['number'], [m.index]);
    else if (m.type === 'typeFormat') engine.ccall('kestro_type_format', null, ['string'], [m.text]);
    else if (m.type === 'typeExtension') engine.ccall('kestro_type_extension', null, ['string'], [m.text]);
    else if (m.type === 'setBox') engine.ccall('kestro_set_box', null, ['string', 'number'], [m.name, m.on ? 1 : 0]);
    else if (m.type === 'run') return run(m.files);
    post({ type: 'state', state: state() });
  } catch (e) {
    post({ type: 'crashed', failure: String(e && e.message ? e.message : e) });
  }
};
