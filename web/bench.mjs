// Times conversions through the page's worker in headless Chromium, from the
// click on Convert to the end of the run (outputs handed to the page).
//   node web/bench.mjs RUNS FORMAT BOXES FILE...   (BOXES: comma list, or "-")
// Prints one line: "ready MS best MS".
import { convert, pickFormat, queueFiles, setBox, startBrowser } from './tests/support.mjs';

const [runs, format, boxes, ...files] = process.argv.slice(2);
const browser = await startBrowser();
let best = Infinity;
let ready = Infinity;
try {
  for (let i = 0; i < Number(runs); i++) {
    const page = await browser.open();
    ready = Math.min(ready, page.readyMs);
    await pickFormat(page, format);
    for (const box of boxes === '-' ? [] : boxes.split(',')) await setBox(page, box, true);
    await queueFiles(page, files, { inOrder: false });
    const started = Date.now();
    await convert(page);
    best = Math.min(best, Date.now() - started);
    const text = await page.inputValue('#Text2').catch(() => page.$eval('#Text2', (e) => e.value));
    if (!/^Finished/.test(text)) throw new Error(`the run ended with "${text}"`);
    await page.close();
  }
} finally {
  await browser.close();
}
console.log(`ready ${ready} best ${best}`);
