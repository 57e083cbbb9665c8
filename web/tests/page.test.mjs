// The page in a real browser: the same outputs and messages as the desktop
// program, questions answered both ways, the boxes' rules, the plot and the zip.
import assert from 'node:assert/strict';
import { mkdirSync, readFileSync, writeFileSync } from 'node:fs';
import { basename, join } from 'node:path';
import { after, before, describe, test } from 'node:test';
import { unzipSync } from 'fflate';
import {
  convert, convertNatively, dropFiles, examples, masked, outputs, pickFormat, queueFiles, root, sampleFiles, setBox,
  startBrowser, status, tempDir,
} from './support.mjs';

let browser;
before(async () => { browser = await startBrowser(); });
after(async () => { await browser.close(); });

const example = (name) => join(examples, name);

// One run through the page and the same run natively: every output alike.
async function expectSameAsNative(page, { format = 'All', boxes = [], native = [], files }) {
  // A run that ends early (the CSV table) leaves its queue, as in the window: each run here starts empty.
  const left = await page.$$eval('#List1 option', (o) => o.map((x) => x.value));
  if (left.length) {
    await page.selectOption('#List1', left);
    await page.click('#remove');
  }
  await pickFormat(page, format);
  for (const box of boxes) await setBox(page, box, true);
  await queueFiles(page, files);
  await convert(page);
  const fromPage = await outputs(page);
  const { dir, written } = convertNatively(files, native);
  assert.deepEqual([...fromPage.keys()].sort(), [...written.keys()].sort(), `outputs of ${files.map((f) => basename(f))}`);
  for (const [name, bytes] of written) {
    assert.equal(masked(fromPage.get(name)), masked(bytes, dir), name);
  }
  for (const box of boxes) await setBox(page, box, false);
  return fromPage;
}

describe('conversions', () => {
  test('every example file gives the native outputs', async () => {
    const page = await browser.open();
    const runs = [
      { boxes: ['SPE'], native: ['--spe'], files: ['iaea.spe', 'ascii.asc', 'rutherford.rbs', 'simulated.sim',
        'block.dat', 'twocolumn.odf', 'genie.cnf', 'ortec.chn', 'spectech.spu', 'canberra.bin', 'bruker.spx',
        'generic.xml', 'fastcomtec.mpa', 'omdaq._', 'events.evt'] },
      { files: ['table.csv'] },
      { format: 'Canberra S-100 *.mca', native: ['--format', 'Canberra S-100 *.mca'], files: ['s100.mca'] },
      { format: 'Canberra 35/40 *.mca', native: ['--format', 'Canberra 35/40 *.mca'], files: ['canberra3540.mca'] },
      { files: ['brukeraxs.raw', 'panalytical.rd'] },
      { files: ['jcamp-affn.jdx', 'jcamp-asdf.jdx'] },
      { format: 'Shimadzu *.pho', native: ['--format', 'Shimadzu *.pho'], files: ['shimadzu.pho'] },
      { format: 'Old TA Instr TGA/DSC', native: ['--format', 'Old TA Instr TGA/DSC'], files: ['tainstruments.001'] },
      { files: ['thermo.spa', 'galactic.spc', 'spectrum.gaml'] },
      { boxes: ['ModernRead'], native: ['--modern'], files: ['thermo.spa', 'galactic.spc', 'spectrum.gaml',
        'fastcomtec.mpa', 'genie.cnf', 'brukeraxs.raw', 'jcamp-affn.jdx', 'jcamp-asdf.jdx', 'bruker.spx'] },
      { boxes: ['SPO', 'DsGr', 'LogScale'], native: ['--spo', '--graph', '--log'], files: ['ortec.chn', 'iaea.spe'] },
    ];
    for (const run of runs) await expectSameAsNative(page, { ...run, files: run.files.map(example) });
    console.log(`page ready to convert ${page.readyMs} ms after loading`);
    await page.close();
  });

  test('a large input, read where it is, beside a small one gives the native outputs', async () => {
    const page = await browser.open();
    const dir = tempDir();
    const big = join(dir, 'big.odf');
    const lines = [];
    for (let i = 0, x = 12345; i < 400000; i++) {
      x = (x * 16807) % 2147483647;
      lines.push(` ${i}  ${x % 100000} \r\n`);
    }
    writeFileSync(big, lines.join(''));
    await expectSameAsNative(page, { boxes: ['SPE'], native: ['--spe'], files: [example('ortec.chn'), big] });
    await page.close();
  });

  test('the real samples of every format give the native outputs', async () => {
    const page = await browser.open();
    for (const kind of ['chn', 'cnf', 'gaml', 'jcamp', 'mca', 'mpa', 'raw', 'spa', 'spc', 'spe']) {
      for (const modern of [false, true]) {
        await expectSameAsNative(page, {
          boxes: modern ? ['ModernRead'] : [], native: modern ? ['--modern'] : [], files: sampleFiles(kind),
        });
      }
    }
    await page.close();
  });
});

