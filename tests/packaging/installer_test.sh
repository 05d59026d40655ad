#!/usr/bin/env bash
# The NSIS installer, its uninstaller and the MSI package, run silently under
# Wine in a private prefix, one case group per run: install (folders, the
# installed module and its entry in Settings > Apps), update (folders kept,
# downgrades refused), msi (the same, another build of one version, the two
# installers side by side), in-use (a module held by a running host waits for
# a restart), refuse-32bit (the x86 installer on 32-bit Windows).
here="$(dirname "${BASH_SOURCE[0]}")"
# shellcheck source=tests/packaging/checks.sh
source "$here/checks.sh"
need CINEBAR_WINE64 CINEBAR_INSTALLER CINEBAR_X86_INSTALLER CINEBAR_SHIPPED_MODULE CINEBAR_SHELL_TEST \
  CINEBAR_INSTALLER_OLDER CINEBAR_INSTALLER_NEWER CINEBAR_OLDER_MODULE CINEBAR_NEWER_MODULE CINEBAR_HOLD_MODULE \
  CINEBAR_MSI CINEBAR_MSI_OLDER CINEBAR_MSI_NEWER CINEBAR_MSI_REBUILT CINEBAR_REBUILT_MODULE CINEBAR_MSIINFO \
  CINEBAR_SIGN_CAFILE
# shellcheck source=tests/packaging/wine.sh
source "$here/wine.sh"
# The NSIS installer's exit codes, and msiexec's 1603 (fatal error: a downgrade or a launch condition refused).
readonly EXIT_UNSUPPORTED=2 EXIT_MSI_INSTALLED=3 EXIT_NEWER_INSTALLED=4 EXIT_RESTART_NEEDED=3010 EXIT_REFUSED=1603

declare -A PACKAGE=([nsis this]="$CINEBAR_INSTALLER" [nsis older]="$CINEBAR_INSTALLER_OLDER"
  [nsis newer]="$CINEBAR_INSTALLER_NEWER" [msi this]="$CINEBAR_MSI" [msi older]="$CINEBAR_MSI_OLDER"
  [msi newer]="$CINEBAR_MSI_NEWER" [msi rebuilt]="$CINEBAR_MSI_REBUILT")
declare -A MODULE=([this]="$CINEBAR_SHIPPED_MODULE" [older]="$CINEBAR_OLDER_MODULE" [newer]="$CINEBAR_NEWER_MODULE"
  [rebuilt]="$CINEBAR_REBUILT_MODULE")
readonly AE24="24.0=C:\\AE24\\Plug-ins" AE24_FOLDER="C:\\AE24\\Plug-ins\\$CATEGORY"
readonly CHOSEN="C:\\Chosen Place\\Effects" ELSEWHERE="C:\\Else\\Effects"

