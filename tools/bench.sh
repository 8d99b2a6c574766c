#!/usr/bin/env bash
# One command for every speed figure of pelcast: installs what the benchmarks
# need where it is missing (Google Benchmark, the reference libraries libyuv
# and QOI, hyperfine), builds the bench preset, runs the micro-benchmarks and
# the end-to-end timings, and regenerates bench/RESULTS.md.
#
#   tools/bench.sh [--quick] [--note TEXT]...
#
# --quick runs each micro-benchmark once for a short time (for trying the
# script; the figures are rougher). --note adds a line to the results, e.g.
# that other work shared the machine. The 1-minute load average before and
# after the run is noted either way.
#
# pelcast itself never links the reference libraries; without them the
# benchmark still builds and leaves their rows out.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

quick=0
notes=()
while [ $# -gt 0 ]; do
  case $1 in
    --quick) quick=1 ;;
    --note) notes+=("${2:?--note needs a text}"); shift ;;
    *) echo "usage: tools/bench.sh [--quick] [--note TEXT]..." >&2; exit 2 ;;
  esac
  shift
done

packages=(g++ cmake ninja-build python3 libbenchmark-dev libyuv-dev libqoi-dev hyperfine)
installed() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q '^install ok installed$'; }
missing=()
for package in "${packages[@]}"; do installed "$package" || missing+=("$package"); done
if [ ${#missing[@]} -gt 0 ]; then
  as_root=()
  if [ "$(id -u)" -ne 0 ]; then as_root=(sudo); fi
  echo "bench: installing ${missing[*]}"
  "${as_root[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get install -y -qq --no-install-recommends \
    "${missing[@]}" >/dev/null
fi

build=$root/build/bench
load_before=$(cut -d' ' -f1 /proc/loadavg)
echo "bench: building (preset bench)"
cmake --preset bench >/dev/null
cmake --build --preset bench -j2 >/dev/null

json=$build/bench-results.json
e2e=$build/e2e-results.md
bench_args=(--benchmark_out="$json" --benchmark_out_format=json)
if [ $quick -eq 1 ]; then
  bench_args+=(--benchmark_min_time=0.05)
else
  bench_args+=(--benchmark_repetitions=3 --benchmark_report_aggregates_only=true --benchmark_min_time=0.3)
fi
echo "bench: micro-benchmarks"
"$build/bench/pelcast_bench" "${bench_args[@]}"
echo "bench: end to end"
e2e_runs=20  # single-frame runs take 4-90 ms: medians of 20 move less with the machine
if [ $quick -eq 1 ]; then e2e_runs=3; fi
PELCAST_E2E_RUNS=$e2e_runs tools/e2e-bench.sh --markdown "$e2e"
load_after=$(cut -d' ' -f1 /proc/loadavg)

# sed reads its whole input: a reader that stops early would fail the pipe.
cpu=$(lscpu | sed -n 's/^Model name: *//p' | sed -n 1p)
machine="$cpu, $(nproc) cores, $(uname -sm), $(awk '/MemTotal/ { printf "%.0f GiB", $2 / 1048576 }' /proc/meminfo)"
compiler="$(g++ --version | sed -n 1p), CMake build type Release (-O3), no -march: x86-64 baseline plus run-time AVX2 selection"
quick_flag=""
if [ $quick -eq 1 ]; then quick_flag=" --quick"; fi
commands="tools/bench.sh$quick_flag
  = cmake --preset bench && cmake --build --preset bench -j2
    build/bench/bench/pelcast_bench ${bench_args[*]/#--benchmark_out=*/--benchmark_out=FILE}
    PELCAST_E2E_RUNS=$e2e_runs tools/e2e-bench.sh --markdown FILE"
note_args=()
for note in "${notes[@]}"; do note_args+=(--note "$note"); done
note_args+=(--note "1-minute load average $load_before before and $load_after after the run (2 cores).")
python3 bench/results_report.py --json "$json" --e2e "$e2e" --out bench/RESULTS.md \
  --machine "$machine" --compiler "$compiler" --commands "$commands" "${note_args[@]}"
echo "bench: wrote bench/RESULTS.md"
