// Opens traces in speedscope's static app, loaded from disk in headless
// Chromium, the way a person does: "Browse", pick the file. Checks that each
// trace is imported without an error and that every thread that holds
// slices becomes a profile whose flame chart draws (coloured pixels on a
// screenshot). A trace without slices must be reported as empty, not refused.
//
//   node speedscope_check.mjs [--screenshots DIR] TRACE.json[.gz]...
import fs from 'node:fs';
import path from 'node:path';
import zlib from 'node:zlib';
import {Chromium} from './chromium.mjs';
import {colouredPixels, decodePng} from './png_pixels.mjs';
import {importTrace, nextFrame, profileLine, refusedText, showNextProfile, speedscopeVersion,
        until} from './speedscope_app.mjs';

const kEmptyMessage = "Successfully imported profile, but it's empty!";
const kToolbarHeight = 24;  // the chart is drawn below the toolbar
const kDrawnPixels = 100;

// The threads that hold slices, as speedscope names its profiles.
function expectedProfiles(trace) {
  const names = new Map();
  const threads = new Set();
  for (const event of trace.traceEvents) {
    if (event.ph === 'M' && event.name === 'thread_name') names.set(`${event.pid}/${event.tid}`, event.args.name);
    if (event.ph === 'X') threads.add(`${event.pid}/${event.tid}`);
  }
  return [...threads].map((thread) => names.get(thread));
}

async function check(page, file, screenshots) {
  const bytes = fs.readFileSync(file);
  // speedscope opens .json.gz files as they are; so does this check.
  const trace = JSON.parse((file.endsWith('.gz') ? zlib.gunzipSync(bytes) : bytes).toString('utf8'));
  const expected = expectedProfiles(trace);
  const errors = [];
  const dialogs = [];
  page.on('Runtime.exceptionThrown', ({exceptionDetails: e}) =>
    errors.push(e.exception?.description ?? e.text));
  page.on('Runtime.consoleAPICalled', ({type, args}) => {
    if (type === 'error' || type === 'assert') errors.push(args.map((a) => a.value ?? a.description).join(' '));
  });
  page.on('Log.entryAdded', ({entry}) => { if (entry.level === 'error') errors.push(entry.text); });
  page.on('Page.javascriptDialogOpening', ({message}) => {
    dialogs.push(message);
    page.send('Page.handleJavaScriptDialog', {accept: true}).catch(() => {});
  });

  const importMs = await importTrace(page, file, () => dialogs.length || errors.length);

  const problems = [];
  if (dialogs.length) {
    const empty = dialogs.length === 1 && dialogs[0] === kEmptyMessage;
    if (!empty || expected.length) problems.push(`said: ${dialogs.join(' | ')}`);
    problems.push(...errors.map((e) => `error: ${e}`));
    return {summary: `imported in ${importMs} ms, reported "${dialogs.join(' | ')}"`, problems};
  }
  if ((await page.evaluate('document.body.innerText')).includes(refusedText)) {
    problems.push(`showed "${refusedText}"`, ...errors.map((e) => `error: ${e}`));
    return {summary: `refused after ${importMs} ms`, problems};
  }

  // Every profile in turn ("n" shows the next), screenshot by screenshot.
  const drawn = [];
  let line = await until('the profile name', () => profileLine(page));
  const count = Number(/\/(\d+)\)$/.exec(line)?.[1] ?? 1);
  for (let index = 1; index <= count; ++index) {
    await nextFrame(page);
    const shot = Buffer.from((await page.send('Page.captureScreenshot', {format: 'png'})).data, 'base64');
    const pixels = colouredPixels(decodePng(shot), kToolbarHeight);
    const name = line.replace(/ \(\d+\/\d+\)$/, '');
    if (pixels < kDrawnPixels) problems.push(`profile "${name}" drew nothing`);
    drawn.push(name);
    if (screenshots) {
      fs.writeFileSync(path.join(screenshots, `${path.basename(file, '.json')}-${index}.png`), shot);
    }
    if (index === count) break;
    line = await showNextProfile(page, line);
  }
  if (count !== expected.length) {
    problems.push(`${count} profiles for the ${expected.length} threads that hold slices`);
  }
  for (const lane of ['Foreground', 'Background']) {
    if (!drawn.some((name) => name.includes(`, ${lane} (tid `))) problems.push(`no ${lane} profile`);
  }
  problems.push(...errors.map((e) => `error: ${e}`));
  return {summary: `imported in ${importMs} ms, drew ${drawn.length} profiles ` +
                   `(${drawn[0]} ... ${drawn[drawn.length - 1]})`, problems};
}

const args = process.argv.slice(2);
let screenshots = null;
if (args[0] === '--screenshots') {
  screenshots = args[1];
  args.splice(0, 2);
  fs.mkdirSync(screenshots, {recursive: true});
}
const browser = await Chromium.launch();
let failed = false;
try {
  for (const file of args) {
    const label = `speedscope ${speedscopeVersion} in ${browser.version}: ${file}`;
    try {
      const page = await browser.newPage();
      const {summary, problems} = await check(page, file, screenshots).finally(() => page.close());
      console.log(`${label}: ${summary}${problems.length ? `: FAILED: ${problems.join('; ')}` : ''}`);
      failed ||= problems.length > 0;
    } catch (error) {
      console.log(`${label}: FAILED: ${error.message}`);
      failed = true;
    }
  }
} finally {
  await browser.close();
}
process.exit(failed ? 1 : 0);
