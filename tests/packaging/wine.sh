# shellcheck shell=bash disable=SC2034  # constants for the scripts that source this
# Sourced by the packaging tests that run Windows programs: a private Wine
# prefix per test (removed at exit), paths, the registry, and the After
# Effects installations a test pretends to have; the NSIS installer run
# silently. Reads CINEBAR_WINE64, CINEBAR_PRODUCT and CINEBAR_INSTALLER.

export WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml="
unset DISPLAY WAYLAND_DISPLAY
WINE="$CINEBAR_WINE64"
WINESERVER="$(dirname "$CINEBAR_WINE64")/wineserver64"
[ -x "$WINESERVER" ] || WINESERVER="$(dirname "$CINEBAR_WINE64")/wineserver"

readonly UNINSTALL_KEY="HKLM\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\$CINEBAR_PRODUCT"
readonly AE_KEY="HKLM\\SOFTWARE\\Adobe\\After Effects"
readonly FALLBACK_FOLDER="C:\\Program Files\\Common Files\\Adobe\\Common\\Plug-ins\\7.0\\MediaCore"

# ---- the prefix ---------------------------------------------------------------

work="$(mktemp -d "${TMPDIR:-/tmp}/cinebar-wine-test.XXXXXX")"
cleanup() {
  if [ -n "${WINEPREFIX:-}" ] && [ -d "$WINEPREFIX" ]; then
    stop_windows
    # Debian's Wine keeps the server's socket in a temporary folder named in
    # the prefix; it outlives the server.
    local server_dir
    server_dir="$(cat "$WINEPREFIX/wineserver" 2>/dev/null)"
    case "$server_dir" in
      wine-?*) rm -rf "${TMPDIR:-/tmp}/$server_dir" ;;
    esac
  fi
  rm -rf "$work"
}
trap cleanup EXIT

# The prefix's Wine server stays up from the boot until the test ends. A
# server that ends after a few idle seconds (Wine's default) can be ending just
# as the next Windows program of the test connects, which then fails; on a
# busy machine those seconds pass between two steps of a test.
start_windows() {  # starts the server for good, then boots the prefix
  "$WINESERVER" -p </dev/null >/dev/null 2>&1
  "$WINE" wineboot "$@" >/dev/null 2>&1
}
stop_windows() {  # ends every Windows program of the prefix, and the server
  "$WINESERVER" -k >/dev/null 2>&1 || true
  "$WINESERVER" -w
}

new_prefix() {  # new_prefix <name> [WINEARCH]
  export WINEPREFIX="$work/$1"
  if [ -n "${2:-}" ]; then export WINEARCH="$2"; else unset WINEARCH; fi
  "$WINE" wineboot --init >/dev/null 2>&1
  "$WINESERVER" -w
  [ -f "$WINEPREFIX/system.reg" ] || { echo "cannot create the Wine prefix $WINEPREFIX" >&2; exit 2; }
  start_windows
}

# Restarts Windows: the files that waited for it are renamed or removed.
restart_windows() {
  stop_windows
  start_windows --restart
}

# C:\a\b -> <prefix>/drive_c/a/b
unix_path() {
  local p="${1#[Cc]:}"
  printf '%s/drive_c%s\n' "$WINEPREFIX" "${p//\\//}"
}

# ---- the registry ---------------------------------------------------------------

reg() { "$WINE" reg "$@" /reg:64 >/dev/null 2>&1; }
has_key() { reg query "$1"; }
# The data of one value, or nothing.
reg_value() {
  "$WINE" reg query "$1" /v "$2" /reg:64 2>/dev/null | tr -d '\r' |
    sed -n "s/^    $2    REG_[A-Z_]*    //p"
}

# set_after_effects "<version>=<folder>;..."  ("<version>=" records no folder)
set_after_effects() {
  reg delete "$AE_KEY" /f
  [ "$1" = "-" ] && return 0
  local entry version folder
  IFS=';' read -ra entries <<<"$1"
  for entry in "${entries[@]}"; do
    version="${entry%%=*}"
    folder="${entry#*=}"
    if [ -n "$folder" ]; then
      reg add "$AE_KEY\\$version" /v CommonPluginInstallPath /d "$folder" /f
    else
      reg add "$AE_KEY\\$version" /v InstallPath /d "C:\\Adobe\\$version" /f
    fi
  done
}

# ---- the NSIS installer and its uninstaller ----------------------------------------

install_silently() {  # install_silently <installer> [options...]
  local installer="$1"
  shift
  "$WINE" "$(winepath_w "$installer")" /S "$@"
}

# The documented silent uninstall: the setup program removes what is
# installed and returns when it is done.
uninstall_silently() {
  "$WINE" "$(winepath_w "$CINEBAR_INSTALLER")" /S /UNINSTALL
}

# Wine hands a Windows exit code to a Unix parent as its low byte.
exit_code() { echo $(($1 & 255)); }
exits() { local want="$1"; shift; "$@"; equals "$?" "$(exit_code "$want")"; }

winepath_w() { printf 'Z:%s\n' "${1//\//\\}"; }

signed() {  # signed <file>: a valid Authenticode signature
  local ca=()
  [ -z "${CINEBAR_SIGN_CAFILE:-}" ] || ca=(-CAfile "$CINEBAR_SIGN_CAFILE")
  "$CINEBAR_OSSLSIGNCODE" verify "${ca[@]}" -in "$1" >/dev/null 2>&1
}
