#!/usr/bin/env bash
# A long fuzzing campaign in the background: runs each named fuzz target in
# turn for SECONDS on one core at the lowest priority, from a working corpus
# of its own (seeded once from the committed seeds and kept between
# campaigns), and prints one line per target in the format of
# fuzz/CAMPAIGNS.md: date, commit, target, seconds, executions, findings.
#
#   tools/fuzz-campaign.sh [--bin DIR] SECONDS target...
#
# --bin names a folder of fuzz binaries (default build/fuzz/fuzz), so a
# campaign can run a copy built from one commit while the tree moves on; the
# commit recorded is the one in DIR/COMMIT when that file exists.
set -euo pipefail
cd "$(dirname "$0")/.."

bin=build/fuzz/fuzz
if [ "${1:-}" = "--bin" ]; then bin=$2; shift 2; fi
seconds=${1:?usage: tools/fuzz-campaign.sh [--bin DIR] SECONDS target...}
shift
commit=$(cat "$bin/COMMIT" 2>/dev/null || git rev-parse --short HEAD)
work=${PELCAST_FUZZ_WORK:-build/fuzz-work}
# libFuzzer's timeout counts wall-clock time, and a campaign at the lowest
# priority may be starved or paused (SIGSTOP) while benchmarks run: only an
# input stuck for this long counts as a hang.
timeout=${PELCAST_FUZZ_TIMEOUT:-1200}
mkdir -p "$work/artifacts"

# Suggested limits of fuzz/README.md, per target.
options_for() {
  case "$1" in
    tile_decoder) echo "-max_len=300" ;;
    frame_decoder) echo "-max_len=20000" ;;
    encoder_roundtrip) echo "-max_len=8192" ;;
    command_line) echo "-max_len=20000 -malloc_limit_mb=4096 -handle_xfsz=0" ;;
    *) echo "-max_len=20000" ;;
  esac
}

for target in "$@"; do
  corpus=$work/corpus/$target
  if [ ! -d "$corpus" ]; then
    mkdir -p "$corpus"
    cp fuzz/corpus/"$target"/* "$corpus"/ 2>/dev/null || true
  fi
  log=$work/$target-$(date +%Y%m%d-%H%M%S).log
  status=0
  # shellcheck disable=SC2046  # the options are a list
  nice -n 19 "$bin/fuzz_$target" "$corpus" -max_total_time="$seconds" -timeout="$timeout" \
    -print_final_stats=1 -artifact_prefix="$work/artifacts/$target-" \
    $(options_for "$target") >"$log" 2>&1 || status=$?
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
  findings=none
  if [ "$status" -ne 0 ]; then
    findings="FINDING (exit $status, see $log)"
  fi
  echo "| $(date +%Y-%m-%d) | $commit | $target | $seconds | ${runs:-0} | $findings |"
done
