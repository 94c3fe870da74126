#!/usr/bin/env bash
# Installs what is missing, builds everything and runs the whole test suite.
#   scripts/test.sh            RelWithDebInfo build in build/
#   scripts/test.sh --sanitize AddressSanitizer + UndefinedBehaviorSanitizer build in build-asan/
#   scripts/test.sh --release  Release build in build-release/, as a packager builds it
#   scripts/test.sh --clang    clang 14 build in build-clang/
# Warnings are errors in every one of them.
set -euo pipefail
cd "$(dirname "$0")/.."

build_dir=build
deps=()
cmake_args=(-DCMAKE_BUILD_TYPE=RelWithDebInfo)
case "${1:-}" in
  "") ;;
  --sanitize)
    build_dir=build-asan
    cmake_args=(-DCMAKE_BUILD_TYPE=Debug -DVEK_SANITIZE=ON -DVEK_BUILD_BENCH=OFF) ;;
  --release)
    build_dir=build-release
    cmake_args=(-DCMAKE_BUILD_TYPE=Release -DVEK_BUILD_BENCH=OFF) ;;
  --clang)
    build_dir=build-clang
    deps=(--clang)
    cmake_args=(-DCMAKE_CXX_COMPILER=clang++-14 -DCMAKE_BUILD_TYPE=Debug -DVEK_BUILD_BENCH=OFF) ;;
  *)
    echo "usage: scripts/test.sh [--sanitize | --release | --clang]" >&2
    exit 2 ;;
esac

bash scripts/install-deps.sh "${deps[@]}"
cmake -S . -B "$build_dir" "${cmake_args[@]}" -DVEK_WERROR=ON
cmake --build "$build_dir" -j "$(nproc)"
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
ctest --test-dir "$build_dir" --output-on-failure -j "$(nproc)"
