#!/usr/bin/env bash
# Runs the installer and the uninstaller silently under Wine, in a private
# prefix made for this run and removed afterwards.
#
#   installer_test.sh install        plug-in folder choice, installed module,
#                                    Programs and Features entry, uninstall
#   installer_test.sh update         updates keep the folder; a downgrade is
#                                    refused
#   installer_test.sh in-use         a module held by a running host is
#                                    replaced or removed at the next restart
#   installer_test.sh refuse-32bit   the x86 installer on 32-bit Windows
#                                    installs nothing and exits non-zero
#
# tests/packaging/CMakeLists.txt sets the CINEBAR_* variables read below.
set -u -o pipefail

for var in CINEBAR_WINE64 CINEBAR_INSTALLER CINEBAR_X86_INSTALLER CINEBAR_SHIPPED_MODULE CINEBAR_SHELL_TEST \
           CINEBAR_INSTALLER_OLDER CINEBAR_INSTALLER_NEWER CINEBAR_OLDER_MODULE CINEBAR_NEWER_MODULE \
           CINEBAR_HOLD_MODULE CINEBAR_PYTHON3 CINEBAR_OSSLSIGNCODE CINEBAR_PRODUCT CINEBAR_PUBLISHER CINEBAR_VERSION CINEBAR_CATEGORY CINEBAR_MODULE_NAME; do
  if [ -z "${!var:-}" ]; then
    echo "installer_test.sh: $var is not set (run it through ctest)" >&2
    exit 2
  fi
done

readonly UNINSTALLER="Uninstall $CINEBAR_PRODUCT.exe"
readonly EXIT_UNSUPPORTED=2        # the installer's exit codes: refused on 32-bit Windows,
readonly EXIT_NEWER_INSTALLED=4    # refused over a newer version,
readonly EXIT_RESTART_NEEDED=3010  # done once Windows restarts
readonly SKIP=77

# shellcheck source=tests/packaging/checks.sh
source "$(dirname "${BASH_SOURCE[0]}")/checks.sh"
# shellcheck source=tests/packaging/wine.sh
source "$(dirname "${BASH_SOURCE[0]}")/wine.sh"

# The FileDescription in a program's version resource.
file_description() {
  "$CINEBAR_PYTHON3" -c 'import sys
data = open(sys.argv[1], "rb").read()
key = "FileDescription\0".encode("utf-16-le")
at = data.find(key) + len(key)
at += at % 4
print(data[at:data.find(b"\0\0", at) + 1].decode("utf-16-le"))' "$1"
}
kilobytes() { echo $((($(stat -c %s "$1") + 1023) / 1024)); }

# ---- checks of one installation ---------------------------------------------------

check_installed() {  # check_installed <case> <expected Windows folder of the module>
  local name="$1" folder="$2"
  local module="$folder\\$CINEBAR_MODULE_NAME"
  local module_file
  module_file="$(unix_path "$module")"

  check "$name: the module is at $module" test -f "$module_file"
  check "$name: the installed module is the shipped one" cmp -s "$module_file" "$CINEBAR_SHIPPED_MODULE"
  # The shell tests, run against the installed file: it loads, sets up and answers as built.
  check "$name: the installed module loads and answers the shell tests" \
    env CINEBAR_MODULE_UNDER_TEST="$module" "$WINE" "$(winepath_w "$CINEBAR_SHELL_TEST")" \
    --gtest_filter='ModuleShell.*' --gtest_brief=1

  check "$name: the uninstaller is signed" signed "$(unix_path "$folder\\$UNINSTALLER")"
  check "$name: the uninstaller describes itself" \
    equals "$(file_description "$(unix_path "$folder\\$UNINSTALLER")")" "$CINEBAR_PRODUCT uninstaller"

  check "$name: DisplayName" equals "$(reg_value "$UNINSTALL_KEY" DisplayName)" "$CINEBAR_PRODUCT"
  check "$name: Publisher" equals "$(reg_value "$UNINSTALL_KEY" Publisher)" "$CINEBAR_PUBLISHER"
  check "$name: DisplayVersion" equals "$(reg_value "$UNINSTALL_KEY" DisplayVersion)" "$CINEBAR_VERSION"
  check "$name: InstallLocation" equals "$(reg_value "$UNINSTALL_KEY" InstallLocation)" "$folder"
  check "$name: UninstallString" equals "$(reg_value "$UNINSTALL_KEY" UninstallString)" \
    "\"$folder\\$UNINSTALLER\""
  local size expected
  size="$(reg_value "$UNINSTALL_KEY" EstimatedSize)"
  expected=$(($(kilobytes "$module_file") + $(kilobytes "$(unix_path "$folder\\$UNINSTALLER")")))
  check "$name: EstimatedSize is the installed files in KB" equals "$((size))" "$expected"
  check "$name: no branding library shipped" \
    test -z "$(find "$WINEPREFIX/drive_c" -iname 'TWBranding.dll' -print -quit)"
}

