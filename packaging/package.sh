#!/usr/bin/env bash
# Builds the installers of the shipped module, signed. Called by the build
# (packaging/CMakeLists.txt) and by the packaging tests, which sign with other
# keys or build other versions, so both run the same commands.
#
#   package.sh <release.env> installer <output> [<NSIS stub>|- [<version> <module>]]
#   package.sh <release.env> msi <output> [<version> <module>]
#
# <release.env> is written by packaging/CMakeLists.txt: the names, version,
# files and tools. The key and time-stamp servers are sign.sh's, from the
# environment. Version and module default to the release's; tests build
# older and newer packages with other ones.
#
# The MSI's product code is derived from the version and the module's bytes:
# a rebuilt module (signed again, say) makes another product of the same
# version, which replaces the installed one as an upgrade does.
# Each writes <output>.part and renames it: only a signed package is ever
# named <output>.
set -euo pipefail
if [ $# -lt 3 ]; then
  echo "usage: $0 <release.env> installer|msi <output> [...]" >&2
  exit 2
fi
# shellcheck source=/dev/null
source "$1"
kind="$2" output="$(realpath -m "$3")"
shift 3
part="$output.part"
# Attributes of a row of the MSI's Upgrade table.
readonly UPGRADE_MIGRATE_FEATURES=1 UPGRADE_MAX_INCLUSIVE=0x200
mkdir -p "$(dirname "$output")"
rm -f "$part"
trap 'rm -f "$part"' EXIT

case "$kind" in
  installer)
    stub=()
    [ "${1:--}" = - ] || stub=("-DSTUB=$1")
    if [ $# -ge 3 ]; then VERSION="$2" VERSION_QUAD="$2.0" MODULE_FILE="$3"; fi
    "$MAKENSIS" -V2 -WX -NOCONFIG -INPUTCHARSET UTF8 "${stub[@]}" \
      "-DPRODUCT=$PRODUCT" "-DPUBLISHER=$PUBLISHER" "-DCATEGORY=$CATEGORY" "-DVERSION=$VERSION" \
      "-DVERSION_QUAD=$VERSION_QUAD" "-DMODULE_FILE=$MODULE_FILE" "-DMODULE_NAME=$MODULE_NAME" \
      "-DLICENSE_FILE=$LICENSE_FILE" "-DCOPYRIGHT=$COPYRIGHT" "-DPRODUCT_PAGE=$PRODUCT_PAGE" \
      "-DINSTALL_ICON=$INSTALL_ICON" "-DUNINSTALL_ICON=$UNINSTALL_ICON" "-DPYTHON3=$PYTHON3" \
      "-DAE_VERSIONS=$AE_VERSIONS" "-DMSI_KEY=$MSI_KEY" "-DUNINSTALL_KEY=$UNINSTALL_KEY" \
      "-DSIGN=$SIGN" "-DSIGN_TOOL=$OSSLSIGNCODE" "-DSIGN_EPOCH_FILE=$EPOCH_FILE" \
      "-DOUTFILE=$part" "$NSIS_SCRIPT"
    ;;
  msi)
    version="${1:-$VERSION}" module="${2:-$MODULE_FILE}"
    quad="$VERSION_QUAD"
    [ "$version" = "$VERSION" ] || quad="$version.0"
    product_code="$("$PYTHON3" -c 'import hashlib, sys, uuid
digest = hashlib.sha256(open(sys.argv[3], "rb").read()).hexdigest()
print("{%s}" % str(uuid.uuid5(uuid.UUID(sys.argv[1]), "product %s %s" % (sys.argv[2], digest))).upper())' \
      "$UPGRADE_CODE" "$version" "$module")"
    work="$(mktemp -d "${TMPDIR:-/tmp}/cinebar-msi.XXXXXX")"
    trap 'rm -rf "$part" "$work"' EXIT
    # The cabinet keeps each file's time: the build date, not the build's clock.
    cp "$module" "$work/$MODULE_NAME"
    touch -d "@$(cat "$EPOCH_FILE")" "$work/$MODULE_NAME"
    cp "$UNINSTALL_ICON" "$work/uninstall.ico"
    # wixl finds sources by relative names only.
    (cd "$work" && "$WIXL" -a x64 -D "Version=$version" -D "ProductCode=$product_code" -D "ModuleFile=$MODULE_NAME" \
      -D "IconFile=uninstall.ico" -o "$part" "$WXS")
    # What wixl cannot say: the module's file version (else Windows Installer
    # takes it for unversioned), and that an installed product of the same
    # version (another build) is upgraded too.
    "$MSIBUILD" "$part" \
      -q "UPDATE \`File\` SET \`Version\` = '$quad', \`Language\` = '0' WHERE \`File\` = 'Module'" \
      -q "DELETE FROM \`Upgrade\` WHERE \`ActionProperty\` = 'WIX_UPGRADE_DETECTED'" \
      -q "INSERT INTO \`Upgrade\` (\`UpgradeCode\`, \`VersionMax\`, \`Attributes\`, \`ActionProperty\`)
          VALUES ('{$UPGRADE_CODE}', '$version', $((UPGRADE_MIGRATE_FEATURES | UPGRADE_MAX_INCLUSIVE)), 'WIX_UPGRADE_DETECTED')"
    "$PYTHON3" "$MSI_SUMMARY" "$part" "$(cat "$EPOCH_FILE")"
    "$SIGN" "$OSSLSIGNCODE" "$EPOCH_FILE" "$PRODUCT $version" "$PRODUCT_PAGE" "$part"
    ;;
  *)
    echo "package.sh: unknown package '$kind'" >&2
    exit 2
    ;;
esac
mv -f "$part" "$output"
