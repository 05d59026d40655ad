#!/usr/bin/env bash
# Peak resident memory (GNU time) of `cinebar render`, one thread, on the
# frames that show what it holds at once:
#   16000x16000 RGBA at 8 bits, nearly flat (about 1 MB of file, 976 MiB of
#   pixels): rendered, and read and written again by the codec alone (the floor);
#   16000x16000 grey at 8 bits: --dry-run (headers, and the module's picture at that
#   size), beside the same of a 64x64 grey frame (the tool's own base);
#   a 3840x2160 16-bit photograph of mate-backgrounds: rendered at the
#   defaults and with --opaque-bars, against ffmpeg's crop+pad writing rgb48be.
# Prints a Markdown table: what, seconds, peak MiB.
#   bench/memory.sh [BUILD_DIR [BASELINE_BUILD_DIR]]   (default build/native-release, built if
#   needed; with a baseline, its cinebar's dry runs too, interleaved in the same run)
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=bench/tool_setup.sh
source bench/tool_setup.sh
cinebar_bench_setup memory "${1:-}"

# flat PATH SIDE CHANNELS: a PNG whose first row is a ramp and every other row
# the same (Up filter, so zeros to deflate).
flat() {
  python3 - "$@" <<'PY'
import struct, sys, zlib
path, side, channels = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
chunk = lambda t, d: struct.pack(">I", len(d)) + t + d + struct.pack(">I", zlib.crc32(t + d))
row = bytes((x // 64 + c * 40) & 0xFF for x in range(side) for c in range(channels))
z = zlib.compressobj(9)
idat = [z.compress(b"\0" + row)]
up = b"\2" + bytes(len(row))
idat += [z.compress(up) for _ in range(side - 1)]
idat.append(z.flush())
kind = {1: 0, 2: 4, 3: 2, 4: 6}[channels]
with open(path, "wb") as f:
    f.write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", side, side, 8, kind, 0, 0, 0)))
    f.write(chunk(b"IDAT", b"".join(idat)) + chunk(b"IEND", b""))
PY
}

# peak WHAT COMMAND...: one run's seconds and peak resident MiB.
peak() {
  local what="$1"
  shift
  rm -rf "$work/out" && mkdir -p "$work/out"
  /usr/bin/time -f "%e %M" -o "$work/time" "$@" >/dev/null
  read -r t kb <"$work/time"
  awk -v w="$what" -v t="$t" -v k="$kb" 'BEGIN { printf "| %s | %.2f s | %.1f MiB |\n", w, t, k / 1024 }'
}

flat "$work/rgba.png" 16000 4
flat "$work/grey16000.png" 16000 1
flat "$work/grey64.png" 64 1
photo="$(ls /usr/share/backgrounds/mate/nature/*.jpg | head -n 1)"
ffmpeg -loglevel error -i "$photo" -vf "scale=3840:2160:force_original_aspect_ratio=increase,crop=3840:2160,format=rgb48be" \
  "$work/photo.png"
echo "peak resident memory, one thread ($(du -k "$work/rgba.png" | cut -f1) KB 16000x16000 RGBA file)"
echo "load average (1, 5, 15 min): $(cut -d' ' -f1-3 /proc/loadavg)"
echo
echo "| Run | Wall time | Peak resident |"
echo "|---|---|---|"
peak "16000x16000 RGBA: render" "$cinebar" render "$work/rgba.png" "$work/out/o.png" --preset 2.35 --jobs 1
peak "16000x16000 RGBA: render --opaque-bars" "$cinebar" render "$work/rgba.png" "$work/out/o.png" --preset 2.35 \
  --jobs 1 --opaque-bars
peak "16000x16000 RGBA: floor (read and written again)" "$floor" "$work/out" "$work/rgba.png"
baseline="${2:+$2/tools/cinebar/cinebar}"
for side in 64 16000; do
  peak "${side}x$side grey: render --dry-run" "$cinebar" render "$work/grey$side.png" "$work/out/o.png" \
    --preset 2.35 --dry-run
  if [ -n "$baseline" ]; then
    peak "${side}x$side grey: render --dry-run (baseline)" "$baseline" render "$work/grey$side.png" \
      "$work/out/o.png" --preset 2.35 --dry-run
  fi
done
peak "2160p 16-bit photograph: render" "$cinebar" render "$work/photo.png" "$work/out/o.png" --preset 2.35 --jobs 1
peak "2160p 16-bit photograph: render --opaque-bars" "$cinebar" render "$work/photo.png" "$work/out/o.png" \
  --preset 2.35 --jobs 1 --opaque-bars
peak "2160p 16-bit photograph: floor" "$floor" "$work/out" "$work/photo.png"
peak "2160p 16-bit photograph: ffmpeg crop+pad (rgb48be)" ffmpeg -loglevel error -threads 1 -filter_threads 1 \
  -i "$work/photo.png" -vf "crop=iw:1634:0:263,pad=iw:2160:0:263:black,format=rgb48be" -threads 1 "$work/out/o.png"
