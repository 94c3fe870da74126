// node trace_check.mjs TRACE.json[.gz]...: opens the traces as a person does. The DevTools trace engine
// (after a strict JSON read) must put every slice into its thread's tree, and speedscope in headless Chromium
// must draw a profile of every thread with slices (screenshots next to the trace) or call a trace without
// slices empty.
import fs from 'node:fs';
import {createRequire} from 'node:module';
import path from 'node:path';
import {pathToFileURL} from 'node:url';
import zlib from 'node:zlib';
import * as Trace from '@paulirish/trace_engine';
import {polyfillDOMRect} from '@paulirish/trace_engine/analyze-trace.mjs';
import {Chromium, sleep} from './chromium.mjs';

const require = createRequire(import.meta.url);
const app = path.join(path.dirname(require.resolve('speedscope/package.json')), 'dist/release/index.html');
const refusedText = 'Something went wrong';

async function until(what, condition) {
  for (const deadline = Date.now() + 180000; ; await sleep(50)) {
    const value = await condition();
    if (value) return value;
    if (Date.now() > deadline) throw new Error(`timed out waiting for ${what}`);
  }
}

// Picks `file` in speedscope; resolves with the import's milliseconds once the title names the file, the page
// shows refusedText or `stopped()` says it did something else (a dialog, an error).
export async function importTrace(page, file, stopped = () => false) {
  await page.send('Page.navigate', {url: `file://${app}`});
  const input = 'document.querySelector("input[type=file]")';
  await until('the app', () => page.evaluate(`!!${input}`));
  const {result} = await page.send('Runtime.evaluate', {expression: input});
  const started = Date.now();
  await page.send('DOM.setFileInputFiles', {objectId: result.objectId, files: [path.resolve(file)]});
  await until('the import', async () => stopped() ||
      (await page.evaluate('document.title')) === `${path.basename(file)} - speedscope` ||
      (await page.evaluate('document.body.innerText')).includes(refusedText));
  return Date.now() - started;
}

// Calls `visit(name, index)` as each profile is drawn ("n" for the next); resolves with their number. The
// toolbar's line names the profile shown, "(i/n)" at its end when there are more.
export async function eachProfile(page, visit) {
  const profileLine = () => page.evaluate(
      'document.body.innerText.split("\\n").find((line) => /\\(pid \\d+/.test(line)) ?? ""');
  let line = await until('the profile name', profileLine);
  const count = Number(/\/(\d+)\)$/.exec(line)?.[1] ?? 1);
  for (let index = 1; ; ++index) {
    await page.evaluate('new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done)))');
    await visit(line.replace(/ \(\d+\/\d+\)$/, ''), index);
    if (index === count) return count;
    for (const type of ['keyDown', 'keyUp']) await page.send('Input.dispatchKeyEvent', {type, key: 'n', code: 'KeyN', text: 'n'});
    const previous = line;
    line = await until('the next profile', async () => ((next) => next !== previous && next)(await profileLine()));
  }
}

const lanes = ['Foreground', 'Background'];
// UTF-8 as it stands (a fatal decoder), no lone surrogate escapes, integers only.
const strict = (key, value) => {
  const lone = /[\uD800-\uDBFF](?![\uDC00-\uDFFF])|(?<![\uD800-\uDBFF])[\uDC00-\uDFFF]/;
  const bad = [key, value].find((s) => typeof s === 'string' && lone.test(s));
  if (bad !== undefined) throw new Error(`a lone surrogate in ${JSON.stringify(bad)}`);
  if (typeof value === 'number' && !Number.isInteger(value)) throw new Error(`a number that is not an integer: ${value}`);
  return value;
};

