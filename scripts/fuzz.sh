#!/usr/bin/env bash
# Runs every fuzzer of the folder $1 for $2 seconds over its seeds; what it finds new stays in build/fuzz/corpus.
set -euo pipefail
cd "$(dirname "$0")/.."
programs=$1 seconds=$2
for program in "$programs"/fuzz-*; do
  [[ -x "$program" ]] || continue
  name=$(basename "$program")
  found="build/fuzz/corpus/$name"
  mkdir -p "$found"
  seeds="fuzz/corpus/${name#fuzz-}"
  echo "$name"
  "$program" "$found" $([[ -d "$seeds" ]] && echo "$seeds") -max_total_time="$seconds" -timeout=10 \
    -rss_limit_mb=1024 -artifact_prefix="build/fuzz/$name-" -print_final_stats=0 2>&1 | tail -n 3
done
