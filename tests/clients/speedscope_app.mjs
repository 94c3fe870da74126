// speedscope's static app, loaded from disk in a headless Chromium page and
// driven the way a person does: "Browse", pick the file, "n" for the next
// profile (one per thread that holds slices).
import {createRequire} from 'node:module';
import path from 'node:path';

const require = createRequire(import.meta.url);
export const speedscopeVersion = require('speedscope/package.json').version;
const app = path.join(path.dirname(require.resolve('speedscope/package.json')),
                      'dist/release/index.html');
const kTimeoutMs = 180000;

const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

export async function until(what, condition) {
  const deadline = Date.now() + kTimeoutMs;
  for (;;) {
    const value = await condition();
    if (value) return value;
    if (Date.now() > deadline) throw new Error(`timed out waiting for ${what}`);
    await sleep(50);
  }
}

export const refusedText = 'Something went wrong';

// Opens the app and picks `file` in it; resolves with the milliseconds the
// import took, once the title names the file, the page shows refusedText or
// `stopped()` says the page did something else (a dialog, an error).
export async function importTrace(page, file, stopped = () => false) {
  await page.send('Page.navigate', {url: `file://${app}`});
  await until('the app', () => page.evaluate('!!document.querySelector("input[type=file]")'));
  const input = await page.send('Runtime.evaluate', {expression: 'document.querySelector("input[type=file]")'});
  const started = Date.now();
  await page.send('DOM.setFileInputFiles', {objectId: input.result.objectId, files: [path.resolve(file)]});
  const title = `${path.basename(file)} - speedscope`;
  await until('the import', async () => stopped() ||
      (await page.evaluate('document.title')) === title ||
      (await page.evaluate('document.body.innerText')).includes(refusedText));
  return Date.now() - started;
}

// The toolbar's line that names the profile shown, "(i/n)" at its end when
// there are more; empty until a profile is shown.
export function profileLine(page) {
  return page.evaluate(
      'document.body.innerText.split("\\n").find((line) => /\\(pid \\d+/.test(line)) ?? ""');
}

// Shows the next profile and resolves with its toolbar line once it is drawn.
export async function showNextProfile(page, previous) {
  for (const type of ['keyDown', 'keyUp']) {
    await page.send('Input.dispatchKeyEvent', {type, key: 'n', code: 'KeyN', text: 'n'});
  }
  const line = await until('the next profile', async () => {
    const next = await profileLine(page);
    return next !== previous && next;
  });
  await nextFrame(page);
  return line;
}

// Resolves once the page has drawn what it was asked to.
export function nextFrame(page) {
  return page.evaluate('new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done)))');
}
