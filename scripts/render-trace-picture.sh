#!/usr/bin/env bash
# Renders docs/sample-trace.png, the picture in docs/reading-the-reports.md:
# the bundled sample's portable trace as speedscope shows it in headless
# Chromium (scripts/trace_picture.mjs). Installs what is missing (the
# trace clients; an emoji font, which speedscope's toolbar uses) and builds
# the viewer.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh --browser
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null
cmake --build build -j "$(nproc)" --target vek-profile-viewer vek_examples > /dev/null
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
build/tools/vek-profile-viewer/vek-profile-viewer build/examples/linting_sample.log \
  --trace-format portable -o "$work/linting_sample.json" > /dev/null
node scripts/trace_picture.mjs "$work/linting_sample.json" docs/sample-trace.png
