#!/usr/bin/env bash
# Fuzz smoke stage: builds the fuzz preset (clang, libFuzzer, address and
# undefined-behaviour sanitizers) and runs every fuzz target on its seed
# corpus for a bounded time, PELCAST_FUZZ_SECONDS each (default 60). A crash,
# sanitizer report, leak, hang or broken property stops the run with a
# non-zero status and leaves the input that caused it in build/fuzz/artifacts.
# The committed seeds are not modified: new inputs go to a scratch copy.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${PELCAST_FUZZ_SECONDS:-60}
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j"$(nproc)"

artifacts=build/fuzz/artifacts
mkdir -p "$artifacts"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# target, longest input, extra options. The command line may allocate what
# a 32-bit frame size asks for (up to 3 GiB, untouched), which is the
# tool's behaviour and not a fault; and its files are capped in size, so a
# write past the cap must fail as a write error, not end the run through
# libFuzzer's own file-size signal handler.
targets=(
  "tile_decoder 300"
  "frame_decoder 20000"
  "encoder_roundtrip 8192"
  "command_line 20000 -malloc_limit_mb=4096 -handle_xfsz=0"
  "api 4096"
  "identify 40000"
)
for entry in "${targets[@]}"; do
  read -r target max_len extra <<<"$entry"
  echo "--- fuzz_$target: ${seconds}s"
  cp -r "fuzz/corpus/$target" "$work/$target"
  # shellcheck disable=SC2086  # $extra is a list of options
  build/fuzz/fuzz/fuzz_"$target" "$work/$target" -max_total_time="$seconds" \
    -max_len="$max_len" -timeout=30 -print_final_stats=1 \
    -artifact_prefix="$artifacts/$target-" $extra 2>"$work/$target.log" || {
    tail -n 60 "$work/$target.log"
    echo "fuzz_$target failed; the input is in $artifacts" >&2
    exit 1
  }
  grep -E '^(Done|stat::number_of_executed_units|stat::peak_rss_mb)' "$work/$target.log"
done
echo "fuzz smoke: every target ran ${seconds}s without a finding"
