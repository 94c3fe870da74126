#!/usr/bin/env bash
# The trace clients' test (CTest "trace_clients"): the portable traces of the
# bundled sample (also gzip-compressed), of a log without executions and of a
# generated log of 100,000 slices, each opened by the DevTools trace engine, by speedscope in
# headless Chromium and by a strict JSON reader.
#
#   run_clients.sh VIEWER SAMPLE_LOG LOG_GENERATOR WORK_DIR
#
# Exits 77 (CTest's "skipped") with the reason when a client is missing.
set -euo pipefail
viewer=$1
sample=$2
generator=$3
work=$4
clients=$(cd "$(dirname "$0")" && pwd)

skip() {
  echo "SKIPPED: $1 (bash scripts/install-deps.sh --browser installs the trace clients)"
  exit 77
}
command -v node > /dev/null || skip "no Node"
command -v python3 > /dev/null || skip "no Python 3"
for package in @paulirish/trace_engine speedscope; do
  [ -f "$clients/node_modules/$package/package.json" ] || skip "no npm package $package in $clients"
done
if [ -z "${CHROMIUM:-}" ]; then
  CHROMIUM=$(command -v chromium || command -v chromium-browser || true)
  [ -n "$CHROMIUM" ] || skip "no Chromium"
  export CHROMIUM
fi

rm -rf "$work"
mkdir -p "$work/screenshots"
"$generator" "$work"
cp "$sample" "$work/sample.log"
traces=()
for log in sample no-executions wide; do
  "$viewer" --trace-format portable -o "$work/$log.json" "$work/$log.log" > /dev/null
  traces+=("$work/$log.json")
done
# Viewers open compressed traces as they are.
"$viewer" --trace-format portable -o "$work/sample.json.gz" "$work/sample.log" > /dev/null
traces+=("$work/sample.json.gz")

failed=0
started=$(date +%s%N)
node "$clients/trace_engine_check.mjs" "${traces[@]}" || failed=1
engine_done=$(date +%s%N)
node "$clients/speedscope_check.mjs" --screenshots "$work/screenshots" "${traces[@]}" || failed=1
speedscope_done=$(date +%s%N)
python3 "$clients/strict_json_check.py" "${traces[@]}" || failed=1
strict_done=$(date +%s%N)
echo "times: trace engine $(((engine_done - started) / 1000000)) ms," \
  "speedscope $(((speedscope_done - engine_done) / 1000000)) ms," \
  "strict JSON $(((strict_done - speedscope_done) / 1000000)) ms" \
  "(screenshots in $work/screenshots)"
exit $failed
