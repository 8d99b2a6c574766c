#!/usr/bin/env bash
# End-to-end timing of the real pelcast commands on the corpus, each beside a
# plain copy of its input with `cat` to the same output place:
#
#   tools/e2e-bench.sh [--markdown FILE]
#
# Times U, G, B, H and N on single 1920x1080 frames, on the 3840x2160 frame
# the benchmarks build from four corpus frames and (U, N) on the 8-frame pan
# sequence, and P, I, C, E, T and S on the sequence. The page cache is warm
# (warm-up runs first); hyperfine (installed from Debian when missing) gives
# the median wall-clock time of several runs and their mean CPU time (user +
# system), which other work on a shared machine disturbs less. The ratios are
# command / copy: 1.0 means the command costs no more than copying its input
# file. cat copies inside the kernel (copy_file_range) where it can, without
# passing the bytes through memory of its own as a command must.
#
# ZPAK inputs come from pelcast N and H themselves, and for B from the
# library's RGB565 frame encoder (pelcast-bench-prep); the planar input of P
# from pelcast I, the padded input of E from pelcast-bench-prep. Every output
# that has an independent expected value is compared with it (decoders give
# back the original frames, P undoes I, E gives what I gives, T copies the
# whole sequence), so a fast but wrong command cannot pass unnoticed.
#
# The codec commands (U, G, B, H, N) run with their default threads (one per
# processor); their rows also give the time with PELCAST_THREADS=1.
#
# Environment: PELCAST_BENCH_BUILD (build directory, default build/bench from
# the bench preset), PELCAST_CORPUS_DIR, PELCAST_E2E_DIR (work and output
# place, default <build>/e2e), PELCAST_E2E_RUNS (default 10).
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

markdown=""
if [ "${1:-}" = "--markdown" ]; then markdown=${2:?--markdown needs a file}; fi

build=${PELCAST_BENCH_BUILD:-$root/build/bench}
corpus=${PELCAST_CORPUS_DIR:-$root/../shared/corpus}
work=${PELCAST_E2E_DIR:-$build/e2e}
runs=${PELCAST_E2E_RUNS:-10}
warmup=2
width=1920
height=1080
uhd_width=3840
uhd_height=2160

if ! command -v hyperfine >/dev/null; then
  as_root=()
  if [ "$(id -u)" -ne 0 ]; then as_root=(sudo); fi
  echo "e2e-bench: installing hyperfine" >&2
  DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get install -y -qq --no-install-recommends hyperfine >/dev/null ||
    { "${as_root[@]}" apt-get update -qq && DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get install -y -qq --no-install-recommends hyperfine >/dev/null; }
fi

if [ ! -f "$build/build.ninja" ] && [ ! -f "$build/Makefile" ]; then
  if [ -n "${PELCAST_BENCH_BUILD:-}" ]; then
    echo "e2e-bench: $build is not a configured build directory" >&2
    exit 1
  fi
  cmake --preset bench >/dev/null
fi
cmake --build "$build" -j2 --target pelcast pelcast-bench-prep >/dev/null
pelcast=$build/pelcast
prep=$build/bench/pelcast-bench-prep

single=photo-mountains-1920x1080
sequence=$corpus/pan-hillside-1920x1080-8f.nv12
# Without the corpus (a plain clone has none) there is nothing to time: say
# so, in the table too, and go on.
for file in "$corpus/$single.nv12" "$corpus/$single.rgba" "$corpus/$single.rgb565" "$sequence"; do
  if [ ! -f "$file" ]; then
    echo "e2e-bench: no corpus file $file: end-to-end timings skipped" >&2
    if [ -n "$markdown" ]; then
      echo "Skipped: the corpus is missing ($file)." >"$markdown"
    fi
    exit 0
  fi
done

in=$work/in
out=$work/out
mkdir -p "$in" "$out"

