#!/usr/bin/env bash
# Builds the libFuzzer targets (clang 14, AddressSanitizer + UndefinedBehavior-
# Sanitizer) and runs them from the seed corpus: logs made with the tests' log
# writer, the examples and every input a fuzzer has found before
# (fuzz/regressions/). Each target keeps its corpus in
# BUILD/fuzz-work/TARGET/corpus from run to run.
#   scripts/fuzz.sh [SECONDS_PER_TARGET]   every target for a bounded time, one
#                                          process each (default 60; CI's run);
#                                          fails on any finding
#   scripts/fuzz.sh --campaign HOURS       a campaign: the targets one after
#                                          another, each on every core (one
#                                          process per core, nice 19, sharing
#                                          the corpus), the structure-aware
#                                          target half of the time; a process
#                                          that finds something is restarted
#   VEK_FUZZ_BUILD_DIR=dir                 build directory (default build-fuzz)
# Both print per target the executions, the edges the corpus covers and the
# findings, whose inputs are kept in BUILD/fuzz-work/TARGET/artifacts/.
# Replay one with BUILD/fuzz/TARGET FILE, and once fixed add it to
# fuzz/regressions/log/ or json/, where the tests (FuzzRegression) replay it.
# A campaign also writes TARGET/coverage.txt (-print_coverage of the corpus).
#
# Limits, per target:
#   -max_len     logs 16384: every seed log fits (the largest, the encoded
#                example, is about 12.5 kB) and small inputs mutate fast;
#                JSON 24576 for the same reason (largest seed about 18.5 kB).
#   -malloc_limit_mb=64   a single allocation over 64 MB for an input of a few
#                kB is an allocation the input cannot justify: a finding.
#   -rss_limit_mb=1024    room for ASan's quarantine (256 MB) and the corpus;
#                beyond that the process grew far out of proportion.
#   -len_control=0  mutate whole seeds from the start: the seeds are complete
#                logs, and a minute is too short for libFuzzer to grow its
#                length limit to their size.
#   -timeout=10  seconds per input; a slow input is a hang worth fixing.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
build_dir=${VEK_FUZZ_BUILD_DIR:-build-fuzz}
campaign_hours=
seconds=60
if [ "${1:-}" = "--campaign" ]; then
  campaign_hours=${2:?usage: scripts/fuzz.sh --campaign HOURS}
else
  seconds=${1:-60}
fi

bash scripts/install-deps.sh --fuzz
cmake -S . -B "$build_dir" -DCMAKE_CXX_COMPILER=clang++-14 -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DVEK_BUILD_FUZZERS=ON -DVEK_BUILD_BENCH=OFF -DVEK_WERROR=ON > /dev/null
cmake --build "$build_dir" -j "$(nproc)" --target vek_fuzzers > /dev/null

work="$root/$build_dir/fuzz-work"
rm -rf "$work/seeds"
"$build_dir/fuzz/vek_fuzz_seeds" "$work/seeds" examples > /dev/null
cp fuzz/regressions/log/* "$work/seeds/log/"
cp fuzz/regressions/json/* "$work/seeds/json/" 2>/dev/null || true

# The libFuzzer options of TARGET, without the directories.
options() {
  local dictionary=log.dict max_len=16384
  if [ "$1" = fuzz_json_encode ]; then dictionary=json.dict max_len=24576; fi
  echo "-max_len=$max_len -len_control=0 -timeout=10 -malloc_limit_mb=64 -rss_limit_mb=1024" \
       "-dict=$root/fuzz/$dictionary -print_final_stats=1"
}

seeds_of() {
  if [ "$1" = fuzz_json_encode ]; then echo "$work/seeds/json"; else echo "$work/seeds/log"; fi
}

# Sums a final statistic over the runs logged in the given files.
statistic() {
  local name=$1
  shift
  cat "$@" 2>/dev/null | sed -n "s/^stat::$name: *//p" | awk '{ sum += $1 } END { print sum + 0 }'
}

# The edges covered by TARGET's corpus, replayed once.
corpus_edges() {
  local dir="$work/$1"
  (cd "$dir" && "$root/$build_dir/fuzz/$1" -runs=0 $(options "$1") corpus) > "$dir/replay.log" 2>&1 || true
  grep -oE 'cov: [0-9]+' "$dir/replay.log" | tail -1 | cut -d' ' -f2
}

