#!/bin/sh
# run_target.sh NAME PROGRAM LONGEST FOUND SEEDS...: runs one fuzz target over the inputs that the folders hold and
# then over new ones, no longer than LONGEST bytes, for VELOMIRA_FUZZ_SECONDS (3 without it). What is worth keeping
# goes to FOUND, an input that fails beside it. Prints one line, or the end of the log of a failure.
name=$1 program=$2 longest=$3 found=$4
shift 3
[ -z "$TMPDIR" ] && [ -w /dev/shm ] && export TMPDIR=/dev/shm
export ASAN_OPTIONS="quarantine_size_mb=1:$ASAN_OPTIONS"
mkdir -p "$found" "$@"  # not every target has seeds
"$program" -max_len="$longest" -max_total_time="${VELOMIRA_FUZZ_SECONDS:-3}" -timeout=20 -print_final_stats=1 \
  -artifact_prefix="$found-" "$@" >"$found.log" 2>&1 || { tail -n 40 "$found.log"; exit 1; }
awk -v name="$name" '
  /^INFO: Loaded .* inline 8-bit counters/ { match($0, /\([0-9]+/); edges = substr($0, RSTART + 1, RLENGTH - 1) }
  /INITED/ { replayed = substr($1, 2) }
  /DONE / { for (i = 1; i < NF; ++i) if ($i == "cov:") covered = $(i + 1) }
  /^stat::number_of_executed_units/ { executed = $2 }
  /^stat::average_exec_per_sec/ { rate = $2 }
  END { printf "fuzz %-9s %9d executions, %d of them replayed, %6d/s, %d of %d edges covered\n",
               name, executed, replayed, rate, covered, edges }' "$found.log"