check_uninstalled() {  # check_uninstalled <case> <Windows folder of the module>
  local name="$1" folder="$2"
  check "$name: the uninstall exits 0" uninstall_silently
  check "$name: the module is gone" test ! -e "$(unix_path "$folder\\$CINEBAR_MODULE_NAME")"
  check "$name: the uninstaller is gone" test ! -e "$(unix_path "$folder\\$UNINSTALLER")"
  check "$name: the uninstall entry is gone" not has_key "$UNINSTALL_KEY"
}

# ---- the cases -------------------------------------------------------------------

# name | After Effects versions and the folder each records ("-": none) |
# folder the module is expected in | folder given with /D= (none: empty) |
# another module of the suite in that folder (yes/no)
readonly FOLDER_CASES=(
  "no After Effects recorded|-|$FALLBACK_FOLDER\\$CINEBAR_CATEGORY||no"
  "After Effects 24.0 records a folder|24.0=C:\\Cinebar Test\\AE 24\\Plug-ins\\|C:\\Cinebar Test\\AE 24\\Plug-ins\\$CINEBAR_CATEGORY||yes"
  "newest version that records a folder|23.0=C:\\AE23\\Plug-ins;24.0=C:\\AE24\\Plug-ins;25.0=;9.0=C:\\AE9\\Plug-ins|C:\\AE24\\Plug-ins\\$CINEBAR_CATEGORY||yes"
  "folder chosen with /D=|24.0=C:\\AE24\\Plug-ins|C:\\Chosen Place\\Effects|C:\\Chosen Place\\Effects|no"
)

test_install() {
  new_prefix install
  local row name records folder chosen sibling other
  local -a options
  for row in "${FOLDER_CASES[@]}"; do
    IFS='|' read -r name records folder chosen sibling <<<"$row"
    echo "case: $name"
    set_after_effects "$records"
    options=()
    [ -z "$chosen" ] || read -ra options <<<"/D=$chosen"  # unquoted, like _?=
    # Another module of the suite in the same folder must survive the uninstall.
    other="$(unix_path "$folder\\TWOtherEffect.aex")"
    if [ "$sibling" = yes ]; then
      mkdir -p "$(dirname "$other")"
      echo "other module" >"$other"
    fi

    check "$name: the installer exits 0" install_silently "$CINEBAR_INSTALLER" "${options[@]}"
    check_installed "$name" "$folder"
    check_uninstalled "$name" "$folder"
    if [ "$sibling" = yes ]; then
      check "$name: the suite's other module is kept" test -f "$other"
    else
      check "$name: the folder is gone" test ! -e "$(unix_path "$folder")"
    fi
    rm -rf "$(unix_path "$folder")"
  done

  # The uninstaller that Settings > Apps runs returns at once and goes on
  # from a copy of itself; once it is done, nothing is left.
  local name="uninstaller of the uninstall entry" folder="C:\\AE24\\Plug-ins\\$CINEBAR_CATEGORY"
  echo "case: $name"
  check "$name: installs" install_silently "$CINEBAR_INSTALLER"
  local command
  command="$(reg_value "$UNINSTALL_KEY" QuietUninstallString)"
  check "$name: the quiet uninstall command is the uninstaller with /S" \
    equals "$command" "\"$folder\\$UNINSTALLER\" /S"
  check "$name: exits 0" "$WINE" "$folder\\$UNINSTALLER" /S
  check "$name: the folder goes" eventually test ! -e "$(unix_path "$folder")"
  check "$name: the uninstall entry goes" eventually not has_key "$UNINSTALL_KEY"
  set_after_effects -
}

