#!/usr/bin/env bash
# Main job: builds the Windows module dist/KSCinebar.aex (MinGW-w64 cross
# build, preset win64). Installs missing build packages first when run as root.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/deps.sh
source scripts/deps.sh
cinebar_ensure_packages

cmake --preset win64
cmake --build --preset win64 --target KSCinebar

module=dist/KSCinebar.aex
if [ ! -f "$module" ]; then
  echo "error: the build did not produce $module" >&2
  exit 1
fi
echo "Built $module ($(stat -c %s "$module") bytes)"
