// The engine's thread. The batch runs here from start to end, so the page
// keeps painting; a Yes/No question blocks this thread (Atomics.wait) until
// the page answers it.
//
// Files: large inputs are mounted read-only where they are (WORKERFS reads
// slices of the File objects as the readers ask), small ones are read as the
// run starts; each input folder is a memory folder of links to them, so that
// outputs land beside their inputs as on the desktop. New and changed outputs go to the page as each file
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

// Texts name files by the names the user knows, not by the run's folders.
const shown = (text) => text.replace(/\/run\/\d+\/\d+\//g, '');

const host = {
  status: (text, red) => post({ type: 'status', text: shown(text), red }),
  progress: (value) => post({ type: 'progress', value }),
  beep: () => post({ type: 'beep' }),
  box(text, icon, yesNo) {
    sendOutputs();
    post({ type: 'box', text: shown(text), icon, yesNo });
    if (!answers) return false; // without shared memory nothing can wait: No
    Atomics.wait(answers, 0, 0);
    const yes = answers[1] === 1;
    Atomics.store(answers, 0, 0);
    return yes;
  },
  plot(xy, name) {
    post({ type: 'plot', xy, name: shown(name) }, [xy.buffer]);
  },
  scale: (logarithmic) => post({ type: 'scale', logarithmic }),
  changed() {},
  starting: (index, count, name) => post({ type: 'starting', index, count, name }),
  outputs(paths) {
    for (const path of new Set(paths)) sendOutput(path);
  },
};

// One output, unless the page has it as it is now.
function sendOutput(path) {
  const root = `/run/${runNumber}/`;
  if (!path.startsWith(root) || !FS.analyzePath(path).exists) return;
  const stat = FS.lstat(path);
  if (!FS.isFile(stat.mode)) return;
  const seen = `${stat.size}:${stat.mtime.getTime()}`;
  if (sent.get(path) === seen) return;
  sent.set(path, seen);
  const [folder, ...name] = path.slice(root.length).split('/');
  if (name.length !== 1) return;
  const bytes = FS.readFile(path);
  post({ type: 'output', folder: Number(folder), name: name[0], bytes }, [bytes.buffer]);
}

// Every file in the run's folders that the page has not seen as it is now:
// before a message box (a failed file's outputs stay), and at the end.
function sendOutputs() {
  const root = `/run/${runNumber}`;
  if (!FS.analyzePath(root).exists) return;
  for (const folder of FS.readdir(root)) {
    if (folder === '.' || folder === '..') continue;
    for (const name of FS.readdir(`${root}/${folder}`)) {
      if (name !== '.' && name !== '..') sendOutput(`${root}/${folder}/${name}`);
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

// The readers ask for a few kilobytes at a time; each read of a File costs
// far more than its bytes. Reads go through one block of up to 1 MB read
// ahead, so a file is still read where it is, never copied whole.
const READ_AHEAD = 1 << 20;
let block = null; // {node, start, bytes}
function readAhead(stream, buffer, offset, length, position) {
  const node = stream.node;
  if (position >= node.size) return 0;
  const n = Math.min(length, node.size - position);
  if (n >= READ_AHEAD) {
    buffer.set(new Uint8Array(new FileReaderSync().readAsArrayBuffer(node.contents.slice(position, position + n))), offset);
    return n;
  }
  if (!block || block.node !== node || position < block.start || position + n > block.start + block.bytes.length) {
    const end = Math.min(node.size, position + READ_AHEAD);
    block = { node, start: position, bytes: new Uint8Array(new FileReaderSync().readAsArrayBuffer(node.contents.slice(position, end))) };
  }
  buffer.set(block.bytes.subarray(position - block.start, position - block.start + n), offset);
  return n;
}

const state = () => JSON.parse(engine.UTF8ToString(engine._kestro_state()));

// Small inputs are read before the run, all at once: one read of a File
// from the worker's thread costs most of a millisecond, whatever its size.
// Large ones stay where they are and are read as the readers ask.
const EARLY_FILE = 4 << 20;
const EARLY_TOTAL = 64 << 20;
async function readSmallFiles(files) {
  const chosen = [];
  let total = 0;
  for (const { file } of files) {
    if (file.size > EARLY_FILE || total + file.size > EARLY_TOTAL || chosen.includes(file)) continue;
    chosen.push(file);
    total += file.size;
  }
  const contents = await Promise.all(chosen.map((file) => file.arrayBuffer()));
  return new Map(chosen.map((file, i) => [file, new Uint8Array(contents[i])]));
}

// The run's files: [{folder, name, file}]; folder numbers group the inputs
// that sit side by side.
async function run(files) {
  const early = await readSmallFiles(files);
  runNumber += 1;
  sent = new Map();
  const root = `/run/${runNumber}`;
  FS.mkdirTree(`${root}/0`);
  const mounts = [];
  engine.ccall('kestro_queue_clear', null, [], []);
  // One folder per input folder, holding each of its files once.
  const folders = new Map();
  for (const entry of files) {
    if (!folders.has(entry.folder)) folders.set(entry.folder, new Map());
    folders.get(entry.folder).set(entry.name, entry.file);
  }
  for (const [folder, named] of folders) {
    // Read-only mounts take no files of their own: those read early sit beside.
    const mount = `/in/${runNumber}/${folder}`;
    const dir = `${root}/${folder}`;
    FS.mkdirTree(`${mount}/read`);
    FS.mkdirTree(`${mount}/mounted`);
    FS.mkdirTree(dir);
    const large = [...named.values()].filter((file) => !early.has(file));
    if (large.length) {
      FS.mount(WORKERFS, { files: large }, `${mount}/mounted`);
      mounts.push(`${mount}/mounted`);
    }
    for (const [name, file] of named) {
      const path = `${mount}/${early.has(file) ? 'read' : 'mounted'}/${name}`;
      if (early.has(file)) FS.writeFile(path, early.get(file));
      FS.lookupPath(path).node.timestamp = file.lastModified;
      FS.symlink(path, `${dir}/${name}`);
    }
  }
  for (const entry of files) {
    engine.ccall('kestro_queue_add', null, ['string', 'string'], [entry.name, `${root}/${entry.folder}/${entry.name}`]);
  }
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
  block = null;
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
      WORKERFS.stream_ops.read = readAhead;
      engine.ccall('kestro_start', null, [], []);
      post({ type: 'ready', state: state() });
      return;
    }
    if (m.type === 'pickFormat') engine.ccall('kestro_pick_format', null, ['number'], [m.index]);
    else if (m.type === 'typeFormat') engine.ccall('kestro_type_format', null, ['string'], [m.text]);
    else if (m.type === 'typeExtension') engine.ccall('kestro_type_extension', null, ['string'], [m.text]);
    else if (m.type === 'setBox') engine.ccall('kestro_set_box', null, ['string', 'number'], [m.name, m.on ? 1 : 0]);
    else if (m.type === 'run') return await run(m.files);
    post({ type: 'state', state: state() });
  } catch (e) {
    post({ type: 'crashed', failure: String(e && e.message ? e.message : e) });
  }
};
