// Reads traces as a strict JSON reader would (UTF-8 as they stand, no lone
// surrogate escapes, integers only), parses them with the DevTools trace
// engine (the Performance panel's model) and checks that every slice
// ("ph": "X") made it into its thread's tree: the engine leaves out a slice
// that overlaps another of its thread.
//
//   node trace_engine_check.mjs TRACE.json[.gz]...
import fs from 'node:fs';
import {createRequire} from 'node:module';
import zlib from 'node:zlib';
import * as Trace from '@paulirish/trace_engine';
import {polyfillDOMRect} from '@paulirish/trace_engine/analyze-trace.mjs';

polyfillDOMRect();  // the engine expects a browser's DOMRect
// ... and a browser's Array.prototype.toSorted, which Node has from 20 on.
if (!Array.prototype.toSorted) {
  Object.defineProperty(Array.prototype, 'toSorted', {
    value(compare) { return [...this].sort(compare); }, configurable: true, writable: true});
}
const version = createRequire(import.meta.url)('@paulirish/trace_engine/package.json').version;

async function check(path) {
  // The Performance panel opens .json.gz files as well.
  const bytes = fs.readFileSync(path);
  const text = new TextDecoder('utf-8', {fatal: true}).decode(path.endsWith('.gz') ? zlib.gunzipSync(bytes) : bytes);
  const strict = (key, value) => {
    for (const string of [key, value].filter((s) => typeof s === 'string')) {
      if (/[\uD800-\uDBFF](?![\uDC00-\uDFFF])|(?<![\uD800-\uDBFF])[\uDC00-\uDFFF]/.test(string)) {
        throw new Error(`a lone surrogate in ${JSON.stringify(string)}`);
      }
    }
    if (typeof value === 'number' && !Number.isInteger(value)) throw new Error(`a number that is not an integer: ${value}`);
    return value;
  };
  const events = JSON.parse(text, strict).traceEvents;
  const slices = events.filter((event) => event.ph === 'X');
  const model = Trace.TraceModel.Model.createWithAllHandlers();
  const started = performance.now();
  await model.parse(events);
  const {processes, entryToNode} = model.parsedTrace().data.Renderer;
  const elapsed = performance.now() - started;

  const threads = [...processes.values()].flatMap((process) => [...process.threads.values()].map((t) => t.name));
  const problems = [];
  const missing = slices.filter((slice) => !entryToNode.has(slice));
  if (missing.length) {
    const {name, pid, tid, ts} = missing[0];
    problems.push(`${missing.length} of ${slices.length} slices left out of the thread trees ` +
                  `(first: "${name}" pid ${pid} tid ${tid} ts ${ts})`);
  }
  for (const lane of ['Foreground', 'Background']) {
    if (slices.length && !threads.some((name) => ` ${name}`.endsWith(` ${lane}`))) problems.push(`no ${lane} thread`);
  }
  return {summary: `${slices.length} slices in ${threads.length} thread trees of ${processes.size} ` +
                   `processes, parsed in ${elapsed.toFixed(0)} ms`, problems};
}

let failed = false;
for (const path of process.argv.slice(2)) {
  const {summary, problems} = await check(path).catch((error) => ({summary: 'stopped', problems: [error.stack ?? error]}));
  console.log(`trace engine ${version}: ${path}: ${summary}: ` +
              (problems.length ? `FAILED: ${problems.join('; ')}` : 'every slice in its tree'));
  failed ||= problems.length > 0;
}
process.exit(failed ? 1 : 0);
