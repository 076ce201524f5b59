#!/bin/sh
# run.sh TARGET [SECONDS]: random input for a libFuzzer target, on top of its corpus. New input that reaches new code is
# kept beside the target in found/, so the next run goes on from there; what breaks it lies there as crash-*.
set -eu
target=$1
name=$(basename "$target")
corpus=${name#fuzz_}
corpus=$(realpath "$(dirname "$0")")/corpus/${corpus%_memory}
found=$(dirname "$target")/found/$name
mkdir -p "$found"
log=$found.log
if "$target" "$found" "$corpus" -max_total_time="${2:-5}" -max_len=1024 -timeout=10 -rss_limit_mb=1024 \
    -artifact_prefix="$found/" -print_final_stats=1 -close_fd_mask=1 >"$log" 2>&1; then
    echo "$name: $(sed -n 's/^stat::number_of_executed_units: *//p' "$log") cases, none breaks it"
else
    cat "$log"
    exit 1
fi