# group | case | After Effects versions and the folder each records ("-": none) | steps, separated by ';':
# "<nsis|msi>,<package>,<exit code>[,<folder named>]", "<nsis|msi>-x,<package>,<exit code>" (the documented
# uninstall; "!0": any failure), "entry-x" (the uninstall command of the entry in Settings > Apps),
# "ae,<records>", "hold" and "release" (a host holds the module, then lets it go and Windows restarts) |
# folder the module ends in | whose module it is ("none": uninstalled) | another module of the suite there?
readonly CASES=(
  "install|no After Effects recorded|-|nsis,this,0|$FALLBACK_FOLDER|this|no"
  "install|After Effects 24.0 records a folder|24.0=C:\\Cinebar Test\\AE 24\\Plug-ins\\|nsis,this,0|\
C:\\Cinebar Test\\AE 24\\Plug-ins\\$CATEGORY|this|yes"
  "install|newest version that records a folder|23.0=C:\\AE23\\Plug-ins;$AE24;25.0=;9.0=C:\\AE9\\Plug-ins|\
nsis,this,0|$AE24_FOLDER|this|yes"
  "install|folder chosen with /D=|$AE24|nsis,this,0,$CHOSEN|$CHOSEN|this|no"
  "update|update of an install into a folder chosen with /D=|$AE24|nsis,older,0,$CHOSEN;nsis,this,0|$CHOSEN|this|no"
  "update|update with /D= moves the module|$AE24|nsis,older,0,$CHOSEN;nsis,this,0,$ELSEWHERE|$ELSEWHERE|this|no"
  "update|update after After Effects' plug-in folder moved|$AE24|\
nsis,this,0,$ELSEWHERE;ae,24.0=C:\\New AE\\Plug-ins;nsis,this,0|$ELSEWHERE|this|no"
  "update|downgrade|$AE24|nsis,newer,0;nsis,this,$EXIT_NEWER_INSTALLED;nsis,newer,0|$AE24_FOLDER|newer|no"
  "msi|no After Effects recorded|-|msi,this,0;msi,this,0|$FALLBACK_FOLDER|this|yes"
  "msi|newest listed version that records a folder|23.0=C:\\AE23\\Plug-ins;24.0=C:\\AE 24\\Plug-ins\\;25.0=;9.0=C:\\AE9|\
msi,this,0;msi,this,0|C:\\AE 24\\Plug-ins\\$CATEGORY|this|yes"
  "msi|INSTALLFOLDER= on the command line|$AE24|msi,this,0,$CHOSEN;msi,this,0,$CHOSEN|$CHOSEN|this|yes"
  "msi|uninstall after the plug-in folder moved|24.0=C:\\Old AE\\Plug-ins|msi,this,0;ae,24.0=C:\\New AE\\Plug-ins|\
C:\\Old AE\\Plug-ins\\$CATEGORY|this|no"
  "msi|upgrade from an older version|$AE24|msi,older,0;msi,this,0;msi-x,older,!0|$AE24_FOLDER|this|no"
  "msi|upgrade keeps the folder chosen with INSTALLFOLDER=|$AE24|msi,older,0,$CHOSEN;msi,this,0|$CHOSEN|this|no"
  "msi|upgrade with INSTALLFOLDER= moves the module|$AE24|msi,older,0,$CHOSEN;msi,this,0,$ELSEWHERE|$ELSEWHERE|this|no"
  "msi|the same version from another build|$AE24|msi,this,0;msi,rebuilt,0|$AE24_FOLDER|rebuilt|no"
  "msi|... and this build over it again|$AE24|msi,this,0;msi,rebuilt,0;msi,this,0|$AE24_FOLDER|this|no"
  "msi|downgrade|$AE24|msi,newer,0;msi,this,$EXIT_REFUSED|$AE24_FOLDER|newer|yes"
  "msi|NSIS installer first|$AE24|nsis,this,0;msi,this,$EXIT_REFUSED|$AE24_FOLDER|this|no"
  "msi|MSI package first|$AE24|msi,this,0;nsis,this,$EXIT_MSI_INSTALLED|$AE24_FOLDER|this|no"
  "install|uninstaller of the uninstall entry|$AE24|nsis,this,0;entry-x|$AE24_FOLDER|none|no"
  "in-use|update while the host holds the module|-|nsis,this,0;hold;nsis,newer,$EXIT_RESTART_NEEDED;release|\
$FALLBACK_FOLDER|newer|no"
  "in-use|uninstall while the host holds the module|-|nsis,this,0;hold;nsis-x,,$EXIT_RESTART_NEEDED;release|\
$FALLBACK_FOLDER|none|no"
)

step() {  # step <case> <step>
  local tool package code folder options=()
  IFS=',' read -r tool package code folder <<<"$2"
  case "$tool" in
    ae) set_after_effects "$package" && return ;;
    nsis) [ -z "$folder" ] || read -ra options <<<"/D=$folder"  # unquoted, as Windows passes it
          set -- "$1" install_silently "${PACKAGE[nsis $package]}" "${options[@]}" ;;
    msi) set -- "$1" msi /i "${PACKAGE[msi $package]}" ${folder:+"INSTALLFOLDER=$folder"} ;;
    msi-x) set -- "$1" msi /x "${PACKAGE[msi $package]}" ;;
    nsis-x) set -- "$1" uninstall_silently ;;
    hold) check "$1: a host loads the installed module" hold "$case_folder\\$MODULE_NAME" && return ;;
    release) check "$1: the change waits for the restart" grep -qF "$case_folder\\$MODULE_NAME" <<<"$(pending_renames)"
             release && return ;;
    entry-x) local command="\"$case_folder\\$UNINSTALLER\" /S"
             check "$1: the quiet uninstall command is the uninstaller with /S" \
               equals "$(reg_value "$UNINSTALL_KEY" QuietUninstallString)" "$command"
             set -- "$1" "$WINE" "$case_folder\\$UNINSTALLER" /S ;;  # returns at once, goes on from a copy
  esac
  if [ "$code" = '!0' ]; then check "$1: $tool $package fails" not "${@:2}"
  else check "$1: $tool $package $folder exits $code" exits "$code" "${@:2}"; fi
}

