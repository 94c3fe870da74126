// Opens HTML pages in headless Chromium and reports, per page, what a reader
// would notice: console errors, uncaught exceptions, requests for anything
// but the page itself, and a page that shows nothing. Needs no npm package.
//
//   node report_check.mjs SCREENSHOT_DIR PAGE.html...
//
// Prints one JSON line per page: {"page", "problems": [...], "loadMs",
// "textLength", "rects", "screenshot"}; the screenshot of the whole page is
// SCREENSHOT_DIR/<page name>.png. Exits 0 when every page was checked
// (problems or not), 2 when the browser could not be driven.
import fs from 'node:fs';
import path from 'node:path';
import {pathToFileURL} from 'node:url';
import {Chromium} from './chromium.mjs';
import {colouredPixels, decodePng} from './png_pixels.mjs';

const [screenshots, ...pages] = process.argv.slice(2);
const kWidth = 1100;
const kLongestShot = 16000;  // pixels; a longer page is shot down to here
const kTimeoutMs = 60000;
// Errors and requests that come just after the load event still count.
const kSettleMs = 500;

const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

async function check(browser, file) {
  const url = pathToFileURL(path.resolve(file)).href;
  const page = await browser.newPage();
  const problems = [];
  page.on('Runtime.consoleAPICalled', ({type, args}) => {
    if (type === 'error' || type === 'assert') {
      problems.push('console error: ' + args.map((a) => a.value ?? a.description).join(' '));
    }
  });
  page.on('Runtime.exceptionThrown', ({exceptionDetails: e}) =>
    problems.push('uncaught exception: ' + (e.exception?.description ?? e.text)));
  page.on('Log.entryAdded', ({entry}) => {
    if (entry.level === 'error') problems.push('console error: ' + entry.text);
  });
  page.on('Network.requestWillBeSent', ({request}) => {
    if (request.url !== url) problems.push('network request: ' + request.url);
  });
  const loaded = new Promise((resolve) => page.on('Page.loadEventFired', resolve));
  await page.send('Network.enable');
  await page.send('Emulation.setDeviceMetricsOverride',
                  {width: kWidth, height: 900, deviceScaleFactor: 1, mobile: false});
  const started = Date.now();
  await page.send('Page.navigate', {url});
  await Promise.race([loaded, sleep(kTimeoutMs).then(() => { throw new Error(`loading ${file} timed out`); })]);
  const loadMs = Date.now() - started;
  await sleep(kSettleMs);

  const facts = await page.evaluate(`({
    text: document.body ? document.body.innerText.trim().length : 0,
    rects: document.querySelectorAll('svg rect').length,
    height: Math.ceil(document.documentElement.scrollHeight)})`);
  await page.send('Emulation.setDeviceMetricsOverride', {
    width: kWidth, height: Math.max(1, Math.min(facts.height, kLongestShot)), deviceScaleFactor: 1,
    mobile: false});
  const shot = Buffer.from((await page.send('Page.captureScreenshot', {format: 'png'})).data, 'base64');
  const screenshot = path.join(screenshots, path.basename(file).replace(/\.html?$/, '') + '.png');
  fs.writeFileSync(screenshot, shot);
  if (facts.text === 0) problems.push('blank page');
  else if (facts.rects > 0 && colouredPixels(decodePng(shot)) === 0) problems.push('drawings not shown');
  await page.close();
  return {page: file, problems, loadMs, textLength: facts.text, rects: facts.rects, screenshot};
}

let status = 0;
const browser = await Chromium.launch().catch((error) => {
  console.error(`report_check: ${error.message}`);
  process.exit(2);
});
try {
  for (const file of pages) console.log(JSON.stringify(await check(browser, file)));
} catch (error) {
  console.error(`report_check: ${error.message}`);
  status = 2;
} finally {
  await browser.close();
}
process.exit(status);