async function traceEngine(json) {
  const events = JSON.parse(new TextDecoder('utf-8', {fatal: true}).decode(json), strict).traceEvents;
  const slices = events.filter((event) => event.ph === 'X');
  const model = Trace.TraceModel.Model.createWithAllHandlers();
  const started = performance.now();
  await model.parse(events);
  const {processes, entryToNode} = model.parsedTrace().data.Renderer;
  const threads = [...processes.values()].flatMap((process) => [...process.threads.values()].map((t) => t.name));
  const missing = slices.filter((slice) => !entryToNode.has(slice));
  const problems = missing.length ? [`${missing.length} of ${slices.length} slices left out of the thread trees ` +
                                     `(first: ${JSON.stringify(missing[0])})`] : [];
  for (const lane of lanes) {
    if (slices.length && !threads.some((name) => ` ${name}`.endsWith(` ${lane}`))) problems.push(`no ${lane} thread`);
  }
  return {summary: `${slices.length} slices in ${threads.length} thread trees of ${processes.size} processes, ` +
                   `parsed in ${(performance.now() - started).toFixed(0)} ms`, problems};
}


async function speedscope(browser, page, file, json) {
  const slices = JSON.parse(json.toString('utf8')).traceEvents.filter((e) => e.ph === 'X');
  const threads = new Set(slices.map((e) => `${e.pid}/${e.tid}`));
  const problems = page.collectErrors();
  const dialogs = [];
  page.on('Page.javascriptDialogOpening', ({message}) => dialogs.push(message) &&
      page.send('Page.handleJavaScriptDialog', {accept: true}).catch(() => {}));
  const importMs = await importTrace(page, file, () => dialogs.length || problems.length);
  const said = dialogs.join(' | ');  // only a trace without slices may be called empty
  if (said && (said !== "Successfully imported profile, but it's empty!" || threads.size)) problems.push(`said: ${said}`);
  if (said) return {summary: `imported in ${importMs} ms, reported "${said}"`, problems};
  if ((await page.evaluate('document.body.innerText')).includes(refusedText)) {
    return {summary: `refused after ${importMs} ms`, problems: [...problems, `showed "${refusedText}"`]};
  }
  const drawn = [];
  const count = await eachProfile(page, async (name, index) => {
    const shot = await page.screenshot();
    fs.writeFileSync(`${file.replace(/\.json(\.gz)?$/, '$1')}-${index}.png`, shot);
    if (await browser.colouredPixels(shot, 24 /* below the toolbar */) < 100) problems.push(`profile "${name}" drew nothing`);
    drawn.push(name);
  });
  if (count !== threads.size) problems.push(`${count} profiles for the ${threads.size} threads that hold slices`);
  for (const lane of lanes) {
    if (!drawn.some((name) => name.includes(`, ${lane} (tid `))) problems.push(`no ${lane} profile`);
  }
  return {summary: `imported in ${importMs} ms, drew ${count} profiles (${drawn[0]} ... ${drawn.at(-1)})`, problems};
}

async function main(files) {
  polyfillDOMRect();  // the engine expects a browser's DOMRect, and Array.prototype.toSorted (Node 20 on)
  if (!Array.prototype.toSorted) {
    Object.defineProperty(Array.prototype, 'toSorted', {
      value(compare) { return [...this].sort(compare); }, configurable: true, writable: true});
  }
  const engine = `trace engine ${require('@paulirish/trace_engine/package.json').version}`;
  const browser = await Chromium.launch();
  const viewer = `speedscope ${require('speedscope/package.json').version} in ${browser.version}`;
  let failed = false;
  const report = (client, file, {summary, problems}) => {
    console.log(`${client}: ${file}: ${summary}${problems.length ? `: FAILED: ${problems.join('; ')}` : ''}`);
    failed ||= problems.length > 0;
  };
  const stopped = (error) => ({summary: 'stopped', problems: [error.stack ?? error]});
  try {
    for (const file of files) {
      const bytes = fs.readFileSync(file);
      const json = file.endsWith('.gz') ? zlib.gunzipSync(bytes) : bytes;
      report(engine, file, await traceEngine(json).catch(stopped));
      const page = await browser.newPage();
      report(viewer, file, await speedscope(browser, page, file, json).catch(stopped).finally(() => page.close()));
    }
  } finally {
    await browser.close();
  }
  process.exit(failed ? 1 : 0);
}

if (import.meta.url === pathToFileURL(process.argv[1]).href) await main(process.argv.slice(2));
