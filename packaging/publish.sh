#!/usr/bin/env bash
# Publishes the release: dist/ is replaced whole by a folder holding the
# given files, the zip bundle and SHA256SUMS with its signature, or, when
# anything fails, left as it was.
#
#   publish.sh <dist> <bundle name> <epoch file> <guide> <licence> <file>...
#
# Every Authenticode-signed file (.aex, .exe, .msi) must verify against the
# CA certificates of the signing settings (signing_key.sh), time-stamped when
# time-stamp servers are set. The zip, <bundle name>.zip, holds one folder
# <bundle name>/ with the files but *.debug, INSTALL.txt, LICENSE.txt and a
# SHA256SUMS of those with its signature, so `sha256sum -c SHA256SUMS` works
# in the unpacked folder as it does in dist/; it is byte for byte the same on
# every build of one commit (fixed order, mode 0644, the build date, no extra
# fields, no folder entries). The new folder is made beside dist/ and renamed
# into place; a kill between the two renames leaves the last release in
# dist.old/, which the next run puts back first. dist/previews/, made by
# scripts/build.sh, is carried over.
set -euo pipefail
if [ $# -lt 6 ]; then
  echo "usage: $0 <dist> <bundle name> <epoch file> <guide> <licence> <file>..." >&2
  exit 2
fi
dist="$(realpath -m "$1")" bundle="$2" epoch_file="$3" epoch="$(cat "$3")" guide="$4" license="$5"
shift 5
here="$(dirname "${BASH_SOURCE[0]}")"
signing_tool=publish.sh
# shellcheck source=packaging/signing_key.sh
source "$here/signing_key.sh"
readonly KEPT=(previews)

# keep_from <folder>: moves what dist/ keeps across releases from <folder> into dist/.
keep_from() {
  local kept
  for kept in "${KEPT[@]}"; do
    [ ! -e "$1/$kept" ] || [ -e "$dist/$kept" ] || mv "$1/$kept" "$dist/$kept"
  done
}

if [ -d "$dist.old" ]; then
  if [ -e "$dist" ]; then keep_from "$dist.old"; else mv "$dist.old" "$dist"; fi
fi
rm -rf "$dist.new" "$dist.old"
mkdir -p "$dist.new"
trap 'rm -rf "$dist.new"' EXIT
trap 'exit 129' HUP
trap 'exit 130' INT
trap 'exit 143' TERM

# verify_signature <file>: Authenticode against the configured CAs, time-stamped when asked for.
verify_signature() {
  local args=() report system="the system's CA certificates"
  [ -z "${CINEBAR_SIGN_CAFILE:-}" ] || args+=(-CAfile "$CINEBAR_SIGN_CAFILE")
  [ -z "${CINEBAR_SIGN_TSA_CAFILE:-}" ] || args+=(-TSA-CAfile "$CINEBAR_SIGN_TSA_CAFILE")
  report="$("${CINEBAR_OSSLSIGNCODE:-osslsigncode}" verify "${args[@]}" -in "$1" 2>&1)" ||
    signing_fail "$(basename "$1") does not verify against ${CINEBAR_SIGN_CAFILE:-$system}:
$(grep -iE 'error|fail' <<<"$report")"
  if [ -n "${CINEBAR_SIGN_TIMESTAMP_URL:-}" ] && ! grep -q '^Timestamp Server Signature verification: ok' <<<"$report"
  then
    signing_fail "$(basename "$1") carries no time stamp that verifies"
  fi
}

# make_bundle <zip> <file>...: the zip of one folder, <bundle>/.
make_bundle() {
  local zip="$1" stage="$dist.new/.bundle" names=() name file
  shift
  mkdir -p "$stage/$bundle"
  for file in "$@" "$guide|INSTALL.txt" "$license|LICENSE.txt"; do
    name="$(basename "$file")"
    case "$file" in *'|'*) name="${file#*|}" file="${file%|*}" ;; esac
    cp "$file" "$stage/$bundle/$name"
    names+=("$name")
  done
  (cd "$stage/$bundle" && sha256sum -- "${names[@]}" >SHA256SUMS)
  "$here/sign_sums.sh" "$epoch_file" "$stage/$bundle/SHA256SUMS"
  names+=(SHA256SUMS SHA256SUMS.sig)
  # Zip times start in 1980; zip writes local times, UTC on every machine.
  local when=$((epoch < 315532800 ? 315532800 : epoch))
  chmod 0644 "$stage/$bundle/"*
  touch -d "@$when" "$stage/$bundle/"*
  (cd "$stage" && TZ=UTC "${CINEBAR_ZIP:-zip}" -X -D -q -9 "$zip" "${names[@]/#/$bundle/}")
  rm -rf "$stage"
}

signing_load
shipped=()
for file in "$@"; do
  case "$file" in *.aex | *.exe | *.msi) verify_signature "$file" ;; esac
  cp "$file" "$dist.new/"
  shipped+=("$(basename "$file")")
done
in_bundle=()
for file in "$@"; do
  case "$file" in *.debug) ;; *) in_bundle+=("$file") ;; esac
done
make_bundle "$dist.new/$bundle.zip" "${in_bundle[@]}"
shipped+=("$bundle.zip")
(cd "$dist.new" && sha256sum -- "${shipped[@]}" >SHA256SUMS)
"$here/sign_sums.sh" "$epoch_file" "$dist.new/SHA256SUMS"
(cd "$dist.new" && sha256sum --check --quiet SHA256SUMS) || signing_fail "SHA256SUMS does not check"

[ ! -e "$dist" ] || mv "$dist" "$dist.old"
mv "$dist.new" "$dist"
if [ -d "$dist.old" ]; then
  keep_from "$dist.old"
  rm -rf "$dist.old"
fi
