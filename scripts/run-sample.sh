#!/usr/bin/env bash
# Installs what is missing, builds the tools and runs the main job on the
# bundled sample log: the trace goes to out/linting_sample.trace.json and the
# summary to standard output.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVEK_WERROR=ON > /dev/null
cmake --build build -j "$(nproc)" --target vek-profile-viewer vek_examples > /dev/null
mkdir -p out
build/tools/vek-profile-viewer/vek-profile-viewer build/examples/linting_sample.log \
  --output out/linting_sample.trace.json "$@"
