#!/usr/bin/env bash
# A short run of every fuzz target, part of the test suite: configures and
# builds the fuzz project with clang in build/fuzz, then runs each target for
# a few seconds from a fixed seed over its corpus in fuzz/corpus/<target>/.
# New inputs go to build/fuzz/new/<target>, findings to build/fuzz/findings/.
# Prints one line per target; fails on any finding.
#   fuzz/run-short.sh [seconds per target]   (default 5)
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="$root/build/fuzz"
seconds="${1:-5}"
targets=(geometry_fuzz commands_fuzz png_fuzz)
mkdir -p "$build"

if ! { cmake -S "$root/fuzz" -B "$build" -DCMAKE_BUILD_TYPE=Debug &&
       cmake --build "$build" --target "${targets[@]}" -j2; } >"$build/build.log" 2>&1; then
  tail -n 30 "$build/build.log"
  echo "fuzz: the build failed (see $build/build.log)" >&2
  exit 1
fi

failed=0
for target in "${targets[@]}"; do
  corpus="$root/fuzz/corpus/${target%_fuzz}"
  new="$build/new/$target"
  findings="$build/findings/$target"
  mkdir -p "$new" "$findings"
  log="$build/$target.log"
  if "$build/$target" -max_total_time="$seconds" -seed=1 -timeout=10 -rss_limit_mb=2048 \
       -artifact_prefix="$findings/" -print_final_stats=1 "$new" "$corpus" >"$log" 2>&1; then
    runs="$(grep -E '^stat::number_of_executed_units' "$log" | awk '{print $2}' || true)"
    cov="$(grep -E 'DONE' "$log" | grep -oE 'cov: [0-9]+' | head -n 1 || true)"
    echo "fuzz: ${target}: ${runs:-?} runs in ${seconds} s, ${cov:-cov: ?}, no findings"
  else
    failed=1
    grep -E 'ERROR|SUMMARY|runtime error|commands_fuzz:|png_fuzz:|ComputePictureRect:|Test unit written' "$log" | head -n 20
    echo "fuzz: ${target}: FINDING (see $log and $findings)" >&2
  fi
done
exit "$failed"
