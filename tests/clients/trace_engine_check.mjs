// Parses traces with the DevTools trace engine (the Performance panel's
// model) and checks that every slice ("ph": "X") made it into its thread's
// tree: the engine leaves out a slice that overlaps another of its thread.
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
  const bytes = fs.readFileSync(path);
  // The Performance panel opens .json.gz files as well.
  const text = (path.endsWith('.gz') ? zlib.gunzipSync(bytes) : bytes).toString('utf8');
  const events = JSON.parse(text).traceEvents;
  const slices = events.filter((event) => event.ph === 'X');
  const model = Trace.TraceModel.Model.createWithAllHandlers();
  const started = performance.now();
  await model.parse(events);
  const parsed = model.parsedTrace();
  const elapsed = performance.now() - started;
  if (!parsed) throw new Error('the engine kept no parsed trace');
  const {processes, entryToNode} = parsed.data.Renderer;

  const missing = slices.filter((slice) => !entryToNode.has(slice));
  const threads = [];
  for (const [pid, process] of processes) {
    for (const [tid, thread] of process.threads) threads.push(`${pid}/${tid} ${thread.name}`);
  }
  const problems = [];
  if (missing.length) {
    const first = missing[0];
    problems.push(`${missing.length} of ${slices.length} slices left out of the thread trees ` +
                  `(first: "${first.name}" pid ${first.pid} tid ${first.tid} ts ${first.ts})`);
  }
  if (slices.length && !threads.some((t) => t.endsWith(' Foreground'))) problems.push('no Foreground thread');
  if (slices.length && !threads.some((t) => t.endsWith(' Background'))) problems.push('no Background thread');
  const summary = `${slices.length} slices in ${threads.length} thread trees of ` +
                  `${processes.size} processes, parsed in ${elapsed.toFixed(0)} ms`;
  return {summary, problems};
}

let failed = false;
for (const path of process.argv.slice(2)) {
  try {
    const {summary, problems} = await check(path);
    console.log(`trace engine ${version}: ${path}: ${summary}` +
                (problems.length ? `: FAILED: ${problems.join('; ')}` : ': every slice in its tree'));
    failed ||= problems.length > 0;
  } catch (error) {
    console.log(`trace engine ${version}: ${path}: FAILED: ${error.stack ?? error}`);
    failed = true;
  }
}
process.exit(failed ? 1 : 0);
