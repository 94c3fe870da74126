// node report_check.mjs SCREENSHOT_DIR PAGE.html...: opens each page in headless Chromium and prints one line of
// what a reader would notice ("; " between; empty for nothing): console errors, uncaught exceptions, requests for
// anything but the page, a blank page, drawings without colour. Fails when the browser could not be driven.
import fs from 'node:fs';
import path from 'node:path';
import {pathToFileURL} from 'node:url';
import {Chromium, sleep} from './chromium.mjs';

const [screenshots, ...pages] = process.argv.slice(2);
const kWidth = 1100, kLongestShot = 16000;  // pixels; a longer page is shot down to here

async function check(browser, file) {
  const url = pathToFileURL(path.resolve(file)).href;
  const page = await browser.newPage();
  const problems = page.collectErrors();
  page.on('Network.requestWillBeSent', ({request}) => request.url !== url && problems.push('network request: ' + request.url));
  const loaded = new Promise((resolve) => page.on('Page.loadEventFired', resolve));
  await page.send('Network.enable');
  await page.resize(kWidth, 900);
  await page.send('Page.navigate', {url});
  await Promise.race([loaded, sleep(60000).then(() => { throw new Error(`loading ${file} timed out`); })]);
  await sleep(500);  // errors and requests just after the load event still count
  const facts = await page.evaluate(`({text: document.body ? document.body.innerText.trim().length : 0,
    rects: document.querySelectorAll('svg rect').length, height: Math.ceil(document.documentElement.scrollHeight)})`);
  await page.resize(kWidth, Math.max(1, Math.min(facts.height, kLongestShot)));
  const shot = await page.screenshot();
  fs.writeFileSync(path.join(screenshots, path.basename(file).replace(/\.html?$/, '') + '.png'), shot);
  await page.close();
  if (facts.text === 0) problems.push('blank page');
  else if (facts.rects > 0 && await browser.colouredPixels(shot) === 0) problems.push('drawings not shown');
  return problems;
}

const browser = await Chromium.launch();
try {
  for (const file of pages) console.log((await check(browser, file)).join('; ').replace(/\s*\n\s*/g, ' '));
} finally {
  await browser.close();
}
