#!/usr/bin/env bash
# End-to-end benchmark: the main job (vek-profile-viewer LOG -o trace.json, a
# fresh process, which loads only the per-graph summaries) and the full text
# summary with the CSV export (which loads every call), timed side by side
# with the limit program (vek-bench-limit: verify and read every field, build
# nothing) in one hyperfine run, plus peak resident memory from
# /usr/bin/time -v. Prints one table of ratios and memory figures.
#
#   scripts/bench.sh                 the five logs: 10 MB, 100 MB, 1 GB, 4 GB, wide 100 MB
#   scripts/bench.sh --smoke         one small log, two runs: checks that it all still works
#   scripts/bench.sh --logs "10mb wide" --runs 5
#   scripts/bench.sh --stages        also runs the stage micro-benchmarks on the 10 MB log
#   scripts/bench.sh --keep-logs     keeps the 1 GB and 4 GB logs for the next run
#
# On the 1 GB log (the smoke log with --smoke) the op views are timed too:
# --mode top, --mode diff of the log against itself and --mode html, beside
# the main job.
#
# Logs are generated (deterministically) under build-bench/logs and reused
# until the generator is rebuilt.
set -euo pipefail
cd "$(dirname "$0")/.."

smoke=0
stages=0
keep_logs=0
runs=10
logs="10mb 100mb 1gb 4gb wide"
while [ $# -gt 0 ]; do
  case "$1" in
    --smoke) smoke=1; runs=2; logs="smoke" ;;
    --stages) stages=1 ;;
    --keep-logs) keep_logs=1 ;;
    --runs) runs="$2"; shift ;;
    --logs) logs="$2"; shift ;;
    -h|--help) sed -n '2,16p' "$0"; exit 0 ;;
    *) echo "bench.sh: unknown option $1" >&2; exit 2 ;;
  esac
  shift
done

# Graphs, executions per graph and ops per execution of each log.
shape_of() {
  case "$1" in
    smoke) echo "2 16 200" ;;
    10mb)  echo "2 54 200" ;;
    100mb) echo "2 534 200" ;;
    1gb)   echo "2 5340 200" ;;
    4gb)   echo "2 21360 200" ;;
    wide)  echo "2 53 2000" ;;
    *) echo "bench.sh: unknown log $1" >&2; exit 2 ;;
  esac
}
# The targets: main job / limit, and the main job's peak memory in MB (the
# same for every size: the main job keeps no call of the log).
time_target_of() {
  case "$1" in 100mb|1gb|4gb) echo "1.5" ;; wide) echo "1.8" ;; *) echo "-" ;; esac
}
memory_target_of() {
  case "$1" in 100mb|1gb|4gb) echo "64" ;; *) echo "-" ;; esac
}
# Free disk the generated log needs, in GB (it is written beside the others).
disk_gb_of() {
  case "$1" in 1gb) echo 3 ;; 4gb) echo 9 ;; *) echo 0 ;; esac
}
# The full summary with the CSV export is measured on this log.
summary_log=100mb
if [ "$smoke" = 1 ]; then summary_log=smoke; fi
# The op views (top; diff of the log against itself; the HTML report) are
# measured on this one, against the main job.
views_log=1gb
if [ "$smoke" = 1 ]; then views_log=smoke; fi

bash scripts/install-deps.sh --bench

build=build-bench
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVEK_BUILD_TESTS=OFF \
  -DVEK_BUILD_BENCH=ON -DVEK_WERROR=ON > /dev/null
cmake --build "$build" -j "$(nproc)" --target vek-profile-viewer VekChrometraceProfilingReader \
  vek-bench-make-log vek-bench-limit vek-bench-stages > /dev/null

viewer="$build/tools/vek-profile-viewer/vek-profile-viewer"
limit="$build/bench/vek-bench-limit"
make_log="$build/bench/vek-bench-make-log"
mkdir -p "$build/logs" "$build/out"

log_path() { echo "$build/logs/$1-$(shape_of "$1" | tr ' ' x).log"; }

for log in $logs; do
  path=$(log_path "$log")
  # A rebuilt generator may write other bytes: its logs are made afresh.
  [ -f "$path" ] && [ "$path" -nt "$make_log" ] && continue
  needed_gb=$(disk_gb_of "$log")
  if [ "$needed_gb" -gt 0 ]; then
    available_kb=$(df -Pk "$build/logs" | awk 'NR == 2 { print $4 }')
    if [ "$available_kb" -lt $((needed_gb * 1024 * 1024)) ]; then
      echo "bench.sh: the $log log needs $needed_gb GB of free disk space" >&2
      exit 1
    fi
  fi
  # shellcheck disable=SC2046
  "$make_log" $(shape_of "$log") "$path.part" > /dev/null
  mv "$path.part" "$path"
