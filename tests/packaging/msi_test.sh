#!/usr/bin/env bash
# Runs the MSI package with Wine's msiexec, silently, in a private prefix:
# the folder it installs to, reinstall, upgrade (in the folder of the
# installed version, or one named), another build of the same version,
# downgrade, uninstall (also after the folder After Effects records moved),
# the module's file version, and how it meets the NSIS installer, whose entry
# in Settings > Apps must agree with its own. Each case starts from a clean
# prefix state.
#
# tests/packaging/CMakeLists.txt sets the CINEBAR_* variables read below.
set -u -o pipefail

for var in CINEBAR_WINE64 CINEBAR_MSI CINEBAR_MSI_OLDER CINEBAR_MSI_NEWER CINEBAR_OLDER_MODULE CINEBAR_NEWER_MODULE \
           CINEBAR_MSI_REBUILT CINEBAR_REBUILT_MODULE CINEBAR_MSIINFO CINEBAR_PYTHON3 CINEBAR_PRODUCT_PAGE \
           CINEBAR_INSTALLER CINEBAR_SHIPPED_MODULE CINEBAR_OSSLSIGNCODE CINEBAR_PRODUCT CINEBAR_CATEGORY \
           CINEBAR_MODULE_NAME CINEBAR_MSI_KEY; do
  if [ -z "${!var:-}" ]; then
    echo "msi_test.sh: $var is not set (run it through ctest)" >&2
    exit 2
  fi
done
# msiexec's 1603: fatal error, a launch condition or a downgrade refused.
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

# The file version in a module's version resource (VS_FIXEDFILEINFO), as a.b.c.d.
pe_file_version() {
  "$CINEBAR_PYTHON3" -c 'import struct, sys
data = open(sys.argv[1], "rb").read()
at = data.find(struct.pack("<I", 0xFEEF04BD))
if at < 0: sys.exit("no version resource in " + sys.argv[1])
ms, ls = struct.unpack_from("<II", data, at + 8)
print("%d.%d.%d.%d" % (ms >> 16, ms & 0xFFFF, ls >> 16, ls & 0xFFFF))' "$1"
}
# One column of the row of <table> whose first column is <key>.
msi_cell() {  # msi_cell <package> <table> <key> <column number>
  "$CINEBAR_MSIINFO" export "$1" "$2" | tr -d '\r' | awk -F'\t' -v key="$3" -v col="$4" 'NR > 3 && $1 == key { print $col }'
}

readonly APPS_KEY="HKLM\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall"
apps_entries() {  # how many entries of Settings > Apps name the product
  "$WINE" reg query "$APPS_KEY" /s /reg:64 2>/dev/null | tr -d '\r' |
    grep -cE "^    DisplayName    REG_SZ    $CINEBAR_PRODUCT\$"
}

new_prefix msi
check "the package is signed" signed "$CINEBAR_MSI"
check "the package gives the module its file version" \
  equals "$(msi_cell "$CINEBAR_MSI" File Module 5)" "$(pe_file_version "$CINEBAR_SHIPPED_MODULE")"

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

echo "case: upgrade keeps the folder chosen with INSTALLFOLDER="
chosen="C:\\Chosen Place\\Effects"
check "older version installs into the chosen folder" exits 0 msi /i "$CINEBAR_MSI_OLDER" "INSTALLFOLDER=$chosen"
check "upgrade without INSTALLFOLDER= installs" exits 0 msi /i "$CINEBAR_MSI"
check "upgrade: the module is replaced in the chosen folder" module_is "$chosen" "$CINEBAR_SHIPPED_MODULE"
check "upgrade: one module" equals "$(modules)" 1
check "upgrade: the chosen folder is recorded" equals "$(reg_value "HKLM\\$CINEBAR_MSI_KEY" InstallFolder)" "$chosen\\"
check "upgrade: uninstalls from there" exits 0 msi /x "$CINEBAR_MSI"
check "upgrade: no module left" equals "$(modules)" 0
clean

echo "case: upgrade with INSTALLFOLDER= moves the module"
elsewhere="C:\\Else\\Effects"
check "older version installs into the chosen folder" exits 0 msi /i "$CINEBAR_MSI_OLDER" "INSTALLFOLDER=$chosen"
check "upgrade into another folder installs" exits 0 msi /i "$CINEBAR_MSI" "INSTALLFOLDER=$elsewhere"
check "moved: the module is in the new folder" module_is "$elsewhere" "$CINEBAR_SHIPPED_MODULE"
check "moved: one module" equals "$(modules)" 1
check "moved: the new folder is recorded" equals "$(reg_value "HKLM\\$CINEBAR_MSI_KEY" InstallFolder)" "$elsewhere\\"
clean