# eventually <command...>: the command succeeds within a minute (a program
# that Windows runs on after its parent returned).
eventually() {
  local _
  for _ in $(seq 600); do
    "$@" && return 0
    sleep 0.1
  done
  return 1
}

installed_version() { reg_value "$UNINSTALL_KEY" DisplayVersion; }
module_is() { cmp -s "$(unix_path "$1\\$CINEBAR_MODULE_NAME")" "$2"; }

# An update goes where the installed version is, unless /D= names a folder;
# an older version does not replace a newer one.
test_update() {
  new_prefix update
  local chosen="C:\\Chosen Place\\Effects" elsewhere="C:\\Else\\Effects"
  local host_folder="C:\\AE24\\Plug-ins\\$CINEBAR_CATEGORY" older_version
  local -a to_chosen to_elsewhere
  read -ra to_chosen <<<"/D=$chosen"
  read -ra to_elsewhere <<<"/D=$elsewhere"
  set_after_effects "24.0=C:\\AE24\\Plug-ins"

  echo "case: update of an install into a folder chosen with /D="
  check "older version installs into the chosen folder" install_silently "$CINEBAR_INSTALLER_OLDER" "${to_chosen[@]}"
  older_version="$(installed_version)"
  check "update without /D= exits 0" install_silently "$CINEBAR_INSTALLER"
  check "update: the module is replaced in the chosen folder" module_is "$chosen" "$CINEBAR_SHIPPED_MODULE"
  check "update: nothing in After Effects' folder" test ! -e "$(unix_path "$host_folder")"
  check "update: the entry names this version" equals "$(installed_version)" "$CINEBAR_VERSION"
  check "update: the entry names the chosen folder" \
    equals "$(reg_value "$UNINSTALL_KEY" InstallLocation)" "$chosen"
  check "the older version was another" differs "$older_version" "$CINEBAR_VERSION"

  echo "case: update with /D= moves the module"
  check "reinstall into another folder exits 0" install_silently "$CINEBAR_INSTALLER" "${to_elsewhere[@]}"
  check "moved: the module is in the new folder" module_is "$elsewhere" "$CINEBAR_SHIPPED_MODULE"
  check "moved: the old folder is gone" test ! -e "$(unix_path "$chosen")"
  check "moved: the entry names the new folder" \
    equals "$(reg_value "$UNINSTALL_KEY" InstallLocation)" "$elsewhere"

  echo "case: update after After Effects' plug-in folder moved"
  set_after_effects "24.0=C:\\New AE\\Plug-ins"
  check "reinstall exits 0" install_silently "$CINEBAR_INSTALLER"
  check "the module stays where it is" module_is "$elsewhere" "$CINEBAR_SHIPPED_MODULE"
  check "nothing in the new plug-in folder" test ! -e "$(unix_path "C:\\New AE")"
  check_uninstalled "plug-in folder moved" "$elsewhere"

  echo "case: downgrade"
  set_after_effects "24.0=C:\\AE24\\Plug-ins"
  check "newer version installs" install_silently "$CINEBAR_INSTALLER_NEWER"
  check "this version refuses to replace it" exits "$EXIT_NEWER_INSTALLED" install_silently "$CINEBAR_INSTALLER"
  check "downgrade: the newer module stays" module_is "$host_folder" "$CINEBAR_NEWER_MODULE"
  check "downgrade: the entry names the newer version" differs "$(installed_version)" "$CINEBAR_VERSION"
  check "downgrade: the same version again installs" install_silently "$CINEBAR_INSTALLER_NEWER"
  check_uninstalled "downgrade" "$host_folder"
  set_after_effects -
}

