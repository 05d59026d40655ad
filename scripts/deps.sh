# Sourced by the build and test scripts and by CI: the Debian 12 packages that
# building and testing Cinebar needs, and their installation when missing.

CINEBAR_PACKAGES=(
  cmake make gcc g++ git
  g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64  # the Windows module
  wine64                                                # Windows tests
  googletest libgtest-dev libbenchmark-dev              # tests and benchmarks
  libdeflate-dev pkg-config                             # the tool's PNG image data (inflate, deflate)
  libcli11-dev libtbb-dev                               # the tool's command line and frame pipeline
  libpng-dev                                            # tool tests: an independent PNG writer and reader
  ffmpeg mate-backgrounds                               # tool tests: a video through pipes, a folder of photographs
  clang libclang-rt-14-dev clang-format valgrind        # sanitizers, format, checks
  nsis zip unzip osslsigncode openssl                   # packaging and signing
  wixl msitools python3 python3-olefile                 # the MSI package (msitools: msibuild, msiinfo)
  softhsm2 libengine-pkcs11-openssl                     # tests of signing through PKCS#11
  libimage-exiftool-perl                                # tests: version information of Windows programs
  gdb-mingw-w64                                         # reading crash addresses (docs/crash-reports.md)
)
# The tool's side-by-side benchmark (bench/vs_ffmpeg.sh) measures against
# ffmpeg, on frames it makes from the photographs of MATE's wallpapers; GNU
# time gives the peak memory of each run (bench/vs_ffmpeg.sh, bench/memory.sh).
CINEBAR_BENCH_PACKAGES=(ffmpeg mate-backgrounds time)

# Prints the packages named (default: CINEBAR_PACKAGES) that are not installed.
cinebar_missing_packages() {
  local p
  [ "$#" -gt 0 ] || set -- "${CINEBAR_PACKAGES[@]}"
  for p in "$@"; do
    dpkg-query -W -f='${Status}\n' "$p" 2>/dev/null | grep -q '^install ok installed$' || echo "$p"
  done
}

# Installs whatever is missing of the packages named (default:
# CINEBAR_PACKAGES): with apt-get as root, otherwise it says what to install
# and fails. Never asks anything.
cinebar_ensure_packages() {
  if ! command -v dpkg-query >/dev/null 2>&1; then
    echo "note: no dpkg here; assuming the build tools are installed" >&2
    return 0
  fi
  local missing
  mapfile -t missing < <(cinebar_missing_packages "$@")
  if [ "${#missing[@]}" -eq 0 ]; then
    return 0
  fi
  if [ "$(id -u)" -eq 0 ]; then
    echo "Installing: ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update
    apt-get install -y "${missing[@]}"
  else
    echo "error: missing packages: ${missing[*]}" >&2
    echo "Run this script as root, or first: sudo apt-get install -y ${missing[*]}" >&2
    return 1
  fi
}