# Inputs made by the tool and the library (quietly; failures stop the run).
"$pelcast" N "$corpus/$single.nv12" "$in/single.nv12.zpak" $width $height >/dev/null
"$pelcast" N "$sequence" "$in/pan.nv12.zpak" $width $height >/dev/null
"$pelcast" H "$corpus/$single.rgba" "$in/single.rgba.zpak" $width $height >/dev/null
"$prep" rgb565-zpak "$corpus/$single.rgb565" "$in/single.rgb565.zpak" $width $height
"$pelcast" I "$sequence" "$in/pan.i420" $width $height >/dev/null
"$prep" pad-nv12 "$sequence" "$in/pan.padded.nv12" $width $height
# The 3840x2160 mosaic of four corpus frames, in each format.
for layout in nv12 rgba rgb565; do "$prep" uhd $layout "$in/uhd.$layout"; done
"$pelcast" N "$in/uhd.nv12" "$in/uhd.nv12.zpak" $uhd_width $uhd_height >/dev/null
"$pelcast" H "$in/uhd.rgba" "$in/uhd.rgba.zpak" $uhd_width $uhd_height >/dev/null
"$prep" rgb565-zpak "$in/uhd.rgb565" "$in/uhd.rgb565.zpak" $uhd_width $uhd_height
for made in single.nv12.zpak pan.nv12.zpak single.rgba.zpak single.rgb565.zpak pan.i420 \
  pan.padded.nv12 uhd.nv12.zpak uhd.rgba.zpak uhd.rgb565.zpak; do
  [ -s "$in/$made" ] || { echo "e2e-bench: could not make $in/$made" >&2; exit 1; }
done

# One case a line: name | input(s) | pelcast arguments after the letter's
# paths | expected output file (empty: none to compare) | description.
# @IN@ and @OUT@ stand for the input and the output path.
cases=(
  "N|$corpus/$single.nv12|N @IN@ @OUT@ $width $height||NV12 frame to ZPAK"
  "N seq|$sequence|N @IN@ @OUT@ $width $height||8 NV12 frames to ZPAK"
  "H|$corpus/$single.rgba|H @IN@ @OUT@ $width $height||RGBA8888 frame to ZPAK"
  "U|$in/single.nv12.zpak|U @IN@ @OUT@ $width $height|$corpus/$single.nv12|ZPAK frame to NV12"
  "U seq|$in/pan.nv12.zpak|U @IN@ @OUT@ $width $height|$sequence|8 ZPAK frames to NV12"
  "G|$in/single.rgba.zpak|G @IN@ @OUT@ $width $height|$corpus/$single.rgba|ZPAK frame to RGBA8888"
  "B|$in/single.rgb565.zpak|B @IN@ @OUT@ $width $height|$corpus/$single.rgb565|ZPAK frame to RGB565"
  "N 4K|$in/uhd.nv12|N @IN@ @OUT@ $uhd_width $uhd_height||3840x2160 NV12 frame to ZPAK"
  "H 4K|$in/uhd.rgba|H @IN@ @OUT@ $uhd_width $uhd_height||3840x2160 RGBA8888 frame to ZPAK"
  "U 4K|$in/uhd.nv12.zpak|U @IN@ @OUT@ $uhd_width $uhd_height|$in/uhd.nv12|3840x2160 ZPAK frame to NV12"
  "G 4K|$in/uhd.rgba.zpak|G @IN@ @OUT@ $uhd_width $uhd_height|$in/uhd.rgba|3840x2160 ZPAK frame to RGBA8888"
  "B 4K|$in/uhd.rgb565.zpak|B @IN@ @OUT@ $uhd_width $uhd_height|$in/uhd.rgb565|3840x2160 ZPAK frame to RGB565"
  "P seq|$in/pan.i420|P @IN@ @OUT@ $width $height|$sequence|8 planar frames to NV12"
  "I seq|$sequence|I @IN@ @OUT@ $width $height|$in/pan.i420|8 NV12 frames to planar"
  "C seq|$sequence|C @IN@ @OUT@ $width $height 1280 720||8 NV12 frames cropped to 1280x720 planar"
  "E seq|$in/pan.padded.nv12|E @IN@ @OUT@ $width $height|$in/pan.i420|8 padded NV12 frames to planar"
  "T seq|$sequence|T @IN@ @OUT@ $width $height 8|$sequence|first 8 frames copied"
  "S seq|$sequence $in/pan.i420|S @IN@ $width $height||PSNR of two 8-frame sequences"
)