# hold <Windows module>: starts a program that keeps the module loaded, as a
# running After Effects does, until release; leaves its process in $holder.
hold() {
  local said="$work/holder.out"
  : >"$said"
  "$WINE" "$(winepath_w "$CINEBAR_HOLD_MODULE")" "$1" "C:\\release-module" >"$said" 2>&1 &
  holder=$!
  local _
  for _ in $(seq 300); do
    grep -q loaded "$said" && return 0
    kill -0 "$holder" 2>/dev/null || break
    sleep 0.1
  done
  cat "$said"
  return 1
}
release() {
  touch "$(unix_path "C:\\release-module")"
  wait "$holder"
  rm -f "$(unix_path "C:\\release-module")"
}
pending_renames() {
  "$WINE" reg query "HKLM\\System\\CurrentControlSet\\Control\\Session Manager" \
    /v PendingFileRenameOperations 2>/dev/null | tr -d '\r'
}

# A module in use cannot be replaced or removed: both wait for a restart,
# and say so with 3010.
test_in_use() {
  new_prefix in-use
  local folder="$FALLBACK_FOLDER\\$CINEBAR_CATEGORY" holder
  local module="$folder\\$CINEBAR_MODULE_NAME"
  set_after_effects -

  echo "case: update while the host holds the module"
  check "installs" install_silently "$CINEBAR_INSTALLER"
  check "a host loads the installed module" hold "$module"
  check "update exits 3010" exits "$EXIT_RESTART_NEEDED" install_silently "$CINEBAR_INSTALLER_NEWER"
  check "update: the replacement waits for the restart" grep -qF "$module" <<<"$(pending_renames)"
  release
  restart_windows
  check "update: after the restart the module is the newer one" module_is "$folder" "$CINEBAR_NEWER_MODULE"
  check "update: ... alone" equals "$(find "$(unix_path "$folder")" -type f -iname '*.aex*' | wc -l)" 1

  echo "case: uninstall while the host holds the module"
  check "the newer version uninstalls" uninstall_silently
  check "this version installs again" install_silently "$CINEBAR_INSTALLER"
  check "a host loads the installed module again" hold "$module"
  check "uninstall exits 3010" exits "$EXIT_RESTART_NEEDED" uninstall_silently
  check "uninstall: the entry is gone" not has_key "$UNINSTALL_KEY"
  release
  restart_windows
  check "uninstall: after the restart the folder is gone" test ! -e "$(unix_path "$folder")"
}

# The 64-bit installer cannot start on 32-bit Windows at all; the x86 build of
# the same script reaches the RunningX64 check in .onInit, which must refuse
# with a non-zero exit code and leave nothing behind. That needs 32-bit Wine
# (a win32 prefix), which a 64-bit-only Wine does not have: then the case is
# skipped.
test_refuse_32bit() {
  local wine32
  wine32="$(dirname "$CINEBAR_WINE64")/wine"
  if [ ! -x "$wine32" ] || ! ls /usr/lib/*/wine/i386-unix >/dev/null 2>&1; then
    echo "SKIP: no 32-bit Wine here to play 32-bit Windows; the refusal in .onInit is not exercised"
    exit "$SKIP"
  fi
  WINE="$wine32"
  new_prefix win32 win32
  local name="x86 installer on 32-bit Windows"
  "$WINE" "$(winepath_w "$CINEBAR_X86_INSTALLER")" /S
  check "$name: exits $EXIT_UNSUPPORTED" equals "$?" "$EXIT_UNSUPPORTED"
  check "$name: installs no module" \
    test -z "$(find "$WINEPREFIX/drive_c" -iname "$CINEBAR_MODULE_NAME" -print -quit)"
  check "$name: registers nothing" not "$WINE" reg query "$UNINSTALL_KEY"
}

case "${1:-}" in
  install) test_install ;;
  update) test_update ;;
  in-use) test_in_use ;;
  refuse-32bit) test_refuse_32bit ;;
  *)
    echo "usage: $0 install|update|in-use|refuse-32bit" >&2
    exit 2
    ;;
esac

checks_summary
