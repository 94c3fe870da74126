#!/usr/bin/env bash
# Builds the libFuzzer targets (clang 14, AddressSanitizer + UndefinedBehavior-
# Sanitizer) and runs each for a bounded time from the seed corpus: logs made
# with the tests' log writer, the examples and every input a fuzzer has found
# before (fuzz/regressions/). Fails on any finding; its input is kept in
# BUILD/fuzz-work/TARGET/artifacts/. Replay it with BUILD/fuzz/TARGET FILE,
# and once fixed add it to fuzz/regressions/log/ or json/, where the tests
# (FuzzRegression) replay it too.
#   scripts/fuzz.sh [SECONDS_PER_TARGET]   (default 60)
#   VEK_FUZZ_BUILD_DIR=dir                 build directory (default build-fuzz)
#
# Limits, per target:
#   -max_len     pipeline 16384: every seed log fits (the largest, the encoded
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
seconds=${1:-60}
build_dir=${VEK_FUZZ_BUILD_DIR:-build-fuzz}

bash scripts/install-deps.sh --fuzz
cmake -S . -B "$build_dir" -DCMAKE_CXX_COMPILER=clang++-14 -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DVEK_BUILD_FUZZERS=ON -DVEK_BUILD_BENCH=OFF -DVEK_WERROR=ON > /dev/null
cmake --build "$build_dir" -j "$(nproc)" --target vek_fuzzers > /dev/null

work="$root/$build_dir/fuzz-work"
rm -rf "$work/seeds"
"$build_dir/fuzz/vek_fuzz_seeds" "$work/seeds" examples > /dev/null
cp fuzz/regressions/log/* "$work/seeds/log/"
cp fuzz/regressions/json/* "$work/seeds/json/" 2>/dev/null || true

failed=0
# run TARGET DICTIONARY MAX_LEN SEED_DIR
run() {
  local target=$1 dictionary=$2 max_len=$3 seeds=$4
  local dir="$work/$target"
  mkdir -p "$dir/corpus"
  rm -rf "$dir/artifacts" "$dir"/vek-fuzz-scratch-*
  mkdir "$dir/artifacts"
  local status=0
  (cd "$dir" && "$root/$build_dir/fuzz/$target" -max_total_time="$seconds" -max_len="$max_len" \
     -len_control=0 -timeout=10 -malloc_limit_mb=64 -rss_limit_mb=1024 -dict="$root/fuzz/$dictionary" \
     -print_final_stats=1 -artifact_prefix="$dir/artifacts/" corpus "$seeds") \
     > "$dir/fuzz.log" 2>&1 || status=$?
  local executions coverage
  executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$dir/fuzz.log")
  coverage=$(grep -oE 'cov: [0-9]+' "$dir/fuzz.log" | tail -1 | cut -d' ' -f2)
  echo "$target: ${executions:-?} executions in ${seconds} s, ${coverage:-?} edges covered"
  if [ "$status" -ne 0 ] || [ -n "$(ls -A "$dir/artifacts")" ]; then
    echo "$target: FINDING (exit status $status); input in $dir/artifacts/" >&2
    grep -v '^#[0-9]' "$dir/fuzz.log" | tail -40 >&2
    failed=1
  fi
}

run fuzz_log_pipeline log.dict 16384 "$work/seeds/log"
run fuzz_json_encode json.dict 24576 "$work/seeds/json"
exit "$failed"