describe('messages', () => {
  test('a refused file, a run-time error and DICOM show the desktop texts, and the next run works', async () => {
    let page = await browser.open();
    const dir = tempDir();
    const foo = join(dir, 'x.foo');
    writeFileSync(foo, '5\r\n');
    const chn = join(dir, 'short.chn');
    writeFileSync(chn, Buffer.from([0xff, 0xff, 1]));

    await page.fill('#Text1', '-dat');
    await dropFiles(page, [foo]);
    let boxes = await convert(page);
    assert.deepEqual(boxes, [{ text: 'Option no longer supported! Set the SPE/SPO appropriate selection and try again!!',
      icon: 'critical', yesNo: false }]);

    // A fresh page: the typed "-dat" stays the format option. The file
    // converted before the failing one keeps its outputs.
    await page.close();
    page = await browser.open();
    await dropFiles(page, [example('ortec.chn'), chn]);
    const native = convertNatively([example('ortec.chn'), chn], []);
    boxes = await convert(page);
    assert.deepEqual([...(await outputs(page)).keys()].sort(), [...native.written.keys()].sort());
    assert.ok(native.written.has('ortec.odf'));
    assert.equal(boxes.length, 1);
    assert.equal(`${boxes[0].icon}: ${boxes[0].text}\n`, masked(Buffer.from(native.err), native.dir));
    // The failed run writes no status line, as the converter's empty standard output shows.
    assert.equal((await status(page)).text, masked(Buffer.from(native.out.trim().split('\n').pop()), native.dir));
    assert.equal(await page.$$eval('#List1 option', (o) => o.length), 0, 'the queue is cleared');
    assert.deepEqual(await convert(page), []);
    assert.deepEqual(await status(page), { text: 'Add files first !', red: true });

    // DICOM needs DCMTK, which only the desktop program has.
    await dropFiles(page, [join(examples, 'image.dcm')]);
    boxes = await convert(page);
    assert.match(boxes[0].text, /DICOM files need the desktop program/);

    // The engine is still there: a good file converts.
    await dropFiles(page, [example('ortec.chn')]);
    assert.deepEqual(await convert(page), []);
    assert.deepEqual(await status(page), { text: 'Finished 1 files', red: false });
    await page.close();
  });

  test('a Yes/No question is answered both ways', async () => {
    const page = await browser.open();
    const dir = tempDir();
    const foo = join(dir, 'x.foo');
    writeFileSync(foo, '5\r\n');
    const question = 'WARNING: format option not recognized! Conversion may be awkward, proceed?';
    await pickFormat(page, 'Canberra S-100 *.mca');
    for (const answer of ['yes', 'no']) {
      await dropFiles(page, [foo]);
      const boxes = await convert(page, answer);
      assert.deepEqual(boxes[0], { text: question, icon: '', yesNo: true }); // no icon, as in the window
      const written = await outputs(page);
      assert.equal(written.size > 0, answer === 'yes', `outputs after ${answer}`);
    }
    await page.close();
  });
});

