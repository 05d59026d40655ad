#!/usr/bin/env bash
# `cinebar render` against the ffmpeg crop+pad a user would otherwise write,
# side by side in one run on the same frames: 2.35:1 bars on 1920x1080 8-bit
# RGB and on 3840x2160 16-bit RGB, both single-threaded and both with their
# default threads. Prints frames per second and the ratio cinebar/ffmpeg (best
# of RUNS runs each), and whether both give the same pixels.
#   bench/vs_ffmpeg.sh [BUILD_DIR]   (default build/native-release, built if needed)
#   FRAMES_HD (48), FRAMES_4K (48) and RUNS (3) change the amount of work.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/deps.sh
source scripts/deps.sh
cinebar_ensure_packages "${CINEBAR_BENCH_PACKAGES[@]}"

build="${1:-build/native-release}"
if [ ! -x "$build/tools/cinebar/cinebar" ]; then
  cmake --preset native-release >/dev/null
  cmake --build --preset native-release --target cinebar
fi
cinebar="$build/tools/cinebar/cinebar"
runs="${RUNS:-3}"
work="$(mktemp -d /tmp/cinebar-vs-ffmpeg-XXXXXX)"
trap 'rm -rf "$work"' EXIT

now() { date +%s.%N; }

# best_seconds COMMAND...: the shortest wall time of $runs runs.
best_seconds() {
  local best="" i start end t
  for ((i = 0; i < runs; i++)); do
    rm -rf "$work/out" && mkdir -p "$work/out"
    start="$(now)"
    "$@" >/dev/null 2>&1
    end="$(now)"
    t="$(awk -v a="$start" -v b="$end" 'BEGIN { print b - a }')"
    best="$(awk -v t="$t" -v best="${best:-$t}" 'BEGIN { print (t < best ? t : best) }')"
  done
  echo "$best"
}

# job NAME SIZE PIXFMT FRAMES CROP_H TOP OUT_FMT
job() {
  local name="$1" size="$2" pixfmt="$3" frames="$4" crop_h="$5" top="$6" out_fmt="$7"
  local height="${size#*x}" seq="$work/$name"
  mkdir -p "$seq"
  ffmpeg -loglevel error -f lavfi -i "testsrc2=size=$size:rate=24" -frames:v "$frames" -pix_fmt "$pixfmt" \
    "$seq/frame_%04d.png"
  local vf="crop=iw:$crop_h:0:$top,pad=iw:$height:0:$top:black,format=$out_fmt"
  local ff=(ffmpeg -y -loglevel error)
  for threads in 1 default; do
    local cb_threads=() ff_in=() ff_out=()
    if [ "$threads" = 1 ]; then
      cb_threads=(--jobs 1)
      ff_in=(-threads 1 -filter_threads 1)
      ff_out=(-threads 1)
    fi
    local tc tf
    tc="$(best_seconds "$cinebar" render "$seq/frame_%04d.png" "$work/out/frame_%04d.png" --preset 2.35 \
      "${cb_threads[@]}")"
    tf="$(best_seconds "${ff[@]}" "${ff_in[@]}" -i "$seq/frame_%04d.png" -vf "$vf" -compression_level 1 \
      "${ff_out[@]}" "$work/out/frame_%04d.png")"
    awk -v n="$name" -v th="$threads" -v f="$frames" -v c="$tc" -v g="$tf" \
      'BEGIN { printf "%-14s %-8s %8.1f %8.1f %7.2f\n", n, th, f / c, f / g, g / c }'
  done
  # The same pixels? Only at 8 bits: at 16 the module's bar colour is its 8-bit
  # colour shifted by 7 (alpha 255 -> 32640 of 32768), not full scale as in ffmpeg.
  [ "$out_fmt" = rgba ] || return 0
  rm -rf "$work/cb" "$work/ffo" && mkdir -p "$work/cb" "$work/ffo"
  "$cinebar" render "$seq/frame_%04d.png" "$work/cb/frame_%04d.png" --preset 2.35 >/dev/null
  "${ff[@]}" -i "$seq/frame_%04d.png" -vf "$vf" -compression_level 1 "$work/ffo/frame_%04d.png"
  local a b
  a="$(ffmpeg -loglevel error -i "$work/cb/frame_%04d.png" -pix_fmt rgba -f framemd5 - | grep -v '^#' | cut -d, -f6)"
  b="$(ffmpeg -loglevel error -i "$work/ffo/frame_%04d.png" -pix_fmt rgba -f framemd5 - | grep -v '^#' | cut -d, -f6)"
  printf '%-14s same pixels as ffmpeg: %s\n' "$name" "$([ "$a" = "$b" ] && echo yes || echo NO)"
}

echo "cinebar/ffmpeg on $(nproc) hardware threads, best of $runs runs ($(ffmpeg -version | head -1 | cut -d' ' -f1-3))"
printf '%-14s %-8s %8s %8s %7s\n' job threads "cinebar" "ffmpeg" ratio
printf '%-14s %-8s %8s %8s %7s\n' "" "" "fps" "fps" ""
job 1080p-8bit 1920x1080 rgb24 "${FRAMES_HD:-48}" 817 131 rgba
job 2160p-16bit 3840x2160 rgb48be "${FRAMES_4K:-48}" 1634 263 rgba64be
