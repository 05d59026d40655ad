# shellcheck shell=bash disable=SC2034,SC2317,SC2001  # names for the sourcing scripts; helpers run through check
# Sourced by every packaging test: the settings check, the release's names
# (release.env), a scratch folder, counted checks and small predicates. Each
# script ends with `checks_summary`, which prints the counts and fails when
# any check did.
set -u -o pipefail

need() {  # need <variable...>: each set by tests/packaging/CMakeLists.txt
  local var
  for var in CINEBAR_RELEASE_ENV "$@"; do
    [ -n "${!var:-}" ] || { echo "$(basename "$0"): $var is not set (run it through ctest)" >&2; exit 2; }
  done
  # shellcheck source=/dev/null
  source "$CINEBAR_RELEASE_ENV"
}
work="$(mktemp -d "${TMPDIR:-/tmp}/cinebar-packaging-test.XXXXXX")"
at_exit=()
run_at_exit() { local f; for f in "${at_exit[@]}"; do "$f"; done; rm -rf "$work"; }
trap run_at_exit EXIT
quiet() { "$@" >"$work/log" 2>&1 || { cat "$work/log" >&2; exit 2; }; }

passed=0 failed=0
check() {  # check <description> <command...>: runs the command, counts the result
  local what="$1" status
  shift
  "$@"
  status=$?
  [ "$status" -eq 0 ] && passed=$((passed + 1)) && return
  failed=$((failed + 1))
  echo "FAIL: $what (exit code $status)"
}
not() { ! "$@"; }
equals() { [ "$1" = "$2" ] || { echo "  got '$1', expected '$2'"; return 1; }; }
differs() { [ "$1" != "$2" ] || { echo "  both '$1'"; return 1; }; }
fails() { ! "$@" 2>"$work/stderr"; }
said() { grep -qF -- "$1" "$work/stderr" || { echo "  no '$1' in:"; sed 's/^/    /' "$work/stderr"; return 1; }; }
contains() { grep -qF -- "$2" <<<"$1" || { echo "  no '$2' in:"; sed 's/^/    /' <<<"$1" | head -n 40; return 1; }; }
# eventually <command...>: succeeds within a minute (a program that Windows
# runs on after its parent returned).
eventually() { for _ in $(seq 600); do "$@" && return 0; sleep 0.1; done; return 1; }
# sums_signed <SHA256SUMS> <CA file>: its detached CMS signature verifies.
sums_signed() {
  openssl cms -verify -binary -purpose any -content "$1" -inform DER -in "$1.sig" -CAfile "$2" -out /dev/null 2>/dev/null
}
# sums_hold <folder>: its SHA256SUMS matches and lists every file but itself, its
# signature and the previews.
sums_hold() {
  (cd "$1" && sha256sum --check --strict --quiet SHA256SUMS) &&
    equals "$(sed -E 's/^[0-9a-f]{64}  //' "$1/SHA256SUMS" | sort | xargs)" \
      "$(cd "$1" && find . -type f ! -name 'SHA256SUMS*' ! -path './previews/*' | sed 's|^\./||' | sort | xargs)"
}
checks_summary() { echo "$passed passed, $failed failed" && [ "$failed" -eq 0 ]; }