describe('controls', () => {
  test('SPE and SPO exclude each other, and a format entry has its effects', async () => {
    const page = await browser.open();
    // The engine answers each click with the boxes as they now are.
    const shows = (spe, spo) => page.waitForFunction(([e, o]) =>
      document.getElementById('SPE').checked === e && document.getElementById('SPO').checked === o, [spe, spo]);
    await page.click('#SPE');
    await shows(true, false);
    await page.click('#SPO');
    await shows(false, true);
    await page.click('#SPE');
    await shows(true, false);
    await page.click('#SPE');
    await shows(false, false);
    await pickFormat(page, 'Genie2K *.cnf');
    await page.waitForFunction(() => document.getElementById('Text1').value === '*.cnf');
    await pickFormat(page, 'OriginLab (X,Y) *.odf');
    await page.waitForSelector('#rOMDAQ:not([hidden])');
    assert.equal(await page.$$eval('#formats option', (o) => o.length), 24);
    await page.close();
  });

  test('the plot shows with GRAPH ticked, its readout names the nearest point, and the zip holds every output', async () => {
    const page = await browser.open();
    await pickFormat(page, 'All');
    await setBox(page, 'DsGr', true);
    await setBox(page, 'SPE', true);
    await queueFiles(page, [example('ortec.chn'), example('iaea.spe')]);
    await convert(page);
    await page.waitForSelector('#SpecPlot:not([hidden])');
    const box = await page.locator('#plotCanvas').boundingBox();
    await page.mouse.move(box.x + box.width * 0.4, box.y + box.height / 2);
    const readout = await page.textContent('#readout');
    const expected = await page.evaluate(([px, py]) => {
      const plot = window.kestroPage.plot;
      const i = plot.nearest(plot.toValue(px, py)[0]);
      return [plot.xs[i], plot.ys[i]];
    }, [box.width * 0.4, box.height / 2]);
    assert.match(readout, new RegExp(`^X = ${expected[0]}\\s+Y = ${expected[1]}$`));
    mkdirSync(join(root, 'docs/images'), { recursive: true });
    await page.mouse.move(box.x + box.width * 0.62, box.y + box.height * 0.6);
    await page.waitForSelector('#readout:not([hidden])');
    await page.screenshot({ path: join(root, 'docs/images/web-page.png') });

    // The wheel narrows X around the cursor, a dragged rectangle zooms into it, Home shows it all again.
    const view = () => page.evaluate(() => ({ ...window.kestroPage.plot.view }));
    const full = await view();
    await page.mouse.wheel(0, -100);
    const wheeled = await view();
    assert.ok(wheeled.x1 - wheeled.x0 < 0.85 * (full.x1 - full.x0) && wheeled.y0 === full.y0, 'wheel');
    await page.mouse.move(box.x + box.width * 0.3, box.y + box.height * 0.3);
    await page.mouse.down();
    await page.mouse.move(box.x + box.width * 0.5, box.y + box.height * 0.7, { steps: 4 });
    await page.mouse.up();
    const zoomed = await view();
    assert.ok(zoomed.x0 > wheeled.x0 && zoomed.x1 < wheeled.x1 && zoomed.y1 < full.y1 && zoomed.y0 > full.y0, 'rectangle');
    await page.click('#plotHome');
    assert.deepEqual(await view(), full);
    const [image] = await Promise.all([page.waitForEvent('download'), page.click('#plotSave')]);
    assert.equal(image.suggestedFilename(), 'iaea.png');
    assert.deepEqual([...readFileSync(await image.path()).subarray(0, 4)], [0x89, 0x50, 0x4e, 0x47]);

    const [download] = await Promise.all([page.waitForEvent('download'), page.click('#downloadZip')]);
    const zip = unzipSync(readFileSync(await download.path()));
    const written = await outputs(page);
    assert.deepEqual(Object.keys(zip).sort(), [...written.keys()].sort());
    for (const [name, bytes] of written) assert.deepEqual(Buffer.from(zip[name]), bytes, name);
    await page.close();
  });

  test('outputs are written beside the inputs in the picked folder', async () => {
    const page = await browser.open();
    // The browser's private folder stands in for a folder the user picked.
    const input = readFileSync(example('ortec.chn')).toString('base64');
    await page.evaluate(async (b64) => {
      const folder = await (await navigator.storage.getDirectory()).getDirectoryHandle('picked', { create: true });
      const writable = await (await folder.getFileHandle('ortec.chn', { create: true })).createWritable();
      await writable.write(Uint8Array.from(atob(b64), (c) => c.charCodeAt(0)));
      await writable.close();
      await window.kestroPage.useFolder(folder);
    }, input);
    await pickFormat(page, 'ORTEC/Maestro *.chn');
    await page.selectOption('#File1', { label: 'ortec.chn' });
    await page.click('#addfile');
    await setBox(page, 'SPE', true);
    assert.deepEqual(await convert(page), []);
    const inFolder = await page.evaluate(async () => {
      const folder = await (await navigator.storage.getDirectory()).getDirectoryHandle('picked');
      const found = {};
      for await (const entry of folder.values()) found[entry.name] = (await entry.getFile()).size;
      return found;
    });
    const written = await outputs(page);
    assert.deepEqual(Object.keys(inFolder).sort(), ['ortec.chn', ...written.keys()].sort());
    for (const [name, bytes] of written) assert.equal(inFolder[name], bytes.length, name);
    await page.close();
  });
});
