#!/bin/sh
# Runs a Windows program under Wine, headless, in a prefix private to the build
# tree (created on first use). CINEBAR_WINEPREFIX overrides the prefix.
set -e
prefix="${CINEBAR_WINEPREFIX:-${WINEPREFIX:-}}"
if [ -z "$prefix" ]; then
  prefix="$(cd "$(dirname "$1")" && pwd)"
  while [ "$prefix" != "/" ] && [ ! -f "$prefix/CMakeCache.txt" ]; do prefix="$(dirname "$prefix")"; done
  prefix="$prefix/wineprefix"
fi
export WINEPREFIX="$prefix"
export WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml="
unset DISPLAY
wine=/usr/lib/wine/wine64
[ -x "$wine" ] || wine="$(command -v wine64 || command -v wine)"
if [ ! -f "$WINEPREFIX/system.reg" ]; then
  # Tests start in parallel: one of them creates the prefix, the others wait.
  mkdir -p "$(dirname "$WINEPREFIX")"
  exec 9>"$WINEPREFIX.lock"
  flock 9
  if [ ! -f "$WINEPREFIX/system.reg" ]; then
    mkdir -p "$WINEPREFIX"
    "$wine" wineboot --init >/dev/null 2>&1 || true
    wineserver_bin=/usr/lib/wine/wineserver64
    [ -x "$wineserver_bin" ] || wineserver_bin="$(command -v wineserver || true)"
    [ -n "$wineserver_bin" ] && WINEPREFIX="$WINEPREFIX" "$wineserver_bin" -w || true
  fi
  flock -u 9
  exec 9>&-
fi
# The first Wine process in a prefix starts Wine's own services, which inherit
# its output and stay for seconds after it ends; ctest would wait for them as
# for the test's output. A silent first process keeps them off the test's.
"$wine" cmd /c exit </dev/null >/dev/null 2>&1 || true
exec "$wine" "$@"
