#!/usr/bin/env bash
# Checks that the release is reproducible: builds one commit twice, from two
# clones at different absolute paths with fresh build trees and the same
# signing key, and compares the shippable files byte for byte (module, its
# symbols, installer, MSI package, zip, SHA256SUMS and its signature). The first is a build by
# hand, with no SOURCE_DATE_EPOCH in the environment: the configure and build
# steps of `cmake --workflow --preset win64`, for the release target. The
# second is scripts/build.sh with SOURCE_DATE_EPOCH set to the commit's time.
# Both must carry the commit's date.
#
#   scripts/check-reproducible.sh [commit]     (default: HEAD)
#
# Only committed work is built. Both builds sign with CINEBAR_SIGN_PKCS12 (and CINEBAR_SIGN_PASSWORD)
# when set; otherwise with one throwaway test certificate made here for both,
# since a signature is only the same bytes under the same key and certificate.
# KEEP=1 keeps the two trees for a closer look. Exit code 0 when every file is
# identical, 1 when one differs.
set -euo pipefail
repo="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
commit="$(git -C "$repo" rev-parse --verify "${1:-HEAD}^{commit}")"
epoch="$(git -C "$repo" log -1 --format=%ct "$commit")"
unset SOURCE_DATE_EPOCH
# Time stamps differ on every build; a token's key is not shared by the two builds.
unset CINEBAR_SIGN_TIMESTAMP_URL CINEBAR_SIGN_PKCS11_MODULE

# shellcheck source=scripts/deps.sh
source "$repo/scripts/deps.sh"
cinebar_ensure_packages

work="$(mktemp -d "${TMPDIR:-/tmp}/cinebar-reproducible.XXXXXX")"
if [ "${KEEP:-0}" = 1 ]; then
  echo "Trees kept in $work"
else
  trap 'rm -rf "$work"' EXIT
fi

if [ -z "${CINEBAR_SIGN_PKCS12:-}" ]; then
  "$repo/packaging/make-test-certificate.sh" "$work/signing"
  export CINEBAR_SIGN_PKCS12="$work/signing/test-signing.p12" CINEBAR_SIGN_CAFILE="$work/signing/test-ca.pem"
  export CINEBAR_SIGN_PASSWORD=""
  echo "Signing both builds with a test certificate made for this check"
fi

# Source paths of different lengths, so that an embedded path changes the bytes
# and not only their content.
trees=("$work/first/cinebar" "$work/second-build-tree/src/cinebar")

start=$SECONDS
for tree in "${trees[@]}"; do
  git clone -q --no-hardlinks "$repo" "$tree"
  git -C "$tree" -c advice.detachedHead=false checkout -q "$commit"
done
echo "=== $commit by hand in ${trees[0]} (no SOURCE_DATE_EPOCH) ==="
(
  cd "${trees[0]}"
  cmake --preset win64 >"${trees[0]}.configure.log" 2>&1 || { cat "${trees[0]}.configure.log"; exit 1; }
  cmake --build --preset win64 --target cinebar_release >"${trees[0]}.build.log" 2>&1 ||
    { tail -n 40 "${trees[0]}.build.log"; exit 1; }
)
echo "=== $commit by scripts/build.sh in ${trees[1]} (SOURCE_DATE_EPOCH=$epoch) ==="
(
  cd "${trees[1]}"
  SOURCE_DATE_EPOCH="$epoch" scripts/build.sh >"${trees[1]}.build.log" 2>&1 ||
    { tail -n 40 "${trees[1]}.build.log"; exit 1; }
)
echo "Two builds in $((SECONDS - start)) s"

# The shippable files: those that SHA256SUMS lists, SHA256SUMS and its signature.
files=()
if [ -f "${trees[0]}/dist/SHA256SUMS" ]; then
  mapfile -t files < <(sed -E 's/^[0-9a-f]{64}  //' "${trees[0]}/dist/SHA256SUMS")
fi
files+=(SHA256SUMS SHA256SUMS.sig)
status=0
if [ "${#files[@]}" -ne 7 ]; then
  echo "expected the module, its symbols, the installer, the MSI and the zip in SHA256SUMS, found: ${files[*]}"
  status=1
fi
for f in "${files[@]}"; do
  a="${trees[0]}/dist/$f"
  b="${trees[1]}/dist/$f"
  if [ ! -f "$a" ] || [ ! -f "$b" ]; then
    echo "MISSING  $f"
    status=1
  elif cmp -s "$a" "$b"; then
    echo "SAME     $f  $(sha256sum "$a" | cut -d' ' -f1)"
  else
    echo "DIFFERS  $f  ($(cmp -l "$a" "$b" | wc -l) bytes; first offsets below)"
    cmp -l "$a" "$b" | head -n 10
    status=1
  fi
done
# Identical files prove nothing about signing or dates: the module carries
# the commit's date, and it and the installers carry signatures that verify,
# made at the commit's time.
build_date="$(LC_ALL=C date -u -d "@$epoch" '+%b %e %Y')"
if grep -qaF "$build_date" "${trees[0]}/dist/KSCinebar.aex"; then
  echo "DATED    KSCinebar.aex  $build_date"
else
  echo "WRONG DATE KSCinebar.aex  (no \"$build_date\" in it)"
  status=1
fi
signing_time="$(LC_ALL=C date -u -d "@$epoch" '+%b %e %H:%M:%S %Y GMT')"
ca=()
[ -z "${CINEBAR_SIGN_CAFILE:-}" ] || ca=(-CAfile "$CINEBAR_SIGN_CAFILE")
for f in "${files[@]}"; do
  case "$f" in *.aex | *.exe | *.msi) ;; *) continue ;; esac
  report="$(osslsigncode verify "${ca[@]}" -in "${trees[0]}/dist/$f" 2>&1)"
  if ! grep -q "Signing time: $signing_time" <<<"$report"; then
    echo "WRONG DATE $f  (not signed at $signing_time)"
    status=1
  elif grep -q '^Signature verification: ok' <<<"$report"; then
    echo "SIGNED   $f"
  else
    echo "UNSIGNED $f  (osslsigncode verify fails)"
    status=1
  fi
done
if [ "$status" -ne 0 ]; then
  echo "Not reproducible or not signed. Compare e.g. x86_64-w64-mingw32-objdump -x of both modules; KEEP=1 keeps the trees."
fi
exit "$status"