size_of() { local total=0 f; for f in "$@"; do total=$((total + $(stat -c %s "$f"))); done; echo $total; }
# From hyperfine's CSV (command,mean,stddev,median,user,system,min,max): the
# median wall-clock time, and the mean CPU time (user + system) of a row.
median_of() { awk -F, -v row="$2" 'NR == row + 1 { print $4 }' "$1"; }
cpu_of() { awk -F, -v row="$2" 'NR == row + 1 { print $5 + $6 }' "$1"; }

rows=()
for entry in "${cases[@]}"; do
  IFS='|' read -r name inputs arguments expected description <<<"$entry"
  read -r -a input_files <<<"$inputs"
  tag=${name// /-}
  target=$out/$tag.out
  if [ "${arguments%% *}" = "S" ]; then
    # S writes no file: both inputs are read, the report goes to stdout.
    command="$pelcast S ${input_files[0]} ${input_files[1]} ${arguments#S @IN@ }"
    copy="cat ${input_files[*]}"
  else
    command="$pelcast ${arguments//@IN@/${input_files[0]}}"
    command=${command//@OUT@/$target}
    copy="cat ${input_files[0]} > $target"
  fi
  csv=$work/$tag.csv
  letter=${arguments%% *}
  one_s=""
  if [[ $letter == [UGBHN] ]]; then
    # The same command on one thread, third in the run.
    hyperfine --style none --warmup $warmup --runs "$runs" --export-csv "$csv" "$command" "$copy" \
      "PELCAST_THREADS=1 $command" >/dev/null
    one_s=$(median_of "$csv" 3)
  else
    hyperfine --style none --warmup $warmup --runs "$runs" --export-csv "$csv" "$command" "$copy" >/dev/null
  fi
  tool_s=$(median_of "$csv" 1)
  copy_s=$(median_of "$csv" 2)
  tool_cpu=$(cpu_of "$csv" 1)
  copy_cpu=$(cpu_of "$csv" 2)
  # The command's output, made once more after the copy overwrote it.
  check="-"
  if [ "${arguments%% *}" = "S" ]; then
    report=$($command)
    case $report in "frame = 8 psnr(avg) = "*) check="8 frames" ;; *) check="WRONG: $report" ;; esac
  else
    eval "$command" >/dev/null
    if [ -n "$expected" ]; then
      if cmp -s "$target" "$expected"; then check="identical"; else check="DIFFERS"; fi
    fi
  fi
  in_bytes=$(size_of "${input_files[@]}")
  out_bytes=0
  [ -f "$target" ] && out_bytes=$(size_of "$target")
  rows+=("$(awk -v n="$name" -v d="$description" -v i="$in_bytes" -v o="$out_bytes" -v t="$tool_s" \
    -v c="$copy_s" -v tc="$tool_cpu" -v cc="$copy_cpu" -v k="$check" -v one="$one_s" 'BEGIN {
      printf "| %s | %s | %.1f | %.1f | %.2f | %.2f | %.2f | %.2f | %.2f | %.2f | %s |", n, d,
             i / 1e6, o / 1e6, t * 1e3, c * 1e3, t / c, tc * 1e3, cc * 1e3, tc / cc, k
      if (one == "") printf " - | - |"; else printf " %.2f | %.2f |", one * 1e3, one / c }')")
  echo "e2e-bench: $name done" >&2
done

table() {
  echo "| case | what | input MB | output MB | pelcast ms | cat ms | ratio | pelcast CPU ms | cat CPU ms | CPU ratio | output | 1 thread ms | 1 thread ratio |"
  echo "|---|---|---:|---:|---:|---:|---:|---:|---:|---:|---|---:|---:|"
  printf '%s\n' "${rows[@]}"
}

table
if [ -n "$markdown" ]; then table >"$markdown"; fi
