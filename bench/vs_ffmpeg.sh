#!/usr/bin/env bash
# `cinebar render` against the ffmpeg crop+pad a user would otherwise write,
# on frames made here from the photographs of Debian's mate-backgrounds:
# 2.35:1 bars on 48 frames of 1920x1080 8-bit RGB and on 12 frames of
# 3840x2160 16-bit RGB. One thread each: cinebar at its defaults, the floor
# (the frames only read and written again by cinebar's codec), ffmpeg at its
# default PNG compression and at level 1, writing the channel layout cinebar
# writes. The runs are interleaved (every variant once per round) so that a
# busy machine slows all alike. Prints the best time of each, its ratio to
# ffmpeg's default and to the floor, the total size of the frames written,
# the peak resident memory (/usr/bin/time), and whether the 8-bit pixels are
# ffmpeg's.
#   bench/vs_ffmpeg.sh [BUILD_DIR]   (default build/native-release, built if needed)
#   RUNS (3) rounds; FRAMES_HD (48) and FRAMES_4K (12) frames.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=bench/tool_setup.sh
source bench/tool_setup.sh
cinebar_bench_setup vs-ffmpeg "${1:-}"
runs="${RUNS:-3}"
mapfile -t photos < <(ls /usr/share/backgrounds/mate/nature/*.jpg)

# frames NAME SIZE PIXFMT COUNT: COUNT frames cut from the photographs, each
# photograph scaled to cover the frame and cropped at one of four places.
frames() {
  local name="$1" w="${2%x*}" h="${2#*x}" pixfmt="$3" count="$4" i
  mkdir -p "$work/$name"
  for ((i = 0; i < count; i++)); do
    ffmpeg -loglevel error -i "${photos[i % ${#photos[@]}]}" -vf \
      "scale=$((w * 21 / 20)):$((h * 21 / 20)):force_original_aspect_ratio=increase:flags=lanczos,crop=$w:$h:$((i / ${#photos[@]} % 4 * w / 80)):0,format=$pixfmt" \
      "$work/$name/frame_$(printf %04d $((i + 1))).png"
  done
}

# measure VARIANT COMMAND...: the wall time and peak resident memory of one run,
# kept as the best time and the largest peak over the rounds. The floor's time
# is the one it prints (reading and writing only; not the rendered frames it
# reads outside that, nor its start).
measure() {
  local v="$1"
  shift
  rm -rf "$work/out" && mkdir -p "$work/out"
  /usr/bin/time -f "%e %M" -o "$work/time" "$@" >"$work/said"
  read -r t kb <"$work/time"
  if [ "$v" = floor ]; then read -r t <"$work/said"; fi
  best[$v]="$(awk -v t="$t" -v b="${best[$v]:-$t}" 'BEGIN { print (t < b ? t : b) }')"
  peak[$v]="$(awk -v k="$kb" -v p="${peak[$v]:-0}" 'BEGIN { print (k > p ? k : p) }')"
  bytes[$v]="$(du -sb "$work/out" | cut -f1)"
}

# job NAME SIZE PIXFMT COUNT TOP PICTURE_HEIGHT FFMPEG_OUT_FORMAT [CINEBAR_OPTION]
# One thread each: cinebar, the floor (each input frame only read, and the
# frame cinebar makes of it only written, by cinebar's codec at its level),
# ffmpeg at its default compression and at level 1.
job() {
  local name="$1" size="$2" count="$4" top="$5" ph="$6" fmt="$7" extra="${8:-}"
  local in="$work/$name/frame_%04d.png" height="${size#*x}"
  local vf="crop=iw:$ph:0:$top,pad=iw:$height:0:$top:black,format=$fmt"
  local -A best=() bytes=() peak=()
  local -a names=(cinebar floor ffmpeg-default ffmpeg-level1) inputs=("$work/$name"/frame_*.png)
  local -a ff=(ffmpeg -loglevel error -threads 1 -filter_threads 1 -i "$in" -vf "$vf")
  local round
  rm -rf "$work/ref" && mkdir -p "$work/ref"
  # shellcheck disable=SC2086
  "$cinebar" render "$in" "$work/ref/frame_%04d.png" --preset 2.35 --jobs 1 $extra >/dev/null
  for ((round = 0; round < runs; round++)); do
    # shellcheck disable=SC2086
    measure cinebar "$cinebar" render "$in" "$work/out/f_%04d.png" --preset 2.35 --jobs 1 $extra
    measure floor "$floor" --as "$work/ref" "$work/out" "${inputs[@]}"
    measure ffmpeg-default "${ff[@]}" -threads 1 "$work/out/f_%04d.png"
    measure ffmpeg-level1 "${ff[@]}" -compression_level 1 -threads 1 "$work/out/f_%04d.png"
  done
  local v
  for v in "${names[@]}"; do
    awk -v n="$name${extra:+ $extra}" -v v="$v" -v f="$count" -v t="${best[$v]}" -v d="${best[ffmpeg-default]}" \
      -v fl="${best[floor]}" -v b="${bytes[$v]}" -v db="${bytes[ffmpeg-default]}" -v k="${peak[$v]}" \
      'BEGIN { printf "| %s | %s | %.2f s | %.1f | %.2f | %.2f | %.1f MB | %+.1f %% | %.1f MiB |\n",
               n, v, t, f / t, d / t, t / fl, b / 1e6, (b / db - 1) * 100, k / 1024 }'
  done
}

frames 1080p-8bit 1920x1080 rgb24 "${FRAMES_HD:-48}"
frames 2160p-16bit 3840x2160 rgb48be "${FRAMES_4K:-12}"
echo "cinebar against ffmpeg on $(nproc) hardware threads, best of $runs interleaved rounds ($(ffmpeg -version | head -1 | cut -d' ' -f1-3))"
echo "load average (1, 5, 15 min) at the start: $(cut -d' ' -f1-3 /proc/loadavg)"
echo "x ffmpeg: ffmpeg's default time over this time; x floor: this time over the floor's; size: all frames written, against ffmpeg's default; peak: resident"
echo
echo "| Frames | Variant | Best time | Frames/s | x ffmpeg | x floor | Size | Size vs ffmpeg | Peak |"
echo "|---|---|---|---|---|---|---|---|---|"
job 1080p-8bit 1920x1080 rgb24 "${FRAMES_HD:-48}" 131 817 rgb24
job 2160p-16bit 3840x2160 rgb48be "${FRAMES_4K:-12}" 263 1634 rgba64be
job 2160p-16bit 3840x2160 rgb48be "${FRAMES_4K:-12}" 263 1634 rgb48be --opaque-bars
echo
echo "load average (1, 5, 15 min) at the end: $(cut -d' ' -f1-3 /proc/loadavg)"
# The same pixels at 8 bits (at 16 the module's bars are its 8-bit colour times 128 of 32768).
rm -rf "$work/cb" "$work/ff" && mkdir -p "$work/cb" "$work/ff"
"$cinebar" render "$work/1080p-8bit/frame_%04d.png" "$work/cb/f_%04d.png" --preset 2.35 >/dev/null
ffmpeg -loglevel error -i "$work/1080p-8bit/frame_%04d.png" -vf "crop=iw:817:0:131,pad=iw:1080:0:131:black" \
  "$work/ff/f_%04d.png"
sums() { ffmpeg -loglevel error -i "$1/f_%04d.png" -pix_fmt rgb24 -f framemd5 - | grep -v '^#' | cut -d, -f6; }
echo "1080p-8bit frames identical to ffmpeg's: $([ "$(sums "$work/cb")" = "$(sums "$work/ff")" ] && echo yes || echo NO)"