# Takes away what a failed case left, so that the next starts clean.
reset() {
  [ "$(apps_entries)" = 0 ] || for p in this older newer rebuilt; do msi /x "${PACKAGE[msi $p]}"; done
  find "$WINEPREFIX/drive_c" -iname "$MODULE_NAME*" -delete; reg delete "$UNINSTALL_KEY" /f; reg delete "$SAVED_KEY" /f
}
run_case() {  # run_case <row of CASES>
  local name records steps folder whose sibling list s other
  reset
  IFS='|' read -r _ name records steps folder whose sibling <<<"$1"
  echo "case: $name"
  case_folder="$folder"
  set_after_effects "$records"
  other="$(unix_path "$folder\\TWOtherEffect.aex")"
  [ "$sibling" = no ] || { mkdir -p "$(dirname "$other")" && echo "other module" >"$other"; }
  IFS=';' read -ra list <<<"$steps"
  for s in "${list[@]}"; do step "$name" "$s"; done
  if [ "$whose" = none ]; then
    check "$name: the folder goes" eventually test ! -e "$(unix_path "$folder")"
    check "$name: the uninstall entry goes" eventually not has_key "$UNINSTALL_KEY"
    return
  fi
  check "$name: $folder holds the module of the $whose package" module_is "$folder" "${MODULE[$whose]}"
  check "$name: ... alone" equals "$(modules)" 1
  check "$name: one entry in Settings > Apps" equals "$(apps_entries)" 1
  if has_key "$UNINSTALL_KEY"; then
    check_nsis_entry "$name" "$folder" "$whose"
    check "$name: the uninstall exits 0" uninstall_silently
    check "$name: the uninstaller is gone" equals "$(find "$WINEPREFIX/drive_c" -iname "$UNINSTALLER" | wc -l)" 0
  else
    check "$name: the folder is recorded" equals "$(reg_value "$SAVED_KEY" InstallFolder)" "$folder\\"
    check "$name: uninstalls" exits 0 msi /x "${PACKAGE[msi $whose]}"
    check "$name: the record is gone" not has_key "$SAVED_KEY"
  fi
  check "$name: the module is gone" equals "$(modules)" 0
  check "$name: the uninstall entry is gone" equals "$(apps_entries)" 0
  if [ "$sibling" = yes ]; then check "$name: the suite's other module is kept" test -f "$other"
  else check "$name: the folder is gone" test ! -e "$(unix_path "$folder")"; fi
  rm -rf "$(unix_path "$folder")"
}
apps_entries() {  # how many entries of Settings > Apps name the product
  "$WINE" reg query "$APPS_KEY" /s /reg:64 2>/dev/null | tr -d '\r' | grep -cE "^    DisplayName    REG_SZ    $PRODUCT\$"
}
version_info() { exiftool -s3 "-$1" "$2"; }  # version_info <field> <program>
kilobytes() { echo $((($(stat -c %s "$1") + 1023) / 1024)); }

check_nsis_entry() {  # check_nsis_entry <case> <folder> <whose module>
  local name="$1" folder="$2" uninstaller="$2\\$UNINSTALLER"
  local module="$folder\\$MODULE_NAME"
  if [ "$3" != this ]; then
    check "$name: DisplayVersion is not this one's" differs "$(reg_value "$UNINSTALL_KEY" DisplayVersion)" "$VERSION"
    return
  fi
  # The shell tests, run against the installed file: it loads, sets up and answers as built.
  check "$name: the installed module loads and answers the shell tests" \
    env CINEBAR_MODULE_UNDER_TEST="$module" "$WINE" "$(winepath_w "$CINEBAR_SHELL_TEST")" \
    --gtest_filter='ModuleShell.*' --gtest_brief=1
  check "$name: the uninstaller is signed" signed "$(unix_path "$uninstaller")"
  check "$name: the uninstaller describes itself" \
    equals "$(version_info FileDescription "$(unix_path "$uninstaller")")" "$PRODUCT uninstaller"
  for pair in "DisplayName=$PRODUCT" "Publisher=$PUBLISHER" "DisplayVersion=$VERSION" "InstallLocation=$folder" \
              "UninstallString=\"$uninstaller\""; do
    check "$name: ${pair%%=*}" equals "$(reg_value "$UNINSTALL_KEY" "${pair%%=*}")" "${pair#*=}"
  done
  check "$name: EstimatedSize is the installed files in KB" equals "$(($(reg_value "$UNINSTALL_KEY" EstimatedSize)))" \
    $(($(kilobytes "$(unix_path "$module")") + $(kilobytes "$(unix_path "$uninstaller")")))
  check "$name: no branding library shipped" \
    test -z "$(find "$WINEPREFIX/drive_c" -iname 'TWBranding.dll' -print -quit)"
}

run_group() {
  for row in "${CASES[@]}"; do [ "${row%%|*}" != "$1" ] || run_case "$row"; done
}

