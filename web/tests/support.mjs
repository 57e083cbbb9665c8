// For the browser tests: the page served from build-web/, Debian's
// Chromium driven headless, the native converter to compare with, and the
// page's outputs read back.
import { execFileSync } from 'node:child_process';
import { cpSync, mkdirSync, mkdtempSync, readdirSync, readFileSync, rmSync, statSync, utimesSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { basename, dirname, join, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';
import { chromium } from 'playwright-core';
import { serve } from '../serve.mjs';

export const root = resolve(dirname(fileURLToPath(import.meta.url)), '../..');
export const buildWeb = process.env.KESTRO_BUILD_WEB || join(root, 'build-web');
export const nativeConvert = process.env.KESTRO_NATIVE_CONVERT || join(root, 'build/bin/kestro-convert');
export const examples = join(root, 'examples');
export const samples = join(root, 'tests/samples');

const chromiumFlags = ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
  '--disable-background-networking', '--disable-component-update', '--disable-sync'];

// One server and one browser for a test file; each test opens its own page.
export async function startBrowser() {
  const server = await serve(buildWeb, 0);
  const profile = mkdtempSync(join(tmpdir(), 'kestro-chromium-'));
  const context = await chromium.launchPersistentContext(profile, {
    executablePath: process.env.KESTRO_CHROMIUM || '/usr/bin/chromium',
    headless: true,
    args: chromiumFlags,
    acceptDownloads: true,
    viewport: { width: 1200, height: 900 },
  });
  const url = `http://127.0.0.1:${server.address().port}/`;
  return {
    url,
    // `prepare(page)` runs before the page loads (routes, for one).
    async open(prepare) {
      const page = await context.newPage();
      page.on('pageerror', (e) => console.error(`page error: ${e.message}`));
      if (prepare) await prepare(page);
      const started = Date.now();
      await page.goto(url);
      await page.waitForSelector('body[data-ready="yes"]');
      page.readyMs = Date.now() - started;
      return page;
    },
    async close() {
      await context.close();
      server.close();
      rmSync(profile, { recursive: true, force: true });
    },
  };
}

export function tempDir() {
  return mkdtempSync(join(tmpdir(), 'kestro-web-test-'));
}

// The format selector: an entry by its text, as a user picks it from the list.
export async function pickFormat(page, text) {
  await page.fill('#Combo1', text);
}

export async function setBox(page, id, on) {
  if ((await page.isChecked(`#${id}`)) !== on) await page.click(`#${id}`);
}

// Offers the files to the page (the file picker), then queues them from the
// file list as shown under the current pattern: one at a time, in the order
// given, or all at once in the list's order.
export async function queueFiles(page, paths, { inOrder = true } = {}) {
  const names = paths.map((p) => basename(p));
  await page.setInputFiles('#fileInput', paths);
  const values = await page.$$eval('#File1 option', (options, wanted) =>
    wanted.map((name) => (options.find((o) => o.text === name) || {}).value), names);
  const missing = names.filter((_, i) => values[i] === undefined);
  if (missing.length) throw new Error(`not listed: ${missing.join(', ')}`);
  for (const chosen of inOrder ? values.map((v) => [v]) : [values]) {
    await page.selectOption('#File1', chosen);
    await page.click('#addfile');
  }
}

// Drops the files on the page, which queues them whatever the pattern.
export async function dropFiles(page, paths) {
  const files = paths.map((p) => [basename(p), readFileSync(p).toString('base64'), statSync(p).mtimeMs]);
  const transfer = await page.evaluateHandle((list) => {
    const t = new DataTransfer();
    for (const [name, b64, mtime] of list) {
      const bytes = Uint8Array.from(atob(b64), (c) => c.charCodeAt(0));
      t.items.add(new File([bytes], name, { lastModified: mtime }));
    }
    return t;
  }, files);
  await page.dispatchEvent('body', 'drop', { dataTransfer: transfer });
}

// Convert, answering the message boxes as they come (Yes/No by `answer`);
// returns the boxes shown, in order.
export async function convert(page, answer = 'no') {
  const count = async (name) => Number((await page.getAttribute('body', `data-${name}`)) || 0);
  const runsBefore = await count('runs');
  let boxesSeen = await count('boxes');
  const boxes = [];
  await page.click('#RunCode');
  for (;;) {
    const next = await page.waitForFunction(([runs, seen]) => {
      const d = document.body.dataset;
      if (Number(d.boxes || 0) > seen && document.getElementById('messageBox').open) return 'box';
      return Number(d.runs || 0) > runs ? 'done' : false;
    }, [runsBefore, boxesSeen]).then((h) => h.jsonValue());
    if (next === 'done') break;
    boxesSeen += 1;
    const box = await page.evaluate(() => ({
      text: document.getElementById('boxText').textContent,
      icon: document.getElementById('boxIcon').className.replace('icon', '').trim(),
      yesNo: !document.getElementById('boxYes').hidden,
    }));
    boxes.push(box);
    await page.click(box.yesNo ? (answer === 'yes' ? '#boxYes' : '#boxNo') : '#boxOk');
  }
  return boxes;
}

export async function status(page) {
  return page.evaluate(() => ({
    text: document.getElementById('Text2').value,
    red: document.getElementById('Text2').classList.contains('red'),
  }));
}

// The outputs of the last run: name -> bytes.
export async function outputs(page) {
  const list = await page.evaluate(async () => {
    const result = [];
    for (const [, { name, bytes }] of window.kestroPage.outputs()) {
      let text = '';
      for (let i = 0; i < bytes.length; i += 0x8000) text += String.fromCharCode(...bytes.subarray(i, i + 0x8000));
      result.push([name, btoa(text)]);
    }
    return result;
  });
  return new Map(list.map(([name, b64]) => [name, Buffer.from(b64, 'base64')]));
}

// The native converter on copies of the inputs in a fresh folder: the files it wrote, name -> bytes.
export function convertNatively(paths, args) {
  const dir = tempDir();
  for (const p of paths) {
    cpSync(p, join(dir, basename(p)));
    const { atime, mtime } = statSync(p);
    utimesSync(join(dir, basename(p)), atime, mtime);
  }
  let err = '';
  let out = '';
  try {
    out = String(execFileSync(nativeConvert, [...args, ...paths.map((p) => basename(p))], { cwd: dir, stdio: 'pipe' }));
  } catch (e) {
    err = String(e.stderr);
    out = String(e.stdout);
  }
  const inputs = new Set(paths.map((p) => basename(p)));
  const written = new Map();
  for (const name of readdirSync(dir)) {
    // The record of Kestro's own outputs holds this folder's times; the page has none.
    if (inputs.has(name) || name === '.kestro-outputs' || !statSync(join(dir, name)).isFile()) continue;
    written.set(name, readFileSync(join(dir, name)));
  }
  rmSync(dir, { recursive: true, force: true });
  return { dir, written, err, out };
}

// Folder names (the page shows none) and clock texts aside, the bytes must agree.
export function masked(bytes, folder) {
  const text = bytes.toString('latin1');
  return (folder ? text.split(`${folder}/`).join('') : text)
    .replace(/\/run\/\d+\/\d+\//g, '')
    .replace(/\d{2}-\d{2}-\d{4} +\d{2}:\d{2}:\d{2}/g, 'CLOCK');
}

export function sampleFiles(kind) {
  const dir = join(samples, kind);
  return readdirSync(dir).filter((n) => !n.endsWith('.md')).map((n) => join(dir, n));
}

export { mkdirSync };
