#!/usr/bin/env bash
# Builds the tests with ThreadSanitizer and runs the concurrency test: readers
# on several threads while other threads register loggers and log.
#   scripts/tsan.sh              build in build-tsan/
#   VEK_TSAN_BUILD_DIR=dir       another build directory
set -euo pipefail
cd "$(dirname "$0")/.."
build_dir=${VEK_TSAN_BUILD_DIR:-build-tsan}

bash scripts/install-deps.sh
cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVEK_SANITIZE_THREAD=ON -DVEK_WERROR=ON \
  -DVEK_BUILD_BENCH=OFF > /dev/null
cmake --build "$build_dir" -j "$(nproc)" --target vek_tests > /dev/null
export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1}
"$build_dir/tests/vek_tests" --gtest_filter='ReaderConcurrency.*'
