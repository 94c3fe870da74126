// A picture of a portable trace as speedscope shows it: every profile in
// turn (one per graph and lane), the top band of each screenshot (toolbar,
// overview, time axis, the first rows of slices) stacked into one PNG.
//
//   node trace_picture.mjs TRACE.json OUT.png
import fs from 'node:fs';
import {Chromium} from './chromium.mjs';
import {importTrace, nextFrame, profileLine, showNextProfile, until} from './speedscope_app.mjs';

const kWidth = 1400;
const kBandHeight = 166;  // toolbar, overview, axis and two rows of slices
const kGap = 6;           // a dark rule between two bands

const [trace, output] = process.argv.slice(2);
if (!trace || !output) {
  console.error('usage: node trace_picture.mjs TRACE.json OUT.png');
  process.exit(2);
}

async function bands(page) {
  await page.send('Emulation.setDeviceMetricsOverride',
                  {width: kWidth, height: 800, deviceScaleFactor: 1, mobile: false});
  await importTrace(page, trace);
  let line = await until('the first profile', () => profileLine(page));
  const count = Number(/\/(\d+)\)$/.exec(line)?.[1] ?? 1);
  const shots = [];
  for (let index = 1; ; ++index) {
    await nextFrame(page);
    const clip = {x: 0, y: 0, width: kWidth, height: kBandHeight, scale: 1};
    shots.push((await page.send('Page.captureScreenshot', {format: 'png', clip})).data);
    if (index === count) return shots;
    line = await showNextProfile(page, line);
  }
}

// The bands one under the other, drawn by the browser into a single PNG.
async function stack(page, shots) {
  const height = shots.length * kBandHeight + (shots.length - 1) * kGap;
  await page.send('Emulation.setDeviceMetricsOverride',
                  {width: kWidth, height, deviceScaleFactor: 1, mobile: false});
  const images = shots.map((data) => `<img src="data:image/png;base64,${data}">`).join('');
  await page.evaluate(`(async () => {
    document.documentElement.style.overflow = 'hidden';
    document.body.style.cssText = 'margin:0;background:#444;display:grid;row-gap:${kGap}px';
    document.body.innerHTML = ${JSON.stringify(images)};
    for (const img of document.images) await img.decode();
  })()`);
  await nextFrame(page);
  const clip = {x: 0, y: 0, width: kWidth, height, scale: 1};
  return Buffer.from((await page.send('Page.captureScreenshot', {format: 'png', clip})).data, 'base64');
}

const browser = await Chromium.launch();
try {
  const page = await browser.newPage();
  const shots = await bands(page);
  const picture = await stack(await browser.newPage(), shots);
  fs.writeFileSync(output, picture);
  console.log(`${output}: ${shots.length} profiles of ${trace}, ${picture.length} bytes`);
} finally {
  await browser.close();
}
