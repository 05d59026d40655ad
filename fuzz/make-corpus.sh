#!/usr/bin/env bash
# Regenerates the seed corpora in fuzz/corpus/<target>/: each target runs for
# a while from a fixed seed, its inputs are merged down to those that add
# coverage, and of those the longest few dozen are kept (longer command
# sequences reach further). Uses the build of fuzz/run-short.sh (build/fuzz).
#   fuzz/make-corpus.sh [seconds per target] [files kept per target]   (default 30, 40)
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="$root/build/fuzz"
seconds="${1:-30}"
keep="${2:-40}"
for target in geometry_fuzz commands_fuzz; do
  work="$build/corpus-work/$target"
  rm -rf "$work"
  mkdir -p "$work/run" "$work/merged"
  "$build/$target" -max_total_time="$seconds" -seed=1 -max_len=64 "$work/run" >"$work/run.log" 2>&1
  "$build/$target" -merge=1 "$work/merged" "$work/run" >"$work/merge.log" 2>&1
  corpus="$root/fuzz/corpus/${target%_fuzz}"
  rm -rf "$corpus"
  mkdir -p "$corpus"
  # shellcheck disable=SC2012
  mapfile -t files < <(ls -S "$work/merged")
  for file in "${files[@]:0:$keep}"; do cp "$work/merged/$file" "$corpus/"; done
  echo "$target: $(ls "$corpus" | wc -l) files, $(cat "$corpus"/* | wc -c) bytes"
done
