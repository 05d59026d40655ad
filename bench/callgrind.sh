#!/usr/bin/env bash
# Instructions the module executes per render call, counted by callgrind
# inside EntryPointFunc with a host whose functions return at once
# (cinebar_render_once), for 8 and 16 bits in both render modes. Fails when a
# render call allocates on the heap or costs more than 400 instructions.
#
#   bench/callgrind.sh [BUILD_DIR]     (default: build/native-release)
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
build="${1:-build/native-release}"
program="$build/bench/cinebar_render_once"
if [ ! -x "$program" ]; then
  echo "error: $program is missing; build the native-release preset first" >&2
  exit 1
fi
command -v valgrind >/dev/null || { echo "error: valgrind is not installed" >&2; exit 1; }

calls=100
limit=400
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
status=0
printf '%-28s %14s\n' "render call" "instructions"
for bits in 8 16; do
  for mode in image transparent; do
    out="$work/callgrind.$bits.$mode"
    # Bind every symbol at load time, so no call pays for the dynamic linker.
    LD_BIND_NOW=1 valgrind --tool=callgrind --callgrind-out-file="$out" --toggle-collect=EntryPointFunc \
      "$program" "$calls" "$bits" "$mode" >"$work/log" 2>&1 || {
      cat "$work/log" >&2
      echo "error: $bits-bit, on $mode: the render calls failed or allocated" >&2
      exit 1
    }
    total="$(sed -n 's/^summary: *\([0-9]*\).*/\1/p' "$out")"
    per_call=$(( total / calls ))
    note=""
    if [ "$per_call" -gt "$limit" ]; then
      note="  over the target of $limit"
      status=1
    fi
    printf '%-28s %14d%s\n' "$bits-bit, on $mode" "$per_call" "$note"
    if [ "$bits-$mode" = "8-image" ]; then cp "$out" "$work/first"; fi
  done
done
echo "(each: the mean of $calls calls; no heap allocation in any)"
if command -v callgrind_annotate >/dev/null; then
  echo
  echo "Where an 8-bit On Image call spends them (instructions of $calls calls, by function):"
  callgrind_annotate "$work/first" 2>/dev/null | sed -n '/file:function/,$p' | sed -n '3,8p'
fi
exit "$status"
