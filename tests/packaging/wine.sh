# shellcheck shell=bash disable=SC2034,SC2154  # $work is checks.sh's; constants for the scripts that source this
# Sourced after checks.sh by the tests that run Windows programs: a private Wine prefix per test,
# paths, the registry, the After Effects versions a test pretends to have, both installers silently.

export WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
unset DISPLAY WAYLAND_DISPLAY && WINE="$CINEBAR_WINE64"
WINESERVER="$(dirname "$CINEBAR_WINE64")/wineserver64"
[ -x "$WINESERVER" ] || WINESERVER="$(dirname "$CINEBAR_WINE64")/wineserver"

readonly APPS_KEY="HKLM\\${UNINSTALL_KEY%\\*}" UNINSTALL_KEY="HKLM\\$UNINSTALL_KEY"
readonly AE_KEY="HKLM\\SOFTWARE\\Adobe\\After Effects" SAVED_KEY="HKLM\\$MSI_KEY"
readonly FALLBACK_FOLDER="C:\\Program Files\\Common Files\\Adobe\\Common\\Plug-ins\\7.0\\MediaCore\\$CATEGORY"
readonly UNINSTALLER="Uninstall $PRODUCT.exe"

# Debian's Wine keeps the server's socket in a temporary folder named in the
# prefix; it outlives the server.
stop_prefix() {
  [ -n "${WINEPREFIX:-}" ] && [ -d "$WINEPREFIX" ] || return 0
  stop_windows
  local server_dir
  server_dir="$(cat "$WINEPREFIX/wineserver" 2>/dev/null)"
  case "$server_dir" in wine-?*) rm -rf "${TMPDIR:-/tmp}/$server_dir" ;; esac
}
at_exit+=(stop_prefix)

# The prefix's Wine server stays up from the boot until the test ends. A
# server that ends after a few idle seconds (Wine's default) can be ending just
# as the next Windows program of the test connects, which then fails.
start_windows() { "$WINESERVER" -p </dev/null >/dev/null 2>&1 && "$WINE" wineboot "$@" >/dev/null 2>&1; }
stop_windows() { "$WINESERVER" -k >/dev/null 2>&1; "$WINESERVER" -w; }
restart_windows() { stop_windows; start_windows --restart; }  # files waiting for it are renamed or removed

new_prefix() {  # new_prefix <name> [WINEARCH]
  export WINEPREFIX="$work/$1"
  if [ -n "${2:-}" ]; then export WINEARCH="$2"; else unset WINEARCH; fi
  "$WINE" wineboot --init >/dev/null 2>&1
  "$WINESERVER" -w
  [ -f "$WINEPREFIX/system.reg" ] || { echo "cannot create the Wine prefix $WINEPREFIX" >&2; exit 2; }
  start_windows
}

unix_path() {  # C:\a\b -> <prefix>/drive_c/a/b
  local p="${1#[Cc]:}"
  printf '%s/drive_c%s\n' "$WINEPREFIX" "${p//\\//}"
}
winepath_w() { printf 'Z:%s\n' "${1//\//\\}"; }

reg() { "$WINE" reg "$@" /reg:64 >/dev/null 2>&1; }
has_key() { reg query "$1"; }
reg_value() {  # the data of one value, or nothing
  "$WINE" reg query "$1" /v "$2" /reg:64 2>/dev/null | tr -d '\r' | sed -n "s/^    $2    REG_[A-Z_]*    //p"
}

# set_after_effects "<version>=<folder>;..."  ("<version>=" records no folder, "-" none at all)
set_after_effects() {
  reg delete "$AE_KEY" /f
  local entry
  IFS=';' read -ra entries <<<"${1#-}"
  for entry in "${entries[@]}"; do
    [ -z "${entry#*=}" ] || reg add "$AE_KEY\\${entry%%=*}" /v CommonPluginInstallPath /d "${entry#*=}" /f
    reg add "$AE_KEY\\${entry%%=*}" /v InstallPath /d "C:\\Adobe\\${entry%%=*}" /f
  done
}

# Both installers, silently. A /D= or INSTALLFOLDER= folder is passed as the
# documented lines give it; the uninstall is the documented one, which
# returns when everything is removed.
install_silently() { local i="$1"; shift; "$WINE" "$(winepath_w "$i")" /S "$@"; }
uninstall_silently() { "$WINE" "$(winepath_w "$CINEBAR_INSTALLER")" /S /UNINSTALL; }
msi() { local action="$1" package="$2"; shift 2; "$WINE" msiexec "$action" "$(winepath_w "$package")" /qn "$@"; }

# Wine hands a Windows exit code to a Unix parent as its low byte.
exits() { local want="$1"; shift; "$@"; equals "$?" "$((want & 255))"; }
modules() { find "$WINEPREFIX/drive_c" -iname "$MODULE_NAME*" | wc -l; }  # a file waiting for a restart too
module_is() { cmp -s "$(unix_path "$1\\$MODULE_NAME")" "$2"; }
signed() {  # signed <file>: a valid Authenticode signature
  "$OSSLSIGNCODE" verify -CAfile "$CINEBAR_SIGN_CAFILE" -in "$1" >/dev/null 2>&1
}