done

# One hyperfine run with every command, so that all of them meet the same
# machine state.
hyperfine_args=(-N --style basic --warmup 1 --runs "$runs" --export-csv "$build/out/times.csv")
for log in $logs; do
  path=$(log_path "$log")
  hyperfine_args+=(-n "limit $log" --prepare true "$limit $path")
  hyperfine_args+=(-n "main $log" --prepare true "$viewer $path -o $build/out/trace-$log.json")
  if [ "$log" = "$views_log" ]; then
    hyperfine_args+=(-n "top $log" --prepare true "$viewer -m top $path -o $build/out/top-$log.txt")
    hyperfine_args+=(-n "diff $log" --prepare true "$viewer -m diff $path $path -o $build/out/diff-$log.txt")
    hyperfine_args+=(-n "html $log" --prepare true "$viewer -m html $path -o $build/out/report-$log.html")
  fi
  if [ "$log" = "$summary_log" ]; then
    # The CSV export appends, so every run starts without the file.
    hyperfine_args+=(-n "summary $log" --prepare "rm -f $build/out/summary-$log.csv"
                     "$viewer $path -m summary -o $build/out/summary-$log.csv")
    # The other trace format and the compressed outputs, beside the same runs.
    hyperfine_args+=(-n "portable $log" --prepare true
                     "$viewer $path --trace-format portable -o $build/out/portable-$log.json")
    hyperfine_args+=(-n "main.gz $log" --prepare true "$viewer $path -o $build/out/trace-$log.json.gz")
    hyperfine_args+=(-n "portable.gz $log" --prepare true
                     "$viewer $path --trace-format portable -o $build/out/portable-$log.json.gz")
    hyperfine_args+=(-n "summary.gz $log" --prepare "rm -f $build/out/summary-$log.csv.gz"
                     "$viewer $path -m summary -o $build/out/summary-$log.csv.gz")
  fi
done
hyperfine "${hyperfine_args[@]}" > "$build/out/hyperfine.txt"

# Median seconds of a named command, and its mean CPU seconds (user +
# system), which move less when other work shares the machine.
median_of() {
  awk -F, -v name="$1" 'NR > 1 && $1 == name { print $4 }' "$build/out/times.csv"
}
cpu_of() {
  awk -F, -v name="$1" 'NR > 1 && $1 == name { print $5 + $6 }' "$build/out/times.csv"
}
peak_kb_of() {
  /usr/bin/time -v "$@" 2>&1 > /dev/null | awk -F': ' '/Maximum resident set size/ { print $2 }'
}

