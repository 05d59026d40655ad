#!/usr/bin/env bash
# Runs the installer and the uninstaller silently under Wine, in a private
# prefix made for this run and removed afterwards.
#
#   installer_test.sh install        plug-in folder choice, installed module,
#                                    Programs and Features entry, uninstall
#   installer_test.sh refuse-32bit   the x86 installer on 32-bit Windows
#                                    installs nothing and exits non-zero
#
# tests/packaging/CMakeLists.txt sets the CINEBAR_* variables read below.
set -u -o pipefail

for var in CINEBAR_WINE64 CINEBAR_INSTALLER CINEBAR_X86_INSTALLER CINEBAR_SHIPPED_MODULE CINEBAR_SHELL_TEST \
           CINEBAR_OSSLSIGNCODE CINEBAR_PRODUCT CINEBAR_PUBLISHER CINEBAR_VERSION CINEBAR_CATEGORY CINEBAR_MODULE_NAME; do
  if [ -z "${!var:-}" ]; then
    echo "installer_test.sh: $var is not set (run it through ctest)" >&2
    exit 2
  fi
done

readonly UNINSTALLER="Uninstall $CINEBAR_PRODUCT.exe"
readonly EXIT_UNSUPPORTED=2   # the installer's exit code when it refuses to run
readonly SKIP=77

# shellcheck source=tests/packaging/checks.sh
source "$(dirname "${BASH_SOURCE[0]}")/checks.sh"
# shellcheck source=tests/packaging/wine.sh
source "$(dirname "${BASH_SOURCE[0]}")/wine.sh"

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
  check "$name: the uninstaller exits 0" uninstall_silently
  check "$name: the module is gone" test ! -e "$(unix_path "$folder\\$CINEBAR_MODULE_NAME")"
  check "$name: the uninstall entry is gone" not has_key "$UNINSTALL_KEY"
}

# ---- the cases -------------------------------------------------------------------

# name | After Effects versions and the folder each records ("-": none) |
# folder the module is expected in | folder given with /D= (none: empty)
readonly FOLDER_CASES=(
  "no After Effects recorded|-|$FALLBACK_FOLDER\\$CINEBAR_CATEGORY|"
  "After Effects 24.0 records a folder|24.0=C:\\Cinebar Test\\AE 24\\Plug-ins\\|C:\\Cinebar Test\\AE 24\\Plug-ins\\$CINEBAR_CATEGORY|"
  "newest version that records a folder|23.0=C:\\AE23\\Plug-ins;24.0=C:\\AE24\\Plug-ins;25.0=;9.0=C:\\AE9\\Plug-ins|C:\\AE24\\Plug-ins\\$CINEBAR_CATEGORY|"
  "folder chosen with /D=|24.0=C:\\AE24\\Plug-ins|C:\\Chosen Place\\Effects|C:\\Chosen Place\\Effects"
)

test_install() {
  new_prefix install
  local row name records folder chosen other
  local -a options
  for row in "${FOLDER_CASES[@]}"; do
    IFS='|' read -r name records folder chosen <<<"$row"
    echo "case: $name"
    set_after_effects "$records"
    options=()
    [ -z "$chosen" ] || read -ra options <<<"/D=$chosen"  # unquoted, like _?=
    # Another module of the suite in the same folder must survive the uninstall.
    other="$(unix_path "$folder\\TWOtherEffect.aex")"
    mkdir -p "$(dirname "$other")"
    echo "other module" >"$other"

    check "$name: the installer exits 0" install_silently "$CINEBAR_INSTALLER" "${options[@]}"
    check_installed "$name" "$folder"
    check_uninstalled "$name" "$folder"
    check "$name: the suite's other module is kept" test -f "$other"
    rm -rf "$(unix_path "$folder")"
  done

  # Installing again after the host's plug-in folder changed moves the module.
  local name="reinstall after the plug-in folder moved"
  echo "case: $name"
  set_after_effects "24.0=C:\\Old AE\\Plug-ins"
  check "$name: first install exits 0" install_silently "$CINEBAR_INSTALLER"
  set_after_effects "24.0=C:\\New AE\\Plug-ins"
  check "$name: second install exits 0" install_silently "$CINEBAR_INSTALLER"
  check_installed "$name" "C:\\New AE\\Plug-ins\\$CINEBAR_CATEGORY"
  check "$name: the old copy is gone" test ! -e "$(unix_path "C:\\Old AE\\Plug-ins\\$CINEBAR_CATEGORY")"
  check_uninstalled "$name" "C:\\New AE\\Plug-ins\\$CINEBAR_CATEGORY"
  set_after_effects -
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
  refuse-32bit) test_refuse_32bit ;;
  *)
    echo "usage: $0 install|refuse-32bit" >&2
    exit 2
    ;;
esac

checks_summary
