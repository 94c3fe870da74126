#!/usr/bin/env bash
# Installs the Debian packages the build needs, only those that are missing.
#   scripts/install-deps.sh          what the build and the tests need
#   scripts/install-deps.sh --bench  also what scripts/bench.sh runs (hyperfine, GNU time)
#   scripts/install-deps.sh --fuzz   also clang 14 with libFuzzer and the sanitizer runtimes
#   scripts/install-deps.sh --browser  also Chromium with an emoji font (speedscope's toolbar),
#                                    Node with npm (when there is no node or npm yet), and the
#                                    npm packages of the trace clients in tests/clients
#                                    (npm ci, when its lock changed)
#   scripts/install-deps.sh --clang  also clang 14, for the clang build of the tests
set -euo pipefail

packages=(g++ cmake make libflatbuffers-dev flatbuffers-compiler rapidjson-dev
          libgtest-dev libgmock-dev libbenchmark-dev binutils
          libcli11-dev zlib1g-dev
          help2man dpkg-dev)  # man pages; the .deb's dependencies (dpkg-shlibdeps)
if [ "${1:-}" = "--bench" ]; then
  packages+=(hyperfine time)
fi
if [ "${1:-}" = "--clang" ]; then
  packages+=(clang-14)
fi
if [ "${1:-}" = "--fuzz" ]; then
  # llvm-14 brings llvm-symbolizer, which names the frames of a finding.
  packages+=(clang-14 libclang-rt-14-dev llvm-14)
fi
if [ "${1:-}" = "--browser" ]; then
  packages+=(chromium fonts-noto-color-emoji)
  # A Node from elsewhere is kept: Debian's would replace it.
  if ! command -v node > /dev/null || ! command -v npm > /dev/null; then packages+=(nodejs npm); fi
fi
missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$package")
  fi
done
if [ ${#missing[@]} -ne 0 ]; then
  echo "Installing: ${missing[*]}"
  sudo=""
  if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

if [ "${1:-}" = "--browser" ]; then
  clients="$(dirname "$0")/../tests/clients"
  # A copy of the lock that node_modules was installed from is kept in it.
  if ! cmp -s "$clients/package-lock.json" "$clients/node_modules/.package-lock.json.installed"; then
    echo "Installing the trace clients' npm packages in tests/clients"
    (cd "$clients" && npm ci --no-audit --no-fund --loglevel=error)
    cp "$clients/package-lock.json" "$clients/node_modules/.package-lock.json.installed"
  fi
fi
