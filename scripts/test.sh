#!/usr/bin/env bash
# Installs what is missing, builds everything and runs the whole test suite.
#   scripts/test.sh            regular build in build/
#   scripts/test.sh --sanitize AddressSanitizer + UndefinedBehaviorSanitizer build in build-asan/
set -euo pipefail
cd "$(dirname "$0")/.."

build_dir=build
cmake_args=(-DCMAKE_BUILD_TYPE=RelWithDebInfo)
if [ "${1:-}" = "--sanitize" ]; then
  build_dir=build-asan
  cmake_args=(-DCMAKE_BUILD_TYPE=Debug -DVEK_SANITIZE=ON -DVEK_BUILD_BENCH=OFF)
fi

bash scripts/install-deps.sh
cmake -S . -B "$build_dir" "${cmake_args[@]}"
cmake --build "$build_dir" -j "$(nproc)"
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
ctest --test-dir "$build_dir" --output-on-failure -j "$(nproc)"
