#!/usr/bin/env bash
# Runs every test: the native configuration (Linux, AddressSanitizer and
# UndefinedBehaviorSanitizer) and the Windows configuration (MinGW-w64, test
# programs under Wine). Each is configured, built and tested with its CMake
# workflow preset, whose exit status says whether it passed; the counts of
# the summary that ends the output come from ctest's JUnit report
# (build/<preset>/ctest-junit.xml). Installs missing build packages first
# when run as root.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/deps.sh
source scripts/deps.sh
cinebar_ensure_packages

presets=(native win64)
mkdir -p build
failed=0
workflow_results=()
for preset in "${presets[@]}"; do
  echo "=== ${preset}: configure, build, test ==="
  rm -f "build/${preset}/ctest-junit.xml"
  if cmake --workflow --preset "$preset" 2>&1 | tee "build/${preset}-workflow.log"; then
    workflow_results+=("passed")
  else
    workflow_results+=("FAILED")
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
# One attribute of the <testsuite> element of a JUnit report.
junit_count() { tr '\n\t' '  ' <"$1" | sed -n "s/.*<testsuite [^>]*\b$2=\"\([0-9]*\)\".*/\1/p"; }
for i in "${!presets[@]}"; do
  preset="${presets[$i]}"
  junit="build/${preset}/ctest-junit.xml"
  if [ ! -f "$junit" ]; then
    echo "${preset}: ${workflow_results[$i]}, did not reach its tests (see build/${preset}-workflow.log)"
    continue
  fi
  tests="$(junit_count "$junit" tests)"
  n_failed="$(junit_count "$junit" failures)"
  skipped="$(junit_count "$junit" skipped)"
  if [ -z "$tests" ] || [ -z "$n_failed" ] || [ -z "$skipped" ]; then
    echo "${preset}: ${workflow_results[$i]}, no counts in $junit"
    failed=1
    continue
  fi
  n_passed=$((tests - n_failed - skipped))
  echo "${preset}: ${workflow_results[$i]}: ${n_passed} passed, ${n_failed} failed, ${skipped} skipped"
  total_failed=$((total_failed + n_failed))
  total_passed=$((total_passed + n_passed))
done
printf '%s\n' "${extra_results[@]}"
echo "all: ${total_passed} passed, ${total_failed} failed"
if [ "$failed" -ne 0 ] || [ "$total_failed" -ne 0 ]; then
  exit 1
fi
