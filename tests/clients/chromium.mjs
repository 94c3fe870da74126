// Headless Chromium driven over the DevTools protocol on a pipe (fds 3 and
// 4), so that no port is opened and no WebSocket client is needed.
//
//   const browser = await Chromium.launch();
//   const page = await browser.newPage();        // a session on a fresh tab
//   await page.send('Page.navigate', {url});
//   page.on('Runtime.exceptionThrown', (params) => ...);
//   await page.close();
//   await browser.close();
import {spawn, spawnSync} from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';

// The Chromium binary: $CHROMIUM, else the first of the usual names on PATH.
export function findChromium() {
  const candidates = process.env.CHROMIUM ? [process.env.CHROMIUM] : ['chromium', 'chromium-browser'];
  for (const candidate of candidates) {
    if (spawnSync('sh', ['-c', `command -v "${candidate}"`]).status === 0) return candidate;
  }
  return null;
}

// Flags for a machine without a display, GPU, sandbox or network. WebGL
// falls back to the software renderer, which now has to be asked for.
const kFlags = ['--headless', '--no-sandbox', '--disable-gpu', '--enable-unsafe-swiftshader',
                '--disable-background-networking', '--disable-component-update', '--disable-sync',
                '--no-first-run', '--no-default-browser-check', '--allow-file-access-from-files',
                '--window-size=1400,900', '--remote-debugging-pipe'];

class Session {
  constructor(browser, targetId, sessionId) {
    this.browser = browser;
    this.targetId = targetId;
    this.sessionId = sessionId;
    this.handlers = new Map();
  }
  send(method, params = {}) { return this.browser.send(method, params, this.sessionId); }
  close() { return this.browser.send('Target.closeTarget', {targetId: this.targetId}); }
  on(event, handler) {
    if (!this.handlers.has(event)) this.handlers.set(event, []);
    this.handlers.get(event).push(handler);
  }
  // The value of an expression in the page; promises are awaited.
  async evaluate(expression) {
    const {result, exceptionDetails} = await this.send(
        'Runtime.evaluate', {expression, returnByValue: true, awaitPromise: true});
    if (exceptionDetails) throw new Error(`in the page: ${exceptionDetails.text}`);
    return result.value;
  }
}

export class Chromium {
  static async launch(binary = findChromium()) {
    if (!binary) throw new Error('no Chromium found (set CHROMIUM)');
    const profile = fs.mkdtempSync(path.join(os.tmpdir(), 'vek-chromium-'));
    const child = spawn(binary, [...kFlags, `--user-data-dir=${profile}`, 'about:blank'],
                        {stdio: ['ignore', 'ignore', 'pipe', 'pipe', 'pipe']});
    const browser = new Chromium(child, profile);
    browser.version = (await browser.send('Browser.getVersion')).product;
    return browser;
  }

  constructor(child, profile) {
    this.child = child;
    this.profile = profile;
    this.nextId = 1;
    this.pending = new Map();
    this.sessions = new Map();
    this.stderr = '';
    this.exited = new Promise((resolve) => child.on('exit', resolve));
    child.stderr.on('data', (data) => { this.stderr = (this.stderr + data).slice(-4000); });
    child.on('exit', () => {
      for (const {reject} of this.pending.values()) {
        reject(new Error(`Chromium exited: ${this.stderr.trim().split('\n').slice(-3).join(' | ')}`));
      }
      this.pending.clear();
    });
    let buffer = '';
    child.stdio[4].on('data', (chunk) => {
      buffer += chunk.toString('utf8');
      for (let end; (end = buffer.indexOf('\0')) >= 0; buffer = buffer.slice(end + 1)) {
        this.receive(JSON.parse(buffer.slice(0, end)));
      }
    });
  }

  receive(message) {
    if (message.id !== undefined) {
      const call = this.pending.get(message.id);
      this.pending.delete(message.id);
      if (!call) return;
      if (message.error) call.reject(new Error(`${call.method}: ${message.error.message}`));
      else call.resolve(message.result);
      return;
    }
    const session = this.sessions.get(message.sessionId);
    for (const handler of session?.handlers.get(message.method) ?? []) handler(message.params);
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
    const session = new Session(this, targetId, sessionId);
    this.sessions.set(sessionId, session);
    await Promise.all(['Page.enable', 'Runtime.enable', 'Log.enable'].map((m) => session.send(m)));
    return session;
  }

  async close() {
    await this.send('Browser.close').catch(() => {});
    await Promise.race([this.exited, new Promise((resolve) => setTimeout(resolve, 5000))]);
    if (this.child.exitCode === null) this.child.kill('SIGKILL');
    fs.rmSync(this.profile, {recursive: true, force: true});
  }
}
