# shellcheck shell=bash disable=SC2034  # sets variables for the script that sources it
# Sourced by the tool's benchmarks (memory.sh, vs_ffmpeg.sh): their packages,
# the release build of cinebar and the codec's floor (built when missing), and
# a scratch folder removed on exit.
#   cinebar_bench_setup NAME [BUILD_DIR]   sets cinebar, floor and work
# shellcheck source=scripts/deps.sh
source scripts/deps.sh

cinebar_bench_setup() {
  local build="${2:-build/native-release}"
  cinebar_ensure_packages "${CINEBAR_BENCH_PACKAGES[@]}"
  if [ ! -x "$build/tools/cinebar/cinebar" ] || [ ! -x "$build/bench/cinebar_png_floor" ]; then
    cmake --preset native-release >/dev/null
    cmake --build "$build" -j2 --target cinebar cinebar_png_floor
  fi
  cinebar="$build/tools/cinebar/cinebar"
  floor="$build/bench/cinebar_png_floor"
  work="$(mktemp -d "/tmp/cinebar-$1-XXXXXX")"
  trap 'rm -rf "$work"' EXIT
}
