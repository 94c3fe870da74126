// Headless Chromium driven over the DevTools protocol on a pipe (fds 3 and
// 4): no port is opened and no WebSocket client is needed.
import {spawn, spawnSync} from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';

// For a machine without a display, GPU, sandbox or network; WebGL falls back
// to the software renderer, which has to be asked for.
const kFlags = ['--headless', '--no-sandbox', '--disable-gpu', '--enable-unsafe-swiftshader', '--disable-sync',
                '--disable-background-networking', '--disable-component-update', '--no-first-run',
                '--no-default-browser-check', '--allow-file-access-from-files', '--window-size=1400,900', '--remote-debugging-pipe'];

export const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

class Page {
  constructor(browser, targetId, sessionId) { Object.assign(this, {browser, targetId, sessionId, handlers: new Map()}); }
  send(method, params = {}) { return this.browser.send(method, params, this.sessionId); }
  close() { return this.browser.send('Target.closeTarget', {targetId: this.targetId}); }
  on(event, handler) { this.handlers.set(event, [...(this.handlers.get(event) ?? []), handler]); }
  async evaluate(expression) {  // promises are awaited
    const {result, exceptionDetails} = await this.send(
        'Runtime.evaluate', {expression, returnByValue: true, awaitPromise: true});
    if (exceptionDetails) throw new Error(`in the page: ${exceptionDetails.text}`);
    return result.value;
  }
  // An array that fills with the page's console errors and uncaught exceptions.
  collectErrors() {
    const errors = [];
    this.on('Runtime.consoleAPICalled', ({type, args}) => ['error', 'assert'].includes(type) &&
        errors.push('console error: ' + args.map((a) => a.value ?? a.description).join(' ')));
    this.on('Log.entryAdded', ({entry}) => entry.level === 'error' && errors.push('console error: ' + entry.text));
    this.on('Runtime.exceptionThrown', ({exceptionDetails: e}) =>
      errors.push('uncaught exception: ' + (e.exception?.description ?? e.text)));
    return errors;
  }
  resize(width, height) { return this.send('Emulation.setDeviceMetricsOverride', {width, height, deviceScaleFactor: 1, mobile: false}); }
  async screenshot(clip = undefined) {  // a PNG of the viewport, or of `clip`
    return Buffer.from((await this.send('Page.captureScreenshot', {format: 'png', clip})).data, 'base64');
  }
}

export class Chromium {
  static async launch() {  // $CHROMIUM, else the first of the usual names on PATH
    const binary = [process.env.CHROMIUM ?? 'chromium', 'chromium-browser'].find(
        (name) => spawnSync('sh', ['-c', `command -v "${name}"`]).status === 0);
    if (!binary) throw new Error('no Chromium found (set CHROMIUM)');
    const profile = fs.mkdtempSync(path.join(os.tmpdir(), 'vek-chromium-'));
    const browser = new Chromium(spawn(binary, [...kFlags, `--user-data-dir=${profile}`, 'about:blank'],
                                       {stdio: ['ignore', 'ignore', 'pipe', 'pipe', 'pipe']}), profile);
    browser.version = (await browser.send('Browser.getVersion')).product;
    return browser;
  }

  constructor(child, profile) {
    Object.assign(this, {child, profile, nextId: 1, pending: new Map(), pages: new Map(), stderr: ''});
    this.exited = new Promise((resolve) => child.on('exit', resolve));
    child.stderr.on('data', (data) => { this.stderr = (this.stderr + data).slice(-4000); });
    child.on('exit', () => {
      const last = this.stderr.trim().split('\n').slice(-3).join(' | ');
      for (const {reject} of this.pending.values()) reject(new Error(`Chromium exited: ${last}`));
      this.pending.clear();
    });
    let buffer = '';
    child.stdio[4].on('data', (chunk) => {
      buffer += chunk.toString('utf8');
      for (let end; (end = buffer.indexOf('\0')) >= 0; buffer = buffer.slice(end + 1)) {
        const message = JSON.parse(buffer.slice(0, end)), call = this.pending.get(message.id);
        if (message.id === undefined) {
          for (const handler of this.pages.get(message.sessionId)?.handlers.get(message.method) ?? []) handler(message.params);
        } else if (message.error) call?.reject(new Error(`${call.method}: ${message.error.message}`));
        else call?.resolve(message.result);
        this.pending.delete(message.id);
      }
    });
  }

  send(method, params = {}, sessionId = undefined) {
    const id = this.nextId++;
    return new Promise((resolve, reject) => {
      this.pending.set(id, {resolve, reject, method});
      this.child.stdio[3].write(JSON.stringify({id, method, params, sessionId}) + '\0');
    });
  }

  async newPage() {
    const {targetId} = await this.send('Target.createTarget', {url: 'about:blank'});
    const {sessionId} = await this.send('Target.attachToTarget', {targetId, flatten: true});
    const page = new Page(this, targetId, sessionId);
    this.pages.set(sessionId, page);
    await Promise.all(['Page.enable', 'Runtime.enable', 'Log.enable'].map((m) => page.send(m)));
    return page;
  }

  // How many pixels of a PNG, from row `top` down, carry colour rather than a
  // shade of grey: text, grid lines and the page are grey, drawn slices are not.
  async colouredPixels(png, top = 0) {
    const page = await this.newPage();
    try {
      return await page.evaluate(`(async () => {
        const image = new Image();
        image.src = 'data:image/png;base64,${png.toString('base64')}';
        await image.decode();
        const height = image.height - ${top};
        const context = new OffscreenCanvas(image.width, height).getContext('2d');
        context.drawImage(image, 0, -${top});
        const {data} = context.getImageData(0, 0, image.width, height);
        let count = 0;
        for (let i = 0; i < data.length; i += 4) {
          if (Math.max(data[i], data[i + 1], data[i + 2]) - Math.min(data[i], data[i + 1], data[i + 2]) > 24) ++count;
        }
        return count;
      })()`);
    } finally {
      await page.close();
    }
  }

  async close() {
    await this.send('Browser.close').catch(() => {});
    await Promise.race([this.exited, sleep(5000)]);
    if (this.child.exitCode === null) this.child.kill('SIGKILL');
    fs.rmSync(this.profile, {recursive: true, force: true});
  }
}
