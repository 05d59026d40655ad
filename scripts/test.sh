#!/usr/bin/env bash
# Runs every test: the native configuration (Linux, AddressSanitizer and
# UndefinedBehaviorSanitizer) and the Windows configuration (MinGW-w64, test
# programs under Wine). Each is configured, built and tested with its CMake
# workflow preset; a summary of both ends the output. Installs missing build
# packages first when run as root.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/deps.sh
source scripts/deps.sh
cinebar_ensure_packages

presets=(native win64)
mkdir -p build
failed=0
for preset in "${presets[@]}"; do
  echo "=== ${preset}: configure, build, test ==="
  if ! cmake --workflow --preset "$preset" 2>&1 | tee "build/${preset}-workflow.log"; then
    failed=1
  fi
done

# ---- Beyond ctest: a short run of every fuzz target (fuzz/run-short.sh, its
# own clang build in build/fuzz) and the long life cycle under valgrind's
# memcheck (tests/lifecycle/valgrind.sh, a build without sanitizers in
# build/valgrind), and two clean builds of the committed release compared byte
# for byte (scripts/check-reproducible.sh). Each prints a few lines and fails
# on any finding.
extra_checks=("fuzz:fuzz/run-short.sh" "valgrind:tests/lifecycle/valgrind.sh"
              "reproducible:scripts/check-reproducible.sh")
extra_results=()
for check in "${extra_checks[@]}"; do
  name="${check%%:*}"
  echo "=== ${name} ==="
  if "./${check#*:}"; then
    extra_results+=("${name}: passed")
  else
    extra_results+=("${name}: FAILED")
    failed=1
  fi
done

echo
echo "=== Summary ==="
total_passed=0
total_failed=0
for preset in "${presets[@]}"; do
  summary="$(grep -E '^[0-9]+% tests passed, [0-9]+ tests? failed out of [0-9]+' "build/${preset}-workflow.log" | tail -n 1 || true)"
  if [ -z "$summary" ]; then
    echo "${preset}: did not reach its tests (see build/${preset}-workflow.log)"
    failed=1
    continue
  fi
  echo "${preset}: ${summary}"
  n_failed="$(sed -E 's/.* ([0-9]+) tests? failed out of ([0-9]+).*/\1/' <<<"$summary")"
  n_total="$(sed -E 's/.* ([0-9]+) tests? failed out of ([0-9]+).*/\2/' <<<"$summary")"
  total_failed=$((total_failed + n_failed))
  total_passed=$((total_passed + n_total - n_failed))
done
printf '%s\n' "${extra_results[@]}"
echo "all: ${total_passed} passed, ${total_failed} failed"
if [ "$failed" -ne 0 ] || [ "$total_failed" -ne 0 ]; then
  exit 1
fi
