#!/usr/bin/env bash
# The long life cycle under valgrind's memcheck. Sanitizers and valgrind do
# not mix, so this is a native build of its own without them (optimised, with
# debug information, tests on), of which only the module and this test are
# built. Fewer commands than the ctest run: CINEBAR_LIFECYCLE_STEPS, 3000 by
# default. Any memcheck error or leak fails the run.
#   tests/lifecycle/valgrind.sh [build dir]   (default build/valgrind)
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"
build="${1:-$root/build/valgrind}"
mkdir -p "$build"
log="$build/valgrind-build.log"

if ! { cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCINEBAR_SANITIZE=OFF \
         -DCINEBAR_BUILD_TESTS=ON -DCINEBAR_BUILD_TOOLS=OFF &&
       cmake --build "$build" --target KSCinebar lifecycle_test -j2; } >"$log" 2>&1; then
  tail -n 30 "$log"
  echo "valgrind: the build failed (see $log)" >&2
  exit 1
fi

test_program="$build/tests/lifecycle/lifecycle_test"
export CINEBAR_LIFECYCLE_STEPS="${CINEBAR_LIFECYCLE_STEPS:-3000}"
export CINEBAR_COMMON_APPDATA="$build/no-branding"
echo "valgrind memcheck: lifecycle_test, ${CINEBAR_LIFECYCLE_STEPS} commands"
start=$(date +%s)
if ! valgrind --quiet --error-exitcode=1 --leak-check=full --errors-for-leak-kinds=definite,indirect,possible \
       "$test_program" --gtest_brief=1 >"$build/valgrind.log" 2>&1; then
  tail -n 60 "$build/valgrind.log"
  echo "valgrind: memcheck found errors or the test failed (see $build/valgrind.log)" >&2
  exit 1
fi
grep -E '^\[  PASSED  \]|^\[==========\]' "$build/valgrind.log" | tail -n 1
echo "valgrind: no errors, no leaks ($(( $(date +%s) - start )) s)"
