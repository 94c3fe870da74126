// A picture of a portable trace as speedscope shows it: every profile in
// turn (one per graph and lane), the top band of each screenshot (toolbar,
// overview, time axis, the first rows of slices) stacked into one PNG.
//
//   node scripts/trace_picture.mjs TRACE.json OUT.png
import fs from 'node:fs';
import {Chromium} from '../tests/clients/chromium.mjs';
import {eachProfile, importTrace} from '../tests/clients/trace_check.mjs';

const kWidth = 1400;
const kBandHeight = 166;  // toolbar, overview, axis and two rows of slices
const kGap = 6;           // a dark rule between two bands

const [trace, output] = process.argv.slice(2);
if (!trace || !output) {
  console.error('usage: node scripts/trace_picture.mjs TRACE.json OUT.png');
  process.exit(2);
}
const browser = await Chromium.launch();
try {
  const page = await browser.newPage();
  await page.resize(kWidth, 800);
  await importTrace(page, trace);
  const bands = [];
  await eachProfile(page, async () => bands.push(
      (await page.screenshot({x: 0, y: 0, width: kWidth, height: kBandHeight, scale: 1})).toString('base64')));
  // The bands one under the other, drawn by the browser into a single PNG.
  const height = bands.length * kBandHeight + (bands.length - 1) * kGap;
  const sheet = await browser.newPage();
  await sheet.resize(kWidth, height);
  const images = bands.map((data) => `<img src="data:image/png;base64,${data}">`).join('');
  await sheet.evaluate(`(async () => {
    document.documentElement.style.overflow = 'hidden';
    document.body.style.cssText = 'margin:0;background:#444;display:grid;row-gap:${kGap}px';
    document.body.innerHTML = ${JSON.stringify(images)};
    for (const img of document.images) await img.decode();
    await new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done)));
  })()`);
  const picture = await sheet.screenshot({x: 0, y: 0, width: kWidth, height, scale: 1});
  fs.writeFileSync(output, picture);
  console.log(`${output}: ${bands.length} profiles of ${trace}, ${picture.length} bytes`);
} finally {
  await browser.close();
}
