#!/usr/bin/env bash
# Runs the MSI package with Wine's msiexec, silently, in a private prefix:
# the folder it installs to, reinstall, upgrade, downgrade, uninstall (also
# after the folder After Effects records moved), and how it meets the NSIS
# installer. Each case starts from a clean prefix state.
#
# tests/packaging/CMakeLists.txt sets the CINEBAR_* variables read below.
set -u -o pipefail

for var in CINEBAR_WINE64 CINEBAR_MSI CINEBAR_MSI_OLDER CINEBAR_MSI_NEWER CINEBAR_OLDER_MODULE CINEBAR_NEWER_MODULE \
           CINEBAR_INSTALLER CINEBAR_SHIPPED_MODULE CINEBAR_OSSLSIGNCODE CINEBAR_PRODUCT CINEBAR_CATEGORY \
           CINEBAR_MODULE_NAME CINEBAR_MSI_KEY; do
  if [ -z "${!var:-}" ]; then
    echo "msi_test.sh: $var is not set (run it through ctest)" >&2
    exit 2
  fi
done
# msiexec's 1603 (fatal error: a launch condition or a downgrade refused), as
# Wine hands it to a Unix parent: the low byte.
readonly EXIT_REFUSED=1603
readonly EXIT_NSIS_REFUSES=3   # the NSIS installer while the MSI package is installed

# shellcheck source=tests/packaging/checks.sh
source "$(dirname "${BASH_SOURCE[0]}")/checks.sh"
# shellcheck source=tests/packaging/wine.sh
source "$(dirname "${BASH_SOURCE[0]}")/wine.sh"

msi() {  # msi /i|/x <package> [PROPERTY=value...]: exit code of a silent msiexec run
  local action="$1" package="$2"
  shift 2
  "$WINE" msiexec "$action" "$(winepath_w "$package")" /qn "$@"
}
modules() { find "$WINEPREFIX/drive_c" -iname "$CINEBAR_MODULE_NAME" | wc -l; }
module_is() { cmp -s "$(unix_path "$1\\$CINEBAR_MODULE_NAME")" "$2"; }
clean() {  # nothing of ours left, for the next case
  msi /x "$CINEBAR_MSI" >/dev/null 2>&1
  find "$WINEPREFIX/drive_c" -iname "$CINEBAR_MODULE_NAME" -delete
  reg delete "$UNINSTALL_KEY" /f
}

new_prefix msi
check "the package is signed" signed "$CINEBAR_MSI"

# ---- where it installs, reinstall, uninstall ---------------------------------------

# name | After Effects versions and the folder each records ("-": none) |
# msiexec property | folder the module is expected in
readonly FOLDER_CASES=(
  "no After Effects recorded|-||$FALLBACK_FOLDER\\$CINEBAR_CATEGORY"
  "newest listed version that records a folder|23.0=C:\\AE23\\Plug-ins;24.0=C:\\AE 24\\Plug-ins\\;25.0=;9.0=C:\\AE9|\
|C:\\AE 24\\Plug-ins\\$CINEBAR_CATEGORY"
  "INSTALLFOLDER= on the command line|24.0=C:\\AE24\\Plug-ins|INSTALLFOLDER=C:\\Chosen Place\\Effects|\
C:\\Chosen Place\\Effects"
)
for row in "${FOLDER_CASES[@]}"; do
  IFS='|' read -r name records property folder <<<"$row"
  echo "case: $name"
  set_after_effects "$records"
  properties=()
  [ -z "$property" ] || properties=("$property")
  sibling="$(unix_path "$folder\\TWOtherEffect.aex")"
  mkdir -p "$(dirname "$sibling")"
  echo "other module" >"$sibling"

  check "$name: installs" exits 0 msi /i "$CINEBAR_MSI" "${properties[@]}"
  check "$name: the shipped module is in $folder" module_is "$folder" "$CINEBAR_SHIPPED_MODULE"
  check "$name: the folder is recorded" equals "$(reg_value "HKLM\\$CINEBAR_MSI_KEY" InstallFolder)" "$folder\\"
  check "$name: reinstalling exits 0" exits 0 msi /i "$CINEBAR_MSI" "${properties[@]}"
  check "$name: ... and leaves one module" equals "$(modules)" 1
  check "$name: uninstalls" exits 0 msi /x "$CINEBAR_MSI"
  check "$name: the module is gone" equals "$(modules)" 0
  check "$name: the record is gone" not has_key "HKLM\\$CINEBAR_MSI_KEY"
  check "$name: the suite's other module is kept" test -f "$sibling"
  rm -rf "$(unix_path "$folder")"
done

# ---- versions and the other installer ------------------------------------------------

echo "case: uninstall after the plug-in folder moved"
set_after_effects "24.0=C:\\Old AE\\Plug-ins"
check "moved folder: installs" exits 0 msi /i "$CINEBAR_MSI"
set_after_effects "24.0=C:\\New AE\\Plug-ins"
check "moved folder: uninstalls" exits 0 msi /x "$CINEBAR_MSI"
check "moved folder: the module is gone from where it went" equals "$(modules)" 0
clean

folder="C:\\AE24\\Plug-ins\\$CINEBAR_CATEGORY"
set_after_effects "24.0=C:\\AE24\\Plug-ins"

echo "case: upgrade from an older version"
check "older version installs" exits 0 msi /i "$CINEBAR_MSI_OLDER"
check "upgrade installs" exits 0 msi /i "$CINEBAR_MSI"
check "upgrade: the module is replaced" module_is "$folder" "$CINEBAR_SHIPPED_MODULE"
check "upgrade: one module" equals "$(modules)" 1
check "upgrade: the older version is no longer installed" not msi /x "$CINEBAR_MSI_OLDER"
clean

echo "case: downgrade"
check "newer version installs" exits 0 msi /i "$CINEBAR_MSI_NEWER"
check "downgrade is refused" exits "$EXIT_REFUSED" msi /i "$CINEBAR_MSI"
check "downgrade: the newer module stays" module_is "$folder" "$CINEBAR_NEWER_MODULE"
check "newer version uninstalls" exits 0 msi /x "$CINEBAR_MSI_NEWER"
clean

echo "case: NSIS installer first"
check "NSIS installer installs" install_silently "$CINEBAR_INSTALLER"
check "the package refuses" exits "$EXIT_REFUSED" msi /i "$CINEBAR_MSI"
check "NSIS installer first: its module stays, alone" equals "$(modules)" 1
check "NSIS installer first: its uninstaller leaves no module" uninstall_silently
check "NSIS installer first: ... none" equals "$(modules)" 0
clean

echo "case: MSI package first"
check "the package installs" exits 0 msi /i "$CINEBAR_MSI"
check "the NSIS installer refuses" exits "$EXIT_NSIS_REFUSES" install_silently "$CINEBAR_INSTALLER"
check "MSI package first: nothing registered by the NSIS installer" not has_key "$UNINSTALL_KEY"
check "MSI package first: one module" equals "$(modules)" 1
check "MSI package first: uninstalls" exits 0 msi /x "$CINEBAR_MSI"
check "MSI package first: no module left" equals "$(modules)" 0

checks_summary