echo "case: the same version from another build"
check "this build installs" exits 0 msi /i "$CINEBAR_MSI"
check "another build of the version installs over it" exits 0 msi /i "$CINEBAR_MSI_REBUILT"
check "another build: its module replaced the first" module_is "$folder" "$CINEBAR_REBUILT_MODULE"
check "another build: one module" equals "$(modules)" 1
check "another build: the first build's entry is gone" \
  not has_key "$APPS_KEY\\$(msi_cell "$CINEBAR_MSI" Property ProductCode 2)"
check "another build: one entry in Settings > Apps" equals "$(apps_entries)" 1
check "this build installs over the other again" exits 0 msi /i "$CINEBAR_MSI"
check "this build again: its module is back" module_is "$folder" "$CINEBAR_SHIPPED_MODULE"
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

echo "case: the two entries in Settings > Apps agree"
# Values of an uninstall entry that both packages write, one per line; the
# folder without its trailing backslash. (Wine's msiexec writes no DisplayIcon:
# the icons are compared in the files.)
entry_values() {  # entry_values <registry key>
  local name value
  for name in DisplayName DisplayVersion Publisher InstallLocation URLInfoAbout HelpLink Comments NoModify NoRepair; do
    value="$(reg_value "$1" "$name")"
    [ "$name" != InstallLocation ] || value="${value%\\}"
    printf '%s=%s\n' "$name" "$value"
  done
}
# icon_in <icon file> <program>: every picture of the icon is in the program.
icon_in() {
  "$CINEBAR_PYTHON3" -c 'import struct, sys
icon, program = (open(p, "rb").read() for p in sys.argv[1:3])
reserved, kind, count = struct.unpack_from("<HHH", icon)
if reserved != 0 or kind != 1 or count == 0: sys.exit("not an icon")
for i in range(count):
    size, at = struct.unpack_from("<II", icon, 6 + 16 * i + 8)
    if icon[at:at + size] not in program: sys.exit("picture %d of the icon is not in the program" % i)' "$1" "$2"
}
product_code="$(msi_cell "$CINEBAR_MSI" Property ProductCode 2)"
check "the package installs" exits 0 msi /i "$CINEBAR_MSI"
msi_entry="$(entry_values "$APPS_KEY\\$product_code")"
check "the package uninstalls" exits 0 msi /x "$CINEBAR_MSI"
check "the NSIS installer installs" install_silently "$CINEBAR_INSTALLER"
nsis_entry="$(entry_values "$UNINSTALL_KEY")"
check "the entries agree" equals "$nsis_entry" "$msi_entry"
check "the entries name the product page" grep -qxF "URLInfoAbout=$CINEBAR_PRODUCT_PAGE" <<<"$nsis_entry"
check "the entries name the folder" grep -qxF "InstallLocation=$folder" <<<"$nsis_entry"
icon="$(msi_cell "$CINEBAR_MSI" Property ARPPRODUCTICON 2)"
check "the package names an icon for its entry" differs "$icon" ""
"$CINEBAR_MSIINFO" extract "$CINEBAR_MSI" "Icon.$icon" >"$work/entry.ico"
uninstaller_icon="$(reg_value "$UNINSTALL_KEY" DisplayIcon)"
check "the NSIS entry's icon is its uninstaller's" equals "$uninstaller_icon" "$folder\\Uninstall $CINEBAR_PRODUCT.exe,0"
check "both entries show the same icon" icon_in "$work/entry.ico" "$(unix_path "${uninstaller_icon%,0}")"
clean

echo "case: MSI package first"
check "the package installs" exits 0 msi /i "$CINEBAR_MSI"
check "the NSIS installer refuses" exits "$EXIT_NSIS_REFUSES" install_silently "$CINEBAR_INSTALLER"
check "MSI package first: nothing registered by the NSIS installer" not has_key "$UNINSTALL_KEY"
check "MSI package first: one module" equals "$(modules)" 1
check "MSI package first: uninstalls" exits 0 msi /x "$CINEBAR_MSI"
check "MSI package first: no module left" equals "$(modules)" 0

checks_summary
