// speedscope's static app, loaded from disk in headless Chromium and driven
// the way a person does: "Browse", pick the file, "n" for the next profile
// (one per thread that holds slices). Run as a script, it checks that each
// trace is imported without an error and that every thread that holds
// slices becomes a profile whose flame chart draws (coloured pixels on a
// screenshot); a trace without slices must be reported as empty, not refused.
//
//   node speedscope_check.mjs [--screenshots DIR] TRACE.json[.gz]...
import fs from 'node:fs';
import {createRequire} from 'node:module';
import path from 'node:path';
import {pathToFileURL} from 'node:url';
import zlib from 'node:zlib';
import {Chromium, sleep} from './chromium.mjs';

const require = createRequire(import.meta.url);
export const speedscopeVersion = require('speedscope/package.json').version;
const app = path.join(path.dirname(require.resolve('speedscope/package.json')),
                      'dist/release/index.html');
export const refusedText = 'Something went wrong';

async function until(what, condition) {
  for (const deadline = Date.now() + 180000; ; await sleep(50)) {
    const value = await condition();
    if (value) return value;
    if (Date.now() > deadline) throw new Error(`timed out waiting for ${what}`);
  }
}

// Opens the app and picks `file` in it; resolves with the milliseconds the
// import took, once the title names the file, the page shows refusedText or
// `stopped()` says the page did something else (a dialog, an error).
export async function importTrace(page, file, stopped = () => false) {
  await page.send('Page.navigate', {url: `file://${app}`});
  const input = 'document.querySelector("input[type=file]")';
  await until('the app', () => page.evaluate(`!!${input}`));
  const {result} = await page.send('Runtime.evaluate', {expression: input});
  const started = Date.now();
  await page.send('DOM.setFileInputFiles', {objectId: result.objectId, files: [path.resolve(file)]});
  const title = `${path.basename(file)} - speedscope`;
  await until('the import', async () => stopped() ||
      (await page.evaluate('document.title')) === title ||
      (await page.evaluate('document.body.innerText')).includes(refusedText));
  return Date.now() - started;
}

// Shows every profile in turn ("n" for the next), calling `visit(name,
// index)` once each is drawn; resolves with the number of profiles. The
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
    for (const type of ['keyDown', 'keyUp']) {
      await page.send('Input.dispatchKeyEvent', {type, key: 'n', code: 'KeyN', text: 'n'});
    }
    const previous = line;
    line = await until('the next profile', async () => {
      const next = await profileLine();
      return next !== previous && next;
    });
  }
}

const kEmptyMessage = "Successfully imported profile, but it's empty!";
const kToolbarHeight = 24;  // the chart is drawn below the toolbar

async function check(browser, page, file, screenshots) {
  // speedscope opens .json.gz files as they are; so does this check.
  const bytes = fs.readFileSync(file);
  const trace = JSON.parse((file.endsWith('.gz') ? zlib.gunzipSync(bytes) : bytes).toString('utf8'));
  const threads = new Set(trace.traceEvents.filter((e) => e.ph === 'X').map((e) => `${e.pid}/${e.tid}`));
  const problems = page.collectErrors();
  const dialogs = [];
  page.on('Page.javascriptDialogOpening', ({message}) => {
    dialogs.push(message);
    page.send('Page.handleJavaScriptDialog', {accept: true}).catch(() => {});
  });

  const importMs = await importTrace(page, file, () => dialogs.length || problems.length);
  if (dialogs.length) {
    if (dialogs.join() !== kEmptyMessage || threads.size) problems.push(`said: ${dialogs.join(' | ')}`);
    return {summary: `imported in ${importMs} ms, reported "${dialogs.join(' | ')}"`, problems};
  }
  if ((await page.evaluate('document.body.innerText')).includes(refusedText)) {
    problems.push(`showed "${refusedText}"`);
    return {summary: `refused after ${importMs} ms`, problems};
  }
  const drawn = [];
  const count = await eachProfile(page, async (name, index) => {
    const shot = await page.screenshot();
    if (await browser.colouredPixels(shot, kToolbarHeight) < 100) problems.push(`profile "${name}" drew nothing`);
    drawn.push(name);
    if (screenshots) fs.writeFileSync(path.join(screenshots, `${path.basename(file, '.json')}-${index}.png`), shot);
  });
  if (count !== threads.size) problems.push(`${count} profiles for the ${threads.size} threads that hold slices`);
  for (const lane of ['Foreground', 'Background']) {
    if (!drawn.some((name) => name.includes(`, ${lane} (tid `))) problems.push(`no ${lane} profile`);
  }
  return {summary: `imported in ${importMs} ms, drew ${count} profiles (${drawn[0]} ... ${drawn.at(-1)})`,
          problems};
}

async function main(args) {
  const screenshots = args[0] === '--screenshots' ? args.splice(0, 2)[1] : null;
  if (screenshots) fs.mkdirSync(screenshots, {recursive: true});
  const browser = await Chromium.launch();
  let failed = false;
  try {
    for (const file of args) {
      const label = `speedscope ${speedscopeVersion} in ${browser.version}: ${file}`;
      const page = await browser.newPage();
      const {summary, problems} = await check(browser, page, file, screenshots)
          .catch((error) => ({summary: 'stopped', problems: [error.message]}))
          .finally(() => page.close());
      console.log(`${label}: ${summary}${problems.length ? `: FAILED: ${problems.join('; ')}` : ''}`);
      failed ||= problems.length > 0;
    }
  } finally {
    await browser.close();
  }
  process.exit(failed ? 1 : 0);
}

if (import.meta.url === pathToFileURL(process.argv[1]).href) await main(process.argv.slice(2));
