#!/usr/bin/env bash
# Builds the installers of the shipped module, signed. Called by the build
# (packaging/CMakeLists.txt) and by the packaging tests, which sign with other
# keys or build other versions, so both run the same commands.
#
#   package.sh <release.env> installer <output> [<NSIS stub>]
#   package.sh <release.env> msi <output> [<version> <product code> <module>]
#
# <release.env> is written by packaging/CMakeLists.txt: the names, version,
# files and tools. The key and time-stamp servers are sign.sh's, from the
# environment. The MSI's version, product code and module default to the
# release's; tests build older and newer packages with other ones.
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
mkdir -p "$(dirname "$output")"
rm -f "$part"
trap 'rm -f "$part"' EXIT

case "$kind" in
  installer)
    stub=()
    [ $# -eq 0 ] || stub=("-DSTUB=$1")
    "$MAKENSIS" -V2 -WX -NOCONFIG -INPUTCHARSET UTF8 "${stub[@]}" \
      "-DPRODUCT=$PRODUCT" "-DPUBLISHER=$PUBLISHER" "-DCATEGORY=$CATEGORY" "-DVERSION=$VERSION" \
      "-DVERSION_QUAD=$VERSION_QUAD" "-DMODULE_FILE=$MODULE_FILE" "-DMODULE_NAME=$MODULE_NAME" \
      "-DLICENSE_FILE=$LICENSE_FILE" "-DCOPYRIGHT=$COPYRIGHT" "-DPRODUCT_PAGE=$PRODUCT_PAGE" \
      "-DAE_VERSIONS=$AE_VERSIONS" "-DMSI_KEY=$MSI_KEY" "-DUNINSTALL_KEY=$UNINSTALL_KEY" \
      "-DSIGN=$SIGN" "-DSIGN_TOOL=$OSSLSIGNCODE" "-DSIGN_EPOCH_FILE=$EPOCH_FILE" \
      "-DOUTFILE=$part" "$NSIS_SCRIPT"
    ;;
  msi)
    version="${1:-$VERSION}" product_code="${2:-$PRODUCT_CODE}" module="${3:-$MODULE_FILE}"
    work="$(mktemp -d "${TMPDIR:-/tmp}/cinebar-msi.XXXXXX")"
    trap 'rm -rf "$part" "$work"' EXIT
    # The cabinet keeps each file's time: the build date, not the build's clock.
    cp "$module" "$work/$MODULE_NAME"
    touch -d "@$(cat "$EPOCH_FILE")" "$work/$MODULE_NAME"
    # wixl finds sources by relative names only.
    (cd "$work" && "$WIXL" -a x64 -D "Version=$version" -D "ProductCode=$product_code" -D "ModuleFile=$MODULE_NAME" \
      -o "$part" "$WXS")
    "$PYTHON3" "$MSI_SUMMARY" "$part" "$(cat "$EPOCH_FILE")"
    "$SIGN" "$OSSLSIGNCODE" "$EPOCH_FILE" "$PRODUCT $version" "$PRODUCT_PAGE" "$part"
    ;;
  *)
    echo "package.sh: unknown package '$kind'" >&2
    exit 2
    ;;
esac
mv -f "$part" "$output"
