#!/usr/bin/env bash
# `cinebar render` against the ffmpeg crop+pad a user would otherwise write,
# on frames made here from the photographs of Debian's mate-backgrounds:
# 2.35:1 bars on 48 frames of 1920x1080 8-bit RGB and on 12 frames of
# 3840x2160 16-bit RGB. cinebar at its defaults; ffmpeg at its default PNG
# compression and at level 1; each single-threaded and with default threads;
# ffmpeg writing the channel layout cinebar writes. The runs are interleaved
# (every variant once per round) so that a busy machine slows all alike.
# Prints the best time of each, its ratio to ffmpeg's default and the total
# size of the frames written, and whether the 8-bit pixels are ffmpeg's.
#   bench/vs_ffmpeg.sh [BUILD_DIR]   (default build/native-release, built if needed)
#   RUNS (3) rounds; FRAMES_HD (48) and FRAMES_4K (12) frames.
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

# job NAME SIZE PIXFMT COUNT TOP PICTURE_HEIGHT FFMPEG_OUT_FORMAT [CINEBAR_OPTION]
job() {
  local name="$1" size="$2" count="$4" top="$5" ph="$6" fmt="$7" extra="${8:-}"
  local in="$work/$name/frame_%04d.png" height="${size#*x}"
  local vf="crop=iw:$ph:0:$top,pad=iw:$height:0:$top:black,format=$fmt"
  local -A best=() bytes=()
  local -a names=(cinebar-1 cinebar-N ffmpeg-default-1 ffmpeg-default-N ffmpeg-level1-1 ffmpeg-level1-N)
  local round v start t
  for ((round = 0; round < runs; round++)); do
    for v in "${names[@]}"; do
      rm -rf "$work/out" && mkdir -p "$work/out"
      local threads=() cmd=()
      case "$v" in
        cinebar-1) cmd=("$cinebar" render "$in" "$work/out/f_%04d.png" --preset 2.35 --jobs 1 $extra) ;;
        cinebar-N) cmd=("$cinebar" render "$in" "$work/out/f_%04d.png" --preset 2.35 $extra) ;;
        ffmpeg-*)
          [ "${v##*-}" = 1 ] && threads=(-threads 1 -filter_threads 1)
          local level=()
          [[ $v == ffmpeg-level1-* ]] && level=(-compression_level 1)
          cmd=(ffmpeg -loglevel error "${threads[@]}" -i "$in" -vf "$vf" "${level[@]}" "${threads[@]:0:2}"
            "$work/out/f_%04d.png") ;;
      esac
      start="$(date +%s.%N)"
      "${cmd[@]}" >/dev/null
      t="$(awk -v a="$start" -v b="$(date +%s.%N)" 'BEGIN { print b - a }')"
      best[$v]="$(awk -v t="$t" -v b="${best[$v]:-$t}" 'BEGIN { print (t < b ? t : b) }')"
      bytes[$v]="$(du -sb "$work/out" | cut -f1)"
    done
  done
  for v in "${names[@]}"; do
    awk -v n="$name${extra:+ $extra}" -v v="$v" -v f="$count" -v t="${best[$v]}" -v d="${best[ffmpeg-default-${v##*-}]}" \
      -v b="${bytes[$v]}" -v db="${bytes[ffmpeg-default-1]}" \
      'BEGIN { printf "%-26s %-17s %7.2f s %6.1f fps  x%5.2f  %7.1f MB  %+5.1f %%\n", n, v, t, f / t, d / t, b / 1e6, (b / db - 1) * 100 }'
  done
}

frames 1080p-8bit 1920x1080 rgb24 "${FRAMES_HD:-48}"
frames 2160p-16bit 3840x2160 rgb48be "${FRAMES_4K:-12}"
echo "cinebar against ffmpeg on $(nproc) hardware threads, best of $runs interleaved rounds ($(ffmpeg -version | head -1 | cut -d' ' -f1-3))"
echo "x: ffmpeg's default compression at the same threads, over this time; size: total, against ffmpeg's default"
job 1080p-8bit 1920x1080 rgb24 "${FRAMES_HD:-48}" 131 817 rgb24
job 2160p-16bit 3840x2160 rgb48be "${FRAMES_4K:-12}" 263 1634 rgba64be
job 2160p-16bit 3840x2160 rgb48be "${FRAMES_4K:-12}" 263 1634 rgb48be --opaque-bars
# The same pixels at 8 bits (at 16 the module's bars are its 8-bit colour times 128 of 32768).
rm -rf "$work/cb" "$work/ff" && mkdir -p "$work/cb" "$work/ff"
"$cinebar" render "$work/1080p-8bit/frame_%04d.png" "$work/cb/f_%04d.png" --preset 2.35 >/dev/null
ffmpeg -loglevel error -i "$work/1080p-8bit/frame_%04d.png" -vf "crop=iw:817:0:131,pad=iw:1080:0:131:black" \
  "$work/ff/f_%04d.png"
sums() { ffmpeg -loglevel error -i "$1/f_%04d.png" -pix_fmt rgb24 -f framemd5 - | grep -v '^#' | cut -d, -f6; }
echo "1080p-8bit frames identical to ffmpeg's: $([ "$(sums "$work/cb")" = "$(sums "$work/ff")" ] && echo yes || echo NO)"