table="$build/out/bench-table.md"
{
  echo "Measured $(date -u '+%Y-%m-%d %H:%M UTC') on $(nproc) cores of" \
    "$(lscpu | awk -F': +' '/^Model name/ { print $2; exit }')," \
    "$(awk '/MemTotal/ { printf "%.0f GiB", $2 / 1048576 }' /proc/meminfo) RAM;" \
    "median of $runs runs, one hyperfine run."
  echo
  echo "| log (graphs x executions x ops) | size | limit | main job | main / limit | (CPU) | target | peak memory | target | memory / size |"
  echo "|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|"
  for log in $logs; do
    path=$(log_path "$log")
    size=$(stat -c %s "$path")
    limit_s=$(median_of "limit $log")
    main_s=$(median_of "main $log")
    peak_kb=$(peak_kb_of "$viewer" "$path" -o "$build/out/trace-$log.json")
    awk -v name="$log" -v shape="$(shape_of "$log" | sed 's/ / x /g')" -v size="$size" \
        -v limit="$limit_s" -v main="$main_s" -v peak="$peak_kb" \
        -v limit_cpu="$(cpu_of "limit $log")" -v main_cpu="$(cpu_of "main $log")" \
        -v time_target="$(time_target_of "$log")" -v memory_target="$(memory_target_of "$log")" \
      'BEGIN {
         printf "| %s (%s) | %.0f MB | %.0f ms | %.0f ms | %.2fx | %.2fx | %s | %.0f MB | %s | %.3fx |\n",
           name, shape, size / 1e6, limit * 1000, main * 1000, main / limit, main_cpu / limit_cpu,
           time_target == "-" ? "-" : "<= " time_target "x",
           peak * 1024 / 1e6, memory_target == "-" ? "-" : "<= " memory_target " MB",
           peak * 1024 / size }'
    if [ "$log" = "$summary_log" ]; then
      summary_s=$(median_of "summary $log")
      rm -f "$build/out/summary-$log.csv"
      peak_kb=$(peak_kb_of "$viewer" "$path" -m summary -o "$build/out/summary-$log.csv")
      awk -v name="$log" -v size="$size" -v limit="$limit_s" -v main="$summary_s" \
          -v limit_cpu="$(cpu_of "limit $log")" -v main_cpu="$(cpu_of "summary $log")" \
          -v peak="$peak_kb" -v time_target="$([ "$smoke" = 1 ] && echo - || echo 2.5)" \
        'BEGIN {
           printf "| %s, full summary + CSV | %.0f MB | %.0f ms | %.0f ms | %.2fx | %.2fx | %s | %.0f MB | - | %.3fx |\n",
             name, size / 1e6, limit * 1000, main * 1000, main / limit, main_cpu / limit_cpu,
             time_target == "-" ? "-" : "<= " time_target "x", peak * 1024 / 1e6, peak * 1024 / size }'
    fi
  done

  # What the trace format and gzip cost, on the log of the full summary. CPU
  # time (user + system, means) moves less than wall time when other work
  # shares the machine.
  echo
  echo "Outputs of the $summary_log log, each against its plain counterpart in the same run:"
  echo
  echo "| output | median | CPU time | against | ratio (median) | ratio (CPU) | target | file size |"
  echo "|---|---:|---:|---|---:|---:|---:|---:|"
  out="$build/out"
  output_row() {  # name, command, file, baseline name, baseline command, target
    awk -F, -v name="$1" -v command="$2 $summary_log" -v size="$(stat -c %s "$3")" \
        -v base="$4" -v baseline="$5 $summary_log" -v target="$6" '
      NR > 1 && $1 == command { t = $4; cpu = $5 + $6 }
      NR > 1 && $1 == baseline { b = $4; bcpu = $5 + $6 }
      END { printf "| %s | %.0f ms | %.0f ms | %s | %.2fx | %.2fx | %s | %.2f MB |\n", name,
              t * 1000, cpu * 1000, base, t / b, cpu / bcpu, target, size / 1e6 }' \
      "$build/out/times.csv"
  }
  output_row "exact trace" main "$out/trace-$summary_log.json" "exact trace" main "-"
  output_row "portable trace" portable "$out/portable-$summary_log.json" "exact trace" main "<= 1.05x"
  output_row "exact trace .gz" main.gz "$out/trace-$summary_log.json.gz" "exact trace" main "<= 1.3x"
  output_row "portable trace .gz" portable.gz "$out/portable-$summary_log.json.gz" \
    "portable trace" portable "<= 1.3x"
  output_row "summary + CSV" summary "$out/summary-$summary_log.csv" "summary + CSV" summary "-"
  output_row "summary + CSV .gz" summary.gz "$out/summary-$summary_log.csv.gz" "summary + CSV" \
    summary "<= 1.3x"

  # The op views against the main job on the same log (median and CPU time).
  if [[ " $logs " == *" $views_log "* ]]; then
    echo
    echo "| view on $views_log | median | CPU time | ratio (median) | ratio (CPU) | target |"
    echo "|---|---:|---:|---:|---:|---:|"
    for view in top diff html; do
      awk -F, -v name="$view" -v command="$view $views_log" -v baseline="main $views_log" \
          -v target="$([ "$view" = html ] && echo 1.2 || echo 1.1)" '
        NR > 1 && $1 == command { t = $4; cpu = $5 + $6 }
        NR > 1 && $1 == baseline { b = $4; bcpu = $5 + $6 }
        END { printf "| %s | %.0f ms | %.0f ms | %.2fx | %.2fx | <= %sx |\n", name, t * 1000,
                cpu * 1000, t / b, cpu / bcpu, target }' "$build/out/times.csv"
    done
    echo
    echo "HTML report of the $views_log log: $(stat -c %s "$build/out/report-$views_log.html") bytes."
  fi
} > "$table"
cat "$table"

if [ "$stages" = 1 ] || [ "$smoke" = 1 ]; then
  stage_args=()
  if [ "$smoke" = 1 ]; then
    stage_args=(--log="$(log_path smoke)" --benchmark_min_time=0.01)
  fi
  "$build/bench/vek-bench-stages" "${stage_args[@]}"
fi

if [ "$keep_logs" = 0 ]; then
  rm -f "$(log_path 1gb)" "$(log_path 4gb)"
fi
rm -f "$build"/out/summary-*.csv "$build"/out/summary-*.csv.gz
