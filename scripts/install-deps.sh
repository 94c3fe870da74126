#!/usr/bin/env bash
# Installs the Debian packages the build needs, only those that are missing.
#   scripts/install-deps.sh          what the build and the tests need
#   scripts/install-deps.sh --bench  also what scripts/bench.sh runs (hyperfine, GNU time)
#   scripts/install-deps.sh --fuzz   also clang 14 with libFuzzer and the sanitizer runtimes
set -euo pipefail

packages=(g++ cmake make libflatbuffers-dev flatbuffers-compiler rapidjson-dev
          libgtest-dev libgmock-dev libbenchmark-dev binutils
          libcli11-dev zlib1g-dev)
if [ "${1:-}" = "--bench" ]; then
  packages+=(hyperfine time)
fi
if [ "${1:-}" = "--fuzz" ]; then
  # llvm-14 brings llvm-symbolizer, which names the frames of a finding.
  packages+=(clang-14 libclang-rt-14-dev llvm-14)
fi
missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$package")
  fi
done
if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi
echo "Installing: ${missing[*]}"
sudo=""
if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