failed=0
report() {
  local target=$1 executions=$2 elapsed=$3 dir="$work/$1"
  local findings
  findings=$(find "$dir/artifacts" -type f | wc -l)
  printf '%s: %s executions in %s s (%s/s), corpus of %s inputs covers %s edges, %s finding(s)\n' \
    "$target" "$executions" "$elapsed" "$((executions / (elapsed > 0 ? elapsed : 1)))" \
    "$(find "$dir/corpus" -type f | wc -l)" "$(corpus_edges "$target")" "$findings"
  if [ "$findings" -gt 0 ]; then
    echo "$target: FINDING; inputs in $dir/artifacts/" >&2
    failed=1
  fi
}

# run TARGET: one process for $seconds.
run() {
  local target=$1 dir="$work/$1"
  mkdir -p "$dir/corpus"
  rm -rf "$dir/artifacts" "$dir"/vek-fuzz-scratch-*
  mkdir "$dir/artifacts"
  local status=0
  (cd "$dir" && "$root/$build_dir/fuzz/$target" -max_total_time="$seconds" $(options "$target") \
     -artifact_prefix="$dir/artifacts/" corpus "$(seeds_of "$target")") > "$dir/fuzz.log" 2>&1 || status=$?
  report "$target" "$(statistic number_of_executed_units "$dir/fuzz.log")" "$seconds"
  if [ "$status" -ne 0 ]; then
    echo "$target: exit status $status" >&2
    grep -v '^#[0-9]' "$dir/fuzz.log" | tail -40 >&2
    failed=1
  fi
}

# campaign_worker TARGET INDEX SECONDS: one process, restarted after a finding
# until the time is up (but not when it stops at once, as on a seed that fails).
campaign_worker() {
  local target=$1 dir="$work/$1" end=$((SECONDS + $3))
  local home="$dir/worker-$2" started
  mkdir -p "$home"
  while [ $((end - SECONDS)) -gt 10 ]; do
    started=$SECONDS
    (cd "$home" && nice -n 19 "$root/$build_dir/fuzz/$target" -max_total_time=$((end - SECONDS)) \
       $(options "$target") -reload=1 -artifact_prefix="$dir/artifacts/" \
       "$dir/corpus" "$(seeds_of "$target")") >> "$dir/worker-$2.log" 2>&1 || true
    [ $((SECONDS - started)) -ge 60 ] || break
  done
}

# campaign TARGET SECONDS: every core on TARGET.
campaign() {
  local target=$1 dir="$work/$1"
  mkdir -p "$dir/corpus" "$dir/artifacts"
  rm -rf "$dir"/worker-*
  local started=$SECONDS
  for ((index = 0; index < $(nproc); index++)); do campaign_worker "$target" "$index" "$2" & done
  wait
  report "$target" "$(statistic number_of_executed_units "$dir"/worker-*.log)" $((SECONDS - started))
  # Which functions of which files the corpus reaches, and the edges of each
  # source file, among them the merge of events and the trace builder.
  (cd "$dir" && "$root/$build_dir/fuzz/$target" -runs=0 -print_coverage=1 $(options "$target") corpus) \
    > "$dir/coverage.txt" 2>&1 || true
  awk '/^(UN)?COVERED_FUNC:/ {
         split($5, edges, "/"); file = $NF; sub(/:[0-9]+$/, "", file)
         if (!match(file, /\/(src|tools)\/.*/)) next
         file = substr(file, RSTART + 1)
         covered[file] += edges[1]; total[file] += edges[2] }
       END { for (f in covered) printf "%-44s %5d/%-5d edges\n", f, covered[f], total[f] }' \
    "$dir/coverage.txt" | sort > "$dir/coverage-by-file.txt"
  grep -E 'EventMerger.cpp|TraceEventBuilder.cpp' "$dir/coverage-by-file.txt" | sed "s/^/$target:   /" || true
}

if [ -n "$campaign_hours" ]; then
  total=$(awk -v h="$campaign_hours" 'BEGIN { printf "%d", h * 3600 }')
  campaign fuzz_log_structured $((total / 2))
  campaign fuzz_log_pipeline $((total / 4))
  campaign fuzz_json_encode $((total / 4))
else
  run fuzz_log_pipeline
  run fuzz_log_structured
  run fuzz_json_encode
fi
exit "$failed"
