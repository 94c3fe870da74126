#!/usr/bin/env bash
# Measures the peak resident memory of vek-profile-viewer on a large log, as a
# multiple of the log's size. The log repeats the chunks of the bundled linting
# sample (every graph executed again and again, as in a long profiling run)
# until it reaches the size asked for.
#   scripts/measure-memory.sh [LOG_MB]   (default 256)
# Prints, for loading alone (header mode) and for the whole trace job: the
# peak resident memory, its multiple of the log size, and the multiple of its
# growth over the same job on the sample itself (the tool's own footprint).
set -euo pipefail
cd "$(dirname "$0")/.."
size_mb=${1:-256}
build_dir=${VEK_BUILD_DIR:-build}

bash scripts/install-deps.sh
cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVEK_WERROR=ON > /dev/null
cmake --build "$build_dir" -j "$(nproc)" --target vek-profile-viewer vek_examples > /dev/null

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
python3 - "$build_dir/examples/linting_sample.log" "$work/large.log" "$size_mb" <<'PY'
import sys
sample = open(sys.argv[1], 'rb').read()
target = int(sys.argv[3]) << 20
with open(sys.argv[2], 'wb') as out:
    written = 0
    while written < target:
        out.write(sample)
        written += len(sample)
PY
cp "$build_dir/examples/linting_sample.log" "$work/small.log"

python3 - "$build_dir/tools/vek-profile-viewer/vek-profile-viewer" "$work" <<'PY'
import os, resource, subprocess, sys
viewer, work = sys.argv[1], sys.argv[2]

def peak_kib(arguments):
    # A fresh child each time: ru_maxrss of RUSAGE_CHILDREN is the largest
    # of the children waited for, so measure one child per process.
    code = ("import resource, subprocess, sys\n"
            "subprocess.run(sys.argv[1:], stdout=subprocess.DEVNULL, check=True)\n"
            "print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)\n")
    result = subprocess.run([sys.executable, "-c", code, viewer] + arguments,
                            capture_output=True, text=True, check=True)
    return int(result.stdout.strip())

log = os.path.join(work, "large.log")
small = os.path.join(work, "small.log")
size = os.path.getsize(log)
print(f"log: {size / 2**20:.1f} MiB ({size} bytes)")
for label, arguments in [("load (header mode)", ["-m", "header"]),
                         ("trace job", ["-o", os.path.join(work, "trace.json")])]:
    base = peak_kib(arguments + [small]) * 1024
    peak = peak_kib(arguments + [log]) * 1024
    print(f"{label}: peak {peak / 2**20:.1f} MiB = {peak / size:.2f} x log; "
          f"growth over the sample's run ({base / 2**20:.1f} MiB): {(peak - base) / size:.2f} x log")
PY