# The package's own facts, and the two entries in Settings > Apps agree.
test_msi_entry() {
  check "the package is signed" signed "$CINEBAR_MSI"
  check "the package gives the module its file version" \
    equals "$(msi_cell "$CINEBAR_MSI" File Module 5)" "$(version_info FileVersionNumber "$CINEBAR_SHIPPED_MODULE")"
  echo "case: the two entries in Settings > Apps agree"
  set_after_effects "$AE24"
  check "the package installs" exits 0 msi /i "$CINEBAR_MSI"
  local msi_entry nsis_entry icon uninstaller_icon
  msi_entry="$(entry_values "$APPS_KEY\\$(msi_cell "$CINEBAR_MSI" Property ProductCode 2)")"
  check "the package uninstalls" exits 0 msi /x "$CINEBAR_MSI"
  check "the NSIS installer installs" install_silently "$CINEBAR_INSTALLER"
  nsis_entry="$(entry_values "$UNINSTALL_KEY")"
  check "the entries agree" equals "$nsis_entry" "$msi_entry"
  check "the entries name the product page" grep -qxF "URLInfoAbout=$PRODUCT_PAGE" <<<"$nsis_entry"
  check "the entries name the folder" grep -qxF "InstallLocation=$AE24_FOLDER" <<<"$nsis_entry"
  # Wine's msiexec writes no DisplayIcon: the icons are compared in the files.
  icon="$(msi_cell "$CINEBAR_MSI" Property ARPPRODUCTICON 2)"
  check "the package names an icon for its entry" differs "$icon" ""
  "$CINEBAR_MSIINFO" extract "$CINEBAR_MSI" "Icon.$icon" >"$work/entry.ico"
  uninstaller_icon="$(reg_value "$UNINSTALL_KEY" DisplayIcon)"
  check "the NSIS entry's icon is its uninstaller's" equals "$uninstaller_icon" "$AE24_FOLDER\\$UNINSTALLER,0"
  check "both entries show the same icon" icon_in "$work/entry.ico" "$(unix_path "${uninstaller_icon%,0}")"
  check "the NSIS installer uninstalls" uninstall_silently
}
entry_values() {  # the values both packages write, one per line; the folder without its last backslash
  local name
  for name in DisplayName DisplayVersion Publisher InstallLocation URLInfoAbout HelpLink Comments NoModify NoRepair; do
    printf '%s=%s\n' "$name" "$(reg_value "$1" "$name" | sed 's/\\$//')"
  done
}
msi_cell() {  # msi_cell <package> <table> <key> <column>: one cell of the row whose first column is <key>
  "$CINEBAR_MSIINFO" export "$1" "$2" | tr -d '\r' | awk -F'\t' -v key="$3" -v col="$4" 'NR > 3 && $1 == key { print $col }'
}
icon_in() {  # icon_in <icon file> <program>: every picture of the icon is in the program
  "$PYTHON3" -c 'import struct, sys
icon, program = (open(p, "rb").read() for p in sys.argv[1:3])
reserved, kind, count = struct.unpack_from("<HHH", icon)
if reserved != 0 or kind != 1 or count == 0: sys.exit("not an icon")
for i in range(count):
    size, at = struct.unpack_from("<II", icon, 6 + 16 * i + 8)
    if icon[at:at + size] not in program: sys.exit("picture %d of the icon is not in the program" % i)' "$1" "$2"
}

# hold <Windows module>: a program keeps the module loaded, as a running After
# Effects does, until release; then Windows restarts.
hold() {
  "$WINE" "$(winepath_w "$CINEBAR_HOLD_MODULE")" "$1" "C:\\release-module" >"$work/holder.out" 2>&1 &
  holder=$!
  eventually grep -q loaded "$work/holder.out" || { cat "$work/holder.out"; return 1; }
}
release() { touch "$(unix_path "C:\\release-module")" && wait "$holder" && rm "$(unix_path "C:\\release-module")"; restart_windows; }
pending_renames() { reg_value "HKLM\\System\\CurrentControlSet\\Control\\Session Manager" PendingFileRenameOperations; }

# The x86 build of the installer reaches the RunningX64 check in .onInit,
# which must refuse and leave nothing behind. That needs 32-bit Wine, which a
# 64-bit-only Wine does not have: then the case is skipped.
test_refuse_32bit() {
  WINE="$(dirname "$CINEBAR_WINE64")/wine"
  if [ ! -x "$WINE" ] || ! ls /usr/lib/*/wine/i386-unix >/dev/null 2>&1; then echo "SKIP: no 32-bit Wine" && exit 77; fi
  new_prefix win32 win32
  check "x86 installer on 32-bit Windows: exits $EXIT_UNSUPPORTED" exits "$EXIT_UNSUPPORTED" \
    install_silently "$CINEBAR_X86_INSTALLER"
  check "... installs no module" equals "$(modules)" 0
  check "... registers nothing" not "$WINE" reg query "$UNINSTALL_KEY"
}

case "${1:-}" in
  install) new_prefix install && run_group install ;;
  update) new_prefix update && run_group update ;;
  msi) new_prefix msi && test_msi_entry && run_group msi ;;
  in-use) new_prefix in-use && run_group in-use ;;
  refuse-32bit) test_refuse_32bit ;;
  *) echo "usage: $0 install|update|msi|in-use|refuse-32bit" >&2 && exit 2 ;;
esac
checks_summary
