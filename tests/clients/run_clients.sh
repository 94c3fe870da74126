#!/usr/bin/env bash
# run_clients.sh VIEWER SAMPLE_LOG LOG_GENERATOR WORK_DIR (CTest "trace_clients"): the portable traces of the
# sample (also gzip-compressed), of a log without executions and of 100,000 slices, opened in the trace clients
# (trace_check.mjs). Exits 77 (CTest's "skipped") with the reason when a client is missing.
set -euo pipefail
viewer=$1 sample=$2 generator=$3 work=$4
clients=$(cd "$(dirname "$0")" && pwd)

skip() { echo "SKIPPED: $1 (bash scripts/install-deps.sh --browser installs the trace clients)"; exit 77; }
command -v node > /dev/null || skip "no Node"
for package in @paulirish/trace_engine speedscope; do
  [ -f "$clients/node_modules/$package/package.json" ] || skip "no npm package $package in $clients"
done
export CHROMIUM=${CHROMIUM:-$(command -v chromium || command -v chromium-browser || true)}
[ -n "$CHROMIUM" ] || skip "no Chromium"

rm -rf "$work" && mkdir -p "$work"
"$generator" "$work"
cp "$sample" "$work/sample.log"
traces=("$work/sample.json" "$work/no-executions.json" "$work/wide.json" "$work/sample.json.gz")
for trace in "${traces[@]}"; do
  "$viewer" --trace-format portable -o "$trace" "${trace%.json*}.log" > /dev/null
done
node "$clients/trace_check.mjs" "${traces[@]}"
