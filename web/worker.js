// The engine's thread. The batch runs here from start to end, so the page
// keeps painting; a Yes/No question blocks this thread (Atomics.wait) until
// the page answers it.
//
// Files: large inputs are mounted read-only where they are (WORKERFS reads
// slices of the File objects as the readers ask), small ones are read as the
// run starts; each input folder is a memory folder of links to them, so that
// outputs land beside their inputs as on the desktop. New and changed
// outputs move to the page as each file ends, and the memory folders go at
// the end of each run.
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

// The status line and the bar change with every file, far more often than
// the page can paint: between frames only the latest of each goes over, and
// whatever is pending goes before a message box and at the end of a run.
const FRAME_MS = 16;
let painted = 0;
let unpainted = new Map(); // message type -> latest message
function paint(message) {
  unpainted.set(message.type, message);
  if (performance.now() - painted >= FRAME_MS) flushPaint();
}
function flushPaint() {
  for (const message of unpainted.values()) post(message);
  unpainted = new Map();
  painted = performance.now();
}

const host = {
  status: (text, red) => paint({ type: 'status', text: shown(text), red }),
  progress: (value) => paint({ type: 'progress', value }),
  beep: () => post({ type: 'beep' }),
  box(text, icon, yesNo) {
    sendOutputs();
    flushPaint();
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
  outputs: (paths) => sendEach(paths, false),
};

// One output, unless the page has it as it is now. Its bytes move to the
// page uncopied and the file keeps only its size. Should the engine come
// back to such a file to read or extend it, the page lends the bytes back
// (takeBack). That needs shared memory to wait in; without it the page gets
// copies while the run goes on, and the files' own bytes once it has ended.
function sendOutput(path, last, batch) {
  const root = `/run/${runNumber}/`;
  if (!path.startsWith(root)) return;
  const found = FS.analyzePath(path, true);
  if (!found.exists || !FS.isFile(found.object.mode)) return;
  const node = found.object;
  const size = node.usedBytes;
  const seen = `${size}:${node.timestamp}`;
  if (sent.get(path) === seen) return;
  sent.set(path, seen);
  const [folder, ...name] = path.slice(root.length).split('/');
  if (name.length !== 1 || engineOwn(name[0])) return;
  // Bytes as the page keeps them, whatever view the file system holds them in.
  const contents = node.contents ? new Uint8Array(node.contents.buffer, node.contents.byteOffset, size) : new Uint8Array(0);
  const move = Boolean(last || answers);
  const bytes = move ? contents : contents.slice();
  batch.push({ folder: Number(folder), name: name[0], bytes });
  if (move) {
    node.contents = null;
    node.lent = { folder: Number(folder), name: name[0] };
  }
}

// The engine's own files in a folder it writes in: its record of the
// outputs it wrote there and an output being written under a temporary
// name. The run's folders live in memory and go with the run, so neither
// means anything to the page.
const engineOwn = (name) => name === '.kestro-outputs' || name.startsWith('.kestro~');

// The bytes of an output sent to the page, back in its file.
function takeBack(node) {
  if (!node || !node.lent) return;
  const shared = new SharedArrayBuffer(node.usedBytes);
  post({ type: 'lend', ...node.lent, into: shared });
  Atomics.wait(answers, 0, 0);
  Atomics.store(answers, 0, 0);
  node.contents = new Uint8Array(node.usedBytes);
  node.contents.set(new Uint8Array(shared));
  delete node.lent;
}

// Every way the engine reaches a lent file's bytes (opening, reading,
// writing or resizing it, by any path or link) passes takeBack first. A file
// rewritten from its start needs no bytes back.
function guardLentFiles() {
  const file = FS.filesystems.MEMFS.ops_table.file;
  const { setattr } = file.node;
  const { read, write } = file.stream;
  file.node.setattr = (node, attr) => {
    if (node.lent && attr.size === 0) node.usedBytes = 0, delete node.lent;
    else if (attr.size !== undefined) takeBack(node);
    return setattr(node, attr);
  };
  file.stream.open = (stream) => takeBack(stream.node);
  file.stream.read = (stream, ...rest) => {
    takeBack(stream.node);
    return read(stream, ...rest);
  };
  file.stream.write = (stream, ...rest) => {
    takeBack(stream.node);
    return write(stream, ...rest);
  };
}

// Every file in the run's folders that the page has not seen as it is now:
// before a message box (a failed file's outputs stay), and at the end.
function sendOutputs(last = false) {
  const root = `/run/${runNumber}`;
  if (!FS.analyzePath(root).exists) return;
  const paths = [];
  for (const folder of FS.readdir(root)) {
    if (folder === '.' || folder === '..') continue;
    for (const name of FS.readdir(`${root}/${folder}`)) {
      if (name !== '.' && name !== '..') paths.push(`${root}/${folder}/${name}`);
    }
  }
  sendEach(paths, last);
}

// The outputs among `paths`, in one message.
function sendEach(paths, last) {
  const batch = [];
  for (const path of new Set(paths)) sendOutput(path, last, batch);
  if (batch.length) post({ type: 'outputs', outputs: batch }, batch.map((o) => o.bytes.buffer));
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
// from the worker's thread costs most of a millisecond, whatever its size,
// so they are read as one Blob in one go and each file is a view of it.
// Large ones stay where they are and are read as the readers ask.
const EARLY_FILE = 4 << 20;
const EARLY_TOTAL = 64 << 20;
async function readSmallFiles(files) {
  const chosen = new Set();
  let total = 0;
  for (const { file } of files) {
    if (file.size > EARLY_FILE || total + file.size > EARLY_TOTAL || chosen.has(file)) continue;
    chosen.add(file);
    total += file.size;
  }
  const all = new Uint8Array(await new Blob([...chosen]).arrayBuffer());
  const contents = new Map();
  let start = 0;
  for (const file of chosen) {
    contents.set(file, all.subarray(start, start + file.size));
    start += file.size;
  }
  return contents;
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
      if (early.has(file)) FS.writeFile(path, early.get(file), { canOwn: true });
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
    sendOutputs(true);
  } catch (e) {
    failure = failure || String(e);
  }
  flushPaint();
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
      if (answers) guardLentFiles();
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
